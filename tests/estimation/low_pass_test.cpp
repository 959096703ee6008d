#include "estimation/low_pass.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <tuple>

namespace {

using fusion::AxisFilter;
using fusion::LowPassShape;
using fusion::LowPassWeights;
using fusion::PointFilter;
using fusion::SeparableFilter;
using fusion::WeightsAt;

struct Image {
  int width;
  int height;
  std::vector<double> values;

  double At(int x, int y) const {
    return values[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)];
  }
};

Image MakeImage(int width, int height, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> any(-500.0, 4000.0);
  Image image{width, height, {}};
  for (int i = 0; i < width * height; ++i) image.values.push_back(any(random));
  return image;
}

/// What a sample at a distance from the position weighs, by the definition.
double Weight(const LowPassShape& shape, double distance) {
  if (!shape.isBox) {
    return std::fabs(distance) > 4.0 * shape.size + 1.0 ? 0.0 : std::exp(-0.5 * std::pow(distance / shape.size, 2));
  }
  const double half = shape.size / 2.0;
  return std::max(0.0, std::min(half, distance + 0.5) - std::max(-half, distance - 0.5));
}

/// Pixel by pixel: all weights of the plane, those on the image, and a NaN wherever one lies under them.
double LowPassed(const Image& image, const LowPassShape& alongX, const LowPassShape& alongY, double x, double y,
                 double least = 0.98) {
  double all = 0.0;
  double inside = 0.0;
  double sum = 0.0;
  for (int r = -60; r < image.height + 60; ++r) {
    for (int c = -60; c < image.width + 60; ++c) {
      const double w = Weight(alongX, c - x) * Weight(alongY, r - y);
      if (w == 0.0) continue;
      all += w;
      if (c < 0 || r < 0 || c >= image.width || r >= image.height) continue;
      inside += w;
      sum += w * image.At(c, r);
    }
  }
  return inside > 0.0 && inside >= least * all ? sum / inside : NAN;
}

void ExpectSame(double actual, double expected, const std::string& where) {
  if (std::isnan(expected)) {
    EXPECT_TRUE(std::isnan(actual)) << where << " is " << actual;
  } else {
    EXPECT_NEAR(actual, expected, 1e-9 * 4000.0) << where;
  }
}

std::vector<double> Positions(double first, double step, int count) {
  std::vector<double> positions;
  for (int i = 0; i < count; ++i) positions.push_back(first + i * step);
  return positions;
}

TEST(LowPass, WeightsOfAGaussianAreThoseOfItsDensity) {
  // exp(-d^2 / 2) at distances -0.25, 0.75 and so on, as far as 4 x 1 + 1 samples.
  const LowPassWeights w = WeightsAt(LowPassShape::Gaussian(1.0), 10.25, 100);
  EXPECT_EQ(w.first, 6);
  ASSERT_EQ(w.weights.size(), 10U);  // 5.25 to 15.25
  EXPECT_EQ(w.share, 1.0);
  EXPECT_NEAR(w.weights[4] / w.weights[5], std::exp(-0.5 * 0.0625) / std::exp(-0.5 * 0.5625), 1e-13);
  double sum = 0.0;
  for (const double v : w.weights) sum += v;
  EXPECT_NEAR(sum, 1.0, 1e-15);
}

TEST(LowPass, ABoxWeighsSamplesByTheirPartInside) {
  // Length 2.5 around the centre of sample 4: from 3.25 to 5.75 in corner coordinates, a quarter pixel is missing at
  // either end of three samples.
  const LowPassWeights w = WeightsAt(LowPassShape::Box(2.5), 4.0, 100);
  EXPECT_EQ(w.first, 3);
  ASSERT_EQ(w.weights.size(), 3U);
  EXPECT_DOUBLE_EQ(w.weights[0], 0.3);
  EXPECT_DOUBLE_EQ(w.weights[1], 0.4);
  EXPECT_DOUBLE_EQ(w.weights[2], 0.3);
  // An edge that rounding moved by a hair touches no further sample.
  EXPECT_EQ(WeightsAt(LowPassShape::Box(2.0), 4.5 + 1e-9, 100).weights.size(), 2U);
}

