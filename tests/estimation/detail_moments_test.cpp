#include "estimation/detail_moments.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "tests/support/numbers.h"

namespace {

using fusion::DetailMoments;
using fusion::PanBlur;

using test_support::kPi;

/// Images of one size with a made-up texture, values row by row.
struct Stack {
  int width;
  int height;
  std::vector<std::vector<double>> images;

  std::size_t At(int x, int y) const {
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x);
  }
};

Stack MakeStack(int width, int height, int count, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> noise(0.0, 30.0);
  Stack stack{width, height, {}};
  for (int i = 0; i < count; ++i) {
    auto& image = stack.images.emplace_back();
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        image.push_back(500.0 + 100.0 * i + 80.0 * std::sin(0.2 * x + i) + 60.0 * std::cos(0.17 * y) + noise(random));
      }
    }
  }
  return stack;
}

/// Cubic convolution with parameter -1.
double Cubic(double t) {
  const double s = std::fabs(t);
  if (s < 1.0) return 1.0 - 2.0 * s * s + s * s * s;
  return s < 2.0 ? 4.0 - 8.0 * s + 5.0 * s * s - s * s * s : 0.0;
}

/// An image on the grid of half as many pixels and back, pixel by pixel: the coarse pixel K is centred on the corner
/// between the pixels 2K and 2K + 1, and what lies outside an image does not count on the way there, and is the edge on
/// the way back.
std::vector<double> LowPassed(const Stack& stack, const std::vector<double>& image, const PanBlur& blur) {
  const double sigma = 2.0 * blur.width * std::sqrt(-2.0 * std::log(0.3)) / kPi;
  const auto weight = [&](double distance) {
    if (blur.isBox) return std::fabs(distance) < 1.0 ? 1.0 : 0.0;
    return std::fabs(distance) <= 4.0 * sigma + 1.0 ? std::exp(-0.5 * std::pow(distance / sigma, 2)) : 0.0;
  };
  const int columns = stack.width / 2;
  const int rows = stack.height / 2;
  std::vector<double> coarse;
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < columns; ++c) {
      double sum = 0.0;
      double all = 0.0;
      for (int y = 0; y < stack.height; ++y) {
        for (int x = 0; x < stack.width; ++x) {
          const double w = weight(x - (2 * c + 0.5)) * weight(y - (2 * r + 0.5));
          sum += w * image[stack.At(x, y)];
          all += w;
        }
      }
      coarse.push_back(sum / all);
    }
  }
  std::vector<double> back;
  for (int y = 0; y < stack.height; ++y) {
    for (int x = 0; x < stack.width; ++x) {
      const double u = (x - 0.5) / 2.0;
      const double v = (y - 0.5) / 2.0;
      double sum = 0.0;
      for (int r = static_cast<int>(std::floor(v)) - 1; r <= std::floor(v) + 2; ++r) {
        for (int c = static_cast<int>(std::floor(u)) - 1; c <= std::floor(u) + 2; ++c) {
          sum += Cubic(u - c) * Cubic(v - r) *
                 coarse[static_cast<std::size_t>(std::clamp(r, 0, rows - 1) * columns + std::clamp(c, 0, columns - 1))];
        }
      }
      back.push_back(sum);
    }
  }
  return back;
}

void Feed(DetailMoments& moments, const Stack& stack, const std::vector<int>& pieces) {
  int top = 0;
  std::size_t piece = 0;
  while (top < stack.height) {
    const int rows = std::min(pieces[piece++ % pieces.size()], stack.height - top);
    std::vector<const double*> rowsOf;
    for (const auto& image : stack.images) rowsOf.push_back(image.data() + stack.At(0, top));
    moments.AddRows(rowsOf.data(), rows);
    top += rows;
  }
}

/// What the moments must be, of the pixels that count.
void ExpectMoments(const platform::RunningCovariance& found, const Stack& stack,
                   const std::vector<std::vector<double>>& low, const std::vector<bool>& counts, double tolerance) {
  const std::size_t n = stack.images.size() - 1;
  std::vector<std::vector<double>> columns(2 * n + 2);
  for (int y = 3; y < stack.height - 3; ++y) {
    for (int x = 3; x < stack.width - 3; ++x) {
      const std::size_t i = stack.At(x, y);
      if (!counts[i]) continue;
      for (std::size_t b = 0; b < n; ++b) {
        columns[b].push_back(low[b][i]);
        columns[n + 2 + b].push_back(stack.images[b][i] - low[b][i]);
      }
      columns[n].push_back(stack.images[n][i] - low[n][i]);
      columns[n + 1].push_back(low[n][i]);
    }
  }
  ASSERT_EQ(found.Count(), static_cast<std::int64_t>(columns[0].size()));
  const auto mean = [](const std::vector<double>& v) {
    double sum = 0.0;
    for (const double x : v) sum += x;
    return sum / static_cast<double>(v.size());
  };
  for (std::size_t i = 0; i < columns.size(); ++i) {
    EXPECT_NEAR(found.Mean(static_cast<int>(i)), mean(columns[i]), tolerance);
    for (std::size_t j = 0; j < columns.size(); ++j) {
      double sum = 0.0;
      for (std::size_t k = 0; k < columns[i].size(); ++k) {
        sum += (columns[i][k] - mean(columns[i])) * (columns[j][k] - mean(columns[j]));
      }
      EXPECT_NEAR(found.Covariance(static_cast<int>(i), static_cast<int>(j)),
                  sum / static_cast<double>(columns[i].size()), 100.0 * tolerance)
          << i << ", " << j;
    }
  }
}

