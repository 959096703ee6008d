#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <stdexcept>
#include <vector>

#include "quality/image.h"

/// Images for the tests of the measures.
namespace test_support {

inline quality::Image MakeImage(int width, int height, const std::vector<std::vector<double>>& bands) {
  quality::Image image;
  image.width = width;
  image.height = height;
  image.bands = bands;
  return image;
}

inline quality::Image RandomImage(unsigned seed, int width, int height, int bands, double low = 100.0,
                                  double high = 900.0) {
  std::mt19937 random(seed);
  quality::Image image;
  image.width = width;
  image.height = height;
  for (int b = 0; b < bands; ++b) {
    image.bands.emplace_back();
    for (int i = 0; i < width * height; ++i) {
      image.bands.back().push_back(low + (high - low) * static_cast<double>(random() % 10007) / 10007.0);
    }
  }
  return image;
}

/// The same image and some noise.
inline quality::Image Like(const quality::Image& image, unsigned seed, double noise) {
  const quality::Image other =
      RandomImage(seed, image.width, image.height, static_cast<int>(image.bands.size()), -noise, noise);
  quality::Image result = image;
  for (std::size_t b = 0; b < image.bands.size(); ++b) {
    for (std::size_t i = 0; i < image.bands[b].size(); ++i) result.bands[b][i] += other.bands[b][i];
  }
  return result;
}

inline quality::Image Mapped(quality::Image image, const std::function<double(double)>& map) {
  for (auto& band : image.bands) {
    for (double& v : band) v = map(v);
  }
  return image;
}

inline quality::Image Part(const quality::Image& image, int left, int top, int width, int height) {
  quality::Image part;
  part.width = width;
  part.height = height;
  for (const auto& band : image.bands) {
    part.bands.emplace_back();
    for (int y = top; y < top + height; ++y) {
      for (int x = left; x < left + width; ++x) {
        part.bands.back().push_back(band[static_cast<std::size_t>(y * image.width + x)]);
      }
    }
  }
  return part;
}

/// A marked pixel holds nothing that could be read by chance.
inline void LeaveOut(quality::Image& image, std::size_t pixel) {
  if (image.valid.empty()) image.valid.assign(image.PixelCount(), 1);
  image.valid[pixel] = 0;
  for (auto& band : image.bands) band[pixel] = std::nan("");
}

/// The figures of a block of pixels by their definition.
struct PlainMoments {
  PlainMoments(const std::vector<double>& a, const std::vector<double>& b) {
    const auto n = static_cast<double>(a.size());
    for (const double v : a) meanA += v / n;
    for (const double v : b) meanB += v / n;
    for (std::size_t i = 0; i < a.size(); ++i) {
      varianceA += (a[i] - meanA) * (a[i] - meanA) / n;
      varianceB += (b[i] - meanB) * (b[i] - meanB) / n;
      covariance += (a[i] - meanA) * (b[i] - meanB) / n;
    }
  }
  double Index() const {
    return 4.0 * covariance * meanA * meanB / ((varianceA + varianceB) * (meanA * meanA + meanB * meanB));
  }

  double meanA = 0.0;
  double meanB = 0.0;
  double varianceA = 0.0;
  double varianceB = 0.0;
  double covariance = 0.0;
};

/// A measure that compares images pixel by pixel refuses those that do not fit.
template <typename Measure>
void ExpectRefusals(const Measure& measure) {
  const quality::Image image = RandomImage(1, 9, 10, 2);
  EXPECT_THROW(measure(image, RandomImage(2, 10, 9, 2)), std::invalid_argument);
  EXPECT_THROW(measure(image, RandomImage(2, 9, 10, 3)), std::invalid_argument);
  quality::Image broken = image;
  broken.bands[1].pop_back();
  EXPECT_THROW(measure(image, broken), std::invalid_argument);
  broken = image;
  broken.valid.assign(5, 1);
  EXPECT_THROW(measure(broken, image), std::invalid_argument);
}

}  // namespace test_support