TEST(LowPass, TheShareOnTheImageIsThatOfAllWeight) {
  const LowPassWeights half = WeightsAt(LowPassShape::Box(4.0), -0.5, 100);  // -2 to 2 in corner coordinates
  EXPECT_EQ(half.first, 0);
  EXPECT_EQ(half.weights, (std::vector<double>{0.5, 0.5}));
  EXPECT_DOUBLE_EQ(half.share, 0.5);
  EXPECT_EQ(WeightsAt(LowPassShape::Box(4.0), -50.0, 100).share, 0.0);
  EXPECT_TRUE(WeightsAt(LowPassShape::Gaussian(1.0), NAN, 100).weights.empty());
  EXPECT_TRUE(WeightsAt(LowPassShape::Gaussian(1.0), -1e300, 100).weights.empty());
}

TEST(LowPass, TheDeviationLeavesTheGainAtTheNyquistFrequency) {
  // The transfer function of a Gaussian is another one, exp(-2 (pi f deviation)^2); Nyquist is half a coarse sample.
  for (const double ratio : {1.5, 4.0}) {
    for (const double gain : {0.15, 0.3}) {
      const double deviation = fusion::DeviationOfGain(ratio, gain);
      const double frequency = 0.5 / ratio;
      EXPECT_NEAR(std::exp(-2.0 * std::pow(std::numbers::pi * frequency * deviation, 2)), gain, 1e-12);
    }
  }
}

TEST(LowPass, FilteredRectanglesAreTheDefinition) {
  const Image image = MakeImage(61, 47, 5);
  const std::tuple<LowPassShape, LowPassShape, double, double> cases[] = {
      {LowPassShape::Gaussian(1.98), LowPassShape::Gaussian(1.98), 4.0, 4.0},
      {LowPassShape::Gaussian(0.7), LowPassShape::Gaussian(1.5), 1.5, 3.2},
      {LowPassShape::Box(2.37), LowPassShape::Box(4.0), 2.37, 4.0},
      {LowPassShape::Gaussian(1.2), LowPassShape::Box(3.0), -2.5, -3.0}};
  for (const auto& [alongX, alongY, stepX, stepY] : cases) {
    // Some positions before and behind the image; downwards and backwards.
    const auto xs = Positions(stepX > 0 ? -3.37 : 66.1, stepX, static_cast<int>(70.0 / std::fabs(stepX)));
    const auto ys = Positions(stepY > 0 ? -2.0 : 50.0, stepY, static_cast<int>(54.0 / std::fabs(stepY)));
    const SeparableFilter filter({alongX, xs, image.width}, {alongY, ys, image.height});
    // A rectangle of its own, from just the input that it reads.
    const CRect rect(1, 2, static_cast<int>(xs.size()) - 1, static_cast<int>(ys.size()));
    const CRect reads = filter.Reads(rect);
    ASSERT_GE(reads.left, 0);
    ASSERT_GE(reads.top, 0);
    ASSERT_LE(reads.right, image.width);
    ASSERT_LE(reads.bottom, image.height);
    std::vector<double> input;
    for (int y = reads.top; y < reads.bottom; ++y) {
      for (int x = reads.left; x < reads.right; ++x) input.push_back(image.At(x, y));
    }
    std::vector<double> out(static_cast<std::size_t>(rect.Area()), -1.0);
    filter.Apply(input.data(), reads, rect, out.data());
    const double* value = out.data();
    int finite = 0;
    for (int r = rect.top; r < rect.bottom; ++r) {
      for (int c = rect.left; c < rect.right; ++c, ++value) {
        const double expected =
            LowPassed(image, alongX, alongY, xs[static_cast<std::size_t>(c)], ys[static_cast<std::size_t>(r)]);
        ExpectSame(*value, expected, std::to_string(c) + ", " + std::to_string(r));
        if (!std::isnan(expected)) ++finite;
      }
    }
    EXPECT_GT(finite, 20);
    EXPECT_LT(finite, rect.Area());
  }
}

