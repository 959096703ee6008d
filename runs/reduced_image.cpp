#include "runs/reduced_image.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "framework/messages.h"
#include "platform/algorithm/base_algorithm.h"
#include "runs/failures.h"

namespace fusion {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

}  // namespace

quality::Image ReducedImage(const CRasterSource& source, const std::vector<int>& bands, const CRect& rect, int width,
                            int height, const std::function<void(int y, const std::vector<double>& samples)>& row) {
  // More rows under a pixel make its mean no better than the eye can tell.
  constexpr int kMostRows = 8;
  quality::Image image;
  image.width = width;
  image.height = height;
  image.bands.assign(bands.size(), std::vector<double>(image.PixelCount(), kNaN));
  const auto columns = static_cast<std::size_t>(rect.Width());
  std::vector<std::size_t> pixelOf(columns);
  for (std::size_t x = 0; x < columns; ++x) pixelOf[x] = x * static_cast<std::size_t>(width) / columns;
  std::vector<double> samples(columns);
  std::vector<double> sums(static_cast<std::size_t>(width));
  std::vector<double> counts(static_cast<std::size_t>(width));
  const auto edge = [&](int j) { return rect.top + static_cast<int>(std::int64_t{rect.Height()} * j / height); };
  for (int j = 0; j < height; ++j) {
    const int step = std::max(1, (edge(j + 1) - edge(j)) / kMostRows);
    for (std::size_t b = 0; b < bands.size(); ++b) {
      std::fill(sums.begin(), sums.end(), 0.0);
      std::fill(counts.begin(), counts.end(), 0.0);
      for (int y = edge(j) + (step - 1) / 2; y < edge(j + 1); y += step) {
        if (source.GetRasterBand(bands[b])->ReadBlock(rect.left, y, rect.Width(), 1, samples.data(), rect.Width(), 1,
                                                      PDT_FLOAT64) != 0) {
          throw RunError(ERR_READ, messages::kReadFailed);
        }
        if (row && b == 0) row(y, samples);
        for (std::size_t x = 0; x < columns; ++x) {
          if (!std::isfinite(samples[x])) continue;
          sums[pixelOf[x]] += samples[x];
          ++counts[pixelOf[x]];
        }
      }
      double* to = image.bands[b].data() + static_cast<std::ptrdiff_t>(j) * width;
      for (std::size_t x = 0; x < sums.size(); ++x) {
        if (counts[x] > 0.0) to[x] = sums[x] / counts[x];
      }
    }
  }
  return image;
}

double Sampled(const quality::Image& image, std::size_t band, double x, double y) {
  constexpr double kEdge = 0.5;
  if (!(x >= -kEdge && y >= -kEdge && x <= image.width - kEdge && y <= image.height - kEdge)) return kNaN;
  const int left = std::clamp(static_cast<int>(std::floor(x)), 0, std::max(image.width - 2, 0));
  const int top = std::clamp(static_cast<int>(std::floor(y)), 0, std::max(image.height - 2, 0));
  double sum = 0.0;
  double all = 0.0;
  for (int j = top; j <= std::min(top + 1, image.height - 1); ++j) {
    for (int i = left; i <= std::min(left + 1, image.width - 1); ++i) {
      const double v = image.bands[band][static_cast<std::size_t>(j) * static_cast<std::size_t>(image.width) +
                                         static_cast<std::size_t>(i)];
      const double weight = std::max(0.0, 1.0 - std::fabs(x - i)) * std::max(0.0, 1.0 - std::fabs(y - j));
      if (!std::isfinite(v) || weight == 0.0) continue;
      sum += weight * v;
      all += weight;
    }
  }
  // Less would show what lies beyond a border of the data.
  constexpr double kLeast = 0.5;
  if (all < kLeast && x >= 0.0 && y >= 0.0 && x <= image.width - 1 && y <= image.height - 1) return kNaN;
  return all > 0.0 ? sum / all : kNaN;
}

}  // namespace fusion