TEST(DetailMoments, AreThoseOfTheDefinition) {
  for (const PanBlur blur : {PanBlur{false, 1.0}, PanBlur{false, 0.62}, PanBlur{true, 1.0}}) {
    for (const auto& [width, height] : {std::pair(38, 30), std::pair(25, 41)}) {
      const Stack stack = MakeStack(width, height, 3, 4);
      std::vector<std::vector<double>> low;
      for (const auto& image : stack.images) low.push_back(LowPassed(stack, image, blur));
      DetailMoments moments(2, width, height, blur);
      Feed(moments, stack, {7});
      const std::vector<bool> all(stack.images[0].size(), true);
      ExpectMoments(moments.Statistics(), stack, low, all, 1e-7);
    }
  }
}

TEST(DetailMoments, DoNotDependOnHowTheRowsCome) {
  Stack stack = MakeStack(33, 90, 3, 5);
  for (const bool gaps : {false, true}) {
    if (gaps) stack.images[1][stack.At(10, 70)] = NAN;
    DetailMoments once(2, 33, 90, {});
    Feed(once, stack, {90});
    for (const auto& pieces : {std::vector<int>{1}, {16}, {5, 40, 2}}) {
      DetailMoments some(2, 33, 90, {});
      Feed(some, stack, pieces);
      ASSERT_EQ(some.Statistics().Count(), once.Statistics().Count());
      for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(some.Statistics().Mean(i), once.Statistics().Mean(i));
        for (int j = 0; j < 6; ++j) EXPECT_EQ(some.Statistics().Covariance(i, j), once.Statistics().Covariance(i, j));
      }
    }
  }
}

TEST(DetailMoments, BesideGapsTheLowPassIsOfWhatHasData) {
  // A ratio of low-passed images: that with 0 in the gaps over that of a 1 for each pixel with data.
  const PanBlur blur{false, 0.9};
  Stack stack = MakeStack(40, 36, 3, 6);
  std::vector<double> marks(stack.images[0].size(), 1.0);
  const auto drop = [&](std::size_t image, int left, int top, int size) {
    for (int y = top; y < top + size; ++y) {
      for (int x = left; x < left + size; ++x) {
        stack.images[image][stack.At(x, y)] = NAN;
        marks[stack.At(x, y)] = 0.0;
      }
    }
  };
  drop(0, 10, 8, 2);
  drop(2, 22, 14, 9);
  // An island in a gap.
  stack.images[2][stack.At(26, 18)] = 700.0;
  marks[stack.At(26, 18)] = 1.0;
  Stack filled = stack;
  for (auto& image : filled.images) {
    for (std::size_t i = 0; i < image.size(); ++i) image[i] = marks[i] == 1.0 ? image[i] : 0.0;
  }
  const std::vector<double> data = LowPassed(stack, marks, blur);
  std::vector<std::vector<double>> low;
  for (const auto& image : filled.images) {
    low.push_back(LowPassed(stack, image, blur));
    for (std::size_t i = 0; i < data.size(); ++i) low.back()[i] /= data[i];
  }
  std::vector<bool> counts;
  int left = 0;
  for (std::size_t i = 0; i < data.size(); ++i) {
    counts.push_back(marks[i] == 1.0 && data[i] >= 0.5);
    if (marks[i] == 1.0 && data[i] < 0.5) ++left;
  }
  EXPECT_GT(left, 0) << "no pixel is too near to a gap";
  DetailMoments moments(2, 40, 36, blur);
  Feed(moments, stack, {36});
  ExpectMoments(moments.Statistics(), stack, low, counts, 1e-7);
}

TEST(DetailMoments, OfSeveralImagesAreThoseOfAllTheirPixels) {
  const Stack first = MakeStack(30, 26, 3, 11);
  Stack second = MakeStack(30, 33, 3, 12);
  second.images[0][100] = NAN;
  DetailMoments both(2, 30, 26, {});
  Feed(both, first, {10});
  both.Begin(33);
  Feed(both, second, {10});
  DetailMoments one(2, 30, 26, {});
  Feed(one, first, {26});
  DetailMoments other(2, 30, 33, {});
  Feed(other, second, {33});
  const auto& a = one.Statistics();
  const auto& b = other.Statistics();
  ASSERT_EQ(both.Statistics().Count(), a.Count() + b.Count());
  const auto n = static_cast<double>(a.Count() + b.Count());
  for (int i = 0; i < 6; ++i) {
    const auto mean = [&](int k) {
      return (static_cast<double>(a.Count()) * a.Mean(k) + static_cast<double>(b.Count()) * b.Mean(k)) / n;
    };
    EXPECT_NEAR(both.Statistics().Mean(i), mean(i), 1e-9);
    for (int j = 0; j < 6; ++j) {
      const double second1 = a.Covariance(i, j) + a.Mean(i) * a.Mean(j);
      const double second2 = b.Covariance(i, j) + b.Mean(i) * b.Mean(j);
      const double moment =
          (static_cast<double>(a.Count()) * second1 + static_cast<double>(b.Count()) * second2) / n - mean(i) * mean(j);
      EXPECT_NEAR(both.Statistics().Covariance(i, j), moment, 1e-4);
    }
  }
}

TEST(DetailMoments, TooSmallAnImageHasNone) {
  for (const auto& [width, height] : {std::pair(6, 6), std::pair(1, 1), std::pair(3, 40)}) {
    const Stack stack = MakeStack(width, height, 3, 7);
    DetailMoments moments(2, width, height, {});
    Feed(moments, stack, {4});
    EXPECT_EQ(moments.Statistics().Count(), 0);
  }
}

}  // namespace