TEST(LowPass, PiecesAreTheWhole) {
  const Image image = MakeImage(40, 90, 6);
  const auto xs = Positions(4.5, 2.0, 16);
  const auto ys = Positions(4.5, 2.0, 41);
  const auto shape = LowPassShape::Gaussian(1.0);
  const SeparableFilter filter({shape, xs, 40}, {shape, ys, 90});
  std::vector<double> whole(16 * 41);
  filter.Apply(image.values.data(), {0, 0, 40, 90}, {0, 0, 16, 41}, whole.data());
  std::vector<double> pieces(whole.size());
  int top = 0;
  for (const int rows : {1, 7, 8, 9, 16}) {
    filter.Apply(image.values.data(), {0, 0, 40, 90}, {0, top, 16, top + rows}, pieces.data() + top * 16);
    top += rows;
  }
  ASSERT_EQ(top, 41);
  EXPECT_EQ(pieces, whole);
}

TEST(LowPass, ANaNSpreadsAsFarAsItWeighs) {
  Image image = MakeImage(30, 30, 7);
  image.values[15 * 30 + 12] = NAN;
  const auto at = Positions(0.0, 1.0, 30);
  const auto shape = LowPassShape::Box(3.0);
  const SeparableFilter filter({shape, at, 30}, {shape, at, 30});
  std::vector<double> out(900);
  filter.Apply(image.values.data(), {0, 0, 30, 30}, {0, 0, 30, 30}, out.data());
  for (int y = 1; y < 29; ++y) {
    for (int x = 1; x < 29; ++x) {
      const bool near = std::abs(x - 12) <= 1 && std::abs(y - 15) <= 1;
      EXPECT_EQ(std::isnan(out[static_cast<std::size_t>(y * 30 + x)]), near) << x << ", " << y;
    }
  }
}

TEST(LowPass, WhereNothingIsValidNothingIsRead) {
  const auto shape = LowPassShape::Box(2.0);
  const SeparableFilter filter({shape, {-5.0, -4.0}, 10}, {shape, {3.0}, 10});
  EXPECT_EQ(filter.Reads({0, 0, 2, 1}).Area(), 0);
  double out[] = {1.0, 2.0};
  filter.Apply(nullptr, {}, {0, 0, 2, 1}, out);
  EXPECT_TRUE(std::isnan(out[0]) && std::isnan(out[1]));
}

TEST(LowPass, InACornerTheShareIsThatOfBothAxes) {
  // Along each axis 98.6 % lie on the image: enough, but not together.
  const auto shape = LowPassShape::Box(4.0);
  const double at = 1.5 - 0.056;
  const SeparableFilter filter({shape, {at, 5.0}, 10}, {shape, {at, 5.0}, 10});
  const std::vector<double> image(100, 7.0);
  double out[4];
  filter.Apply(image.data(), {0, 0, 10, 10}, {0, 0, 2, 2}, out);
  EXPECT_TRUE(std::isnan(out[0]));
  for (int i = 1; i < 4; ++i) EXPECT_NEAR(out[i], 7.0, 1e-12);
}

TEST(LowPass, OneAxisWithoutAValueLeavesNothing) {
  const auto shape = LowPassShape::Box(2.0);
  const SeparableFilter filter({shape, {3.0, 4.0}, 10}, {shape, {-8.0}, 10});
  double out[] = {1.0, 2.0};
  filter.Apply(nullptr, {}, {0, 0, 2, 1}, out);
  EXPECT_TRUE(std::isnan(out[0]) && std::isnan(out[1]));
}

TEST(LowPass, NarrowGaussiansAreGaussians) {
  for (const double deviation : {0.01, 0.2, 0.49, 0.5, 0.51}) {
    const LowPassWeights w = WeightsAt(LowPassShape::Gaussian(deviation), 5.3, 20);
    double all = 0.0;
    for (int i = 0; i < 20; ++i) all += Weight(LowPassShape::Gaussian(deviation), i - 5.3);
    for (std::size_t k = 0; k < w.weights.size(); ++k) {
      const double distance = w.first + static_cast<double>(k) - 5.3;
      EXPECT_NEAR(w.weights[k], Weight(LowPassShape::Gaussian(deviation), distance) / all, 1e-12) << deviation;
    }
  }
}

TEST(LowPass, FiltersInARowAreOneFilter) {
  const Image image = MakeImage(64, 1, 8);
  const AxisFilter inner(LowPassShape::Gaussian(1.0), Positions(0.5, 2.0, 32), 64);
  AxisFilter outer(32);
  for (int i = 0; i < 64; ++i) {
    const int k = std::min(i / 2, 30);
    outer.Add({k, {0.25, 0.75}, 1.0});
  }
  const AxisFilter both = outer.Behind(inner);
  ASSERT_EQ(both.Count(), 64);
  EXPECT_EQ(both.InputSize(), 64);
  const auto apply = [](const LowPassWeights& w, const std::vector<double>& row) {
    double sum = 0.0;
    for (std::size_t k = 0; k < w.weights.size(); ++k) sum += w.weights[k] * row[static_cast<std::size_t>(w.first) + k];
    return sum;
  };
  std::vector<double> between;
  for (int i = 0; i < 32; ++i) between.push_back(apply(inner[i], image.values));
  for (int i = 0; i < 64; ++i) {
    EXPECT_NEAR(apply(both[i], image.values), apply(outer[i], between), 1e-9) << i;
    const int k = std::min(i / 2, 30);
    EXPECT_EQ(both[i].share, std::min(inner[k].share, inner[k + 1].share));
  }
}

TEST(LowPass, HowMuchOfTheWeightMustLieOnTheImageIsTheCallers) {
  const Image image = MakeImage(20, 20, 11);
  const auto shape = LowPassShape::Gaussian(1.5);
  const std::vector<double> at = {-9.0, -1.0, 0.0, 1.0, 2.0, 10.0};
  const int count = static_cast<int>(at.size());
  for (const double least : {0.0, 0.5, 0.98}) {
    const SeparableFilter grid({shape, at, 20}, {shape, at, 20}, least);
    const PointFilter points(shape, shape, 20, 20, least);
    std::vector<double> all(at.size() * at.size());
    grid.Apply(image.values.data(), {0, 0, 20, 20}, {0, 0, count, count}, all.data());
    std::vector<double> diagonal(at.size());
    points.Apply(image.values.data(), {0, 0, 20, 20}, at.data(), at.data(), count, diagonal.data());
    for (std::size_t i = 0; i < at.size(); ++i) {
      const double expected = LowPassed(image, shape, shape, at[i], at[i], least);
      ExpectSame(all[i * (at.size() + 1)], expected, std::to_string(at[i]));
      ExpectSame(diagonal[i], expected, std::to_string(at[i]));
    }
  }
}

TEST(LowPass, ScatteredPositionsAreTheDefinition) {
  Image image = MakeImage(50, 40, 9);
  image.values[20 * 50 + 20] = NAN;
  std::mt19937 random(10);
  std::uniform_real_distribution<double> column(-8.0, 58.0);
  std::uniform_real_distribution<double> line(-8.0, 48.0);
  std::vector<double> x = {NAN, -1e9, 25.0};
  std::vector<double> y = {10.0, -1e9, NAN};
  for (int i = 0; i < 300; ++i) {
    x.push_back(column(random));
    y.push_back(line(random));
  }
  const int count = static_cast<int>(x.size());
  for (const auto& [alongX, alongY] : {std::pair(LowPassShape::Gaussian(1.3), LowPassShape::Gaussian(0.8)),
                                       std::pair(LowPassShape::Box(3.1), LowPassShape::Box(2.0))}) {
    const PointFilter filter(alongX, alongY, image.width, image.height);
    EXPECT_EQ(filter.Reads(x.data(), y.data(), count), CRect(0, 0, 50, 40));
    const CRect reads = filter.Reads(x.data() + 3, y.data() + 3, 1);
    std::vector<double> out(x.size(), -1.0);
    filter.Apply(image.values.data(), {0, 0, 50, 40}, x.data(), y.data(), count, out.data());
    for (std::size_t i = 0; i < x.size(); ++i) {
      const bool somewhere = std::isfinite(x[i]) && std::isfinite(y[i]);
      ExpectSame(out[i], somewhere ? LowPassed(image, alongX, alongY, x[i], y[i]) : NAN, std::to_string(i));
    }
    // A single position reads no more than what weighs there.
    EXPECT_LE(reads.Width(), 13);
    EXPECT_LE(reads.Height(), 10);
  }
}

}  // namespace
