#include "transform/ihs_model.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "tests/transform/ihs_definition.h"
#include "transform/ihs_tran_fusion.h"

namespace {

using ihs_definition::kPi;

struct Ihs {
  double i;
  double h;
  double s;
};

Ihs Forward(double r, double g, double b) {
  Ihs v{};
  CIhsTranFusion(nullptr).RGB2IHS(r, g, b, v.i, v.h, v.s);
  return v;
}

std::array<double, 3> Back(const Ihs& v) {
  double r = 0;
  double g = 0;
  double b = 0;
  CIhsTranFusion(nullptr).IHS2RGB(v.i, v.h, v.s, r, g, b);
  return {r, g, b};
}

TEST(IhsTransform, PureColoursLieAtTheirAngles) {
  EXPECT_NEAR(Forward(90, 0, 0).h, 0.0, 1e-12);
  EXPECT_NEAR(Forward(0, 90, 0).h, 120.0 / 360.0, 1e-12);
  EXPECT_NEAR(Forward(0, 0, 90).h, 240.0 / 360.0, 1e-12);
  for (const Ihs& v : {Forward(90, 0, 0), Forward(0, 90, 0), Forward(0, 0, 90)}) {
    EXPECT_NEAR(v.i, 30.0, 1e-12);
    EXPECT_NEAR(v.s, 1.0, 1e-12);
  }
}

TEST(IhsTransform, GreyHasNeitherHueNorSaturation) {
  for (const double grey : {0.0, 1.0, 77.0}) {
    const Ihs v = Forward(grey, grey, grey);
    EXPECT_EQ(v.i, grey);
    EXPECT_EQ(v.h, 0.0);
    EXPECT_EQ(v.s, 0.0);
    EXPECT_EQ(Back({50.0, v.h, v.s}), (std::array<double, 3>{50.0, 50.0, 50.0})) << "grey takes the pan value";
  }
}

TEST(IhsTransform, YellowIsHalfWayBetweenRedAndGreen) {
  const Ihs v = Forward(60, 60, 0);
  EXPECT_NEAR(v.h, 60.0 / 360.0, 1e-12);
  EXPECT_NEAR(v.s, 1.0, 1e-12);
  EXPECT_NEAR(v.i, 40.0, 1e-12);
}

TEST(IhsTransform, HuesAndSaturationsByHand) {
  struct Row {
    double rgb[3];
    double i, degrees, s;
  };
  // Numerator and denominator of the cosine: 45/90, -60/60, 60/60, and for the last (30 - 25) / sqrt(700).
  const Row rows[] = {
      {{90, 0, 90}, 60.0, 300.0, 1.0},
      {{0, 60, 60}, 40.0, 180.0, 1.0},
      {{120, 60, 60}, 80.0, 0.0, 0.25},
      {{60, 60, 120}, 80.0, 240.0, 0.25},
      {{30, 40, 10}, 80.0 / 3.0, std::acos(5.0 / std::sqrt(700.0)) * 180.0 / kPi, 0.625},
  };
  for (const Row& row : rows) {
    const Ihs v = Forward(row.rgb[0], row.rgb[1], row.rgb[2]);
    EXPECT_NEAR(v.i, row.i, 1e-12);
    EXPECT_NEAR(v.h * 360.0, row.degrees, 1e-9);
    EXPECT_NEAR(v.s, row.s, 1e-12);
  }
}

TEST(IhsTransform, SectorsMeetWhereTheTableSays) {
  // At 120 and 240 degrees both factors are cos(120) / cos(60) = -1 or 1 / cos(60) = 2: one component high at
  // I (1 + 2 S), two low at I (1 - S).
  const auto expectRgb = [](double degrees, double r, double g, double b) {
    const auto rgb = Back({50.0, degrees / 360.0, 0.4});
    EXPECT_NEAR(rgb[0], r, 1e-12) << degrees;
    EXPECT_NEAR(rgb[1], g, 1e-12) << degrees;
    EXPECT_NEAR(rgb[2], b, 1e-12) << degrees;
  };
  expectRgb(0.0, 90.0, 30.0, 30.0);
  expectRgb(120.0, 30.0, 90.0, 30.0);
  expectRgb(240.0, 30.0, 30.0, 90.0);
  expectRgb(360.0, 90.0, 30.0, 30.0);
  // Half way between two of them both are I (1 + S / 2).
  expectRgb(60.0, 60.0, 60.0, 30.0);
  expectRgb(180.0, 30.0, 60.0, 60.0);
  expectRgb(300.0, 60.0, 30.0, 60.0);
}

TEST(IhsTransform, BordersBelongToTheSectorBeforeThem) {
  // The low colour of a sector is I (1 - S) to the last bit, which a rest of three intensities hardly ever is.
  for (int i = 1; i < 40; ++i) {
    const double intensity = 7.3 * i;
    const double saturation = 0.023 * i;
    const double low = intensity * (1.0 - saturation);
    ASSERT_EQ(120.0 / 360.0 * 360.0, 120.0);
    EXPECT_EQ(Back({intensity, 120.0 / 360.0, saturation})[2], low) << i;
    ASSERT_EQ(240.0 / 360.0 * 360.0, 240.0);
    EXPECT_EQ(Back({intensity, 240.0 / 360.0, saturation})[0], low) << i;
    for (const double hue : {0.0, 250.0 / 360.0, 1.0}) EXPECT_EQ(Back({intensity, hue, saturation})[1], low) << i;
  }
}

TEST(IhsTransform, CosineThatRoundsBeyondOneCountsAsOne) {
  // In double arithmetic the quotients are 1 + 1.8e-15 and -1 - 2.2e-15; their angles are 0 and 180 degrees.
  EXPECT_EQ(Forward(73.368579284354809, 69.294694552348545, 69.29469455234856).h, 1.0);
  EXPECT_EQ(Forward(217.58990974066819, 205.97548712387828, 205.9754871238782).h, 0.0);
  EXPECT_EQ(Forward(145.73583394203121, 152.05576745770975, 152.05576745770972).h, 0.5);
}

TEST(IhsTransform, BackTransformIsTheInverse) {
  for (int r = 1; r < 250; r += 31) {
    for (int g = 2; g < 250; g += 29) {
      for (int b = 3; b < 250; b += 37) {
        const auto rgb = Back(Forward(r, g, b));
        EXPECT_NEAR(rgb[0], r, 1e-9);
        EXPECT_NEAR(rgb[1], g, 1e-9);
        EXPECT_NEAR(rgb[2], b, 1e-9);
      }
    }
  }
}

/// Colours that occur and some that do not, in every combination of the odd ones, with a pan value each.
std::vector<std::array<double, 4>> Pixels() {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  const double odd[] = {0.0,    -0.0,   1.0,   -1.0,      0.5,  254.0, 77.0,  77.000000000000014,
                        1e-200, 5e-324, 1e300, kInfinity, kNaN, -2.0,  100.0, 2.0,
                        -77.0,  1e-30,  1e160};
  std::vector<std::array<double, 4>> pixels;
  for (const double r : odd) {
    for (const double g : odd) {
      for (const double b : odd) pixels.push_back({20.0, r, g, b});
    }
  }
  for (const double pan : odd) pixels.push_back({pan, 10.0, 30.0, 20.0});
  std::mt19937 random(5);
  std::uniform_real_distribution<double> scaled(1.0, 254.0);
  std::uniform_int_distribution<int> byte(0, 255);
  std::uniform_real_distribution<double> close(-1e-9, 1e-9);
  for (int i = 0; i < 50000; ++i) {
    pixels.push_back({scaled(random), scaled(random), scaled(random), scaled(random)});
    const auto any = [&] { return static_cast<double>(byte(random)); };
    pixels.push_back({any(), any(), any(), any()});
    // Nearly grey, and on the borders of the sectors.
    const double grey = scaled(random);
    pixels.push_back({scaled(random), grey + close(random), grey + close(random), grey + close(random)});
    pixels.push_back({scaled(random), grey, grey, scaled(random)});
    pixels.push_back({scaled(random), scaled(random), grey, grey});
    pixels.push_back({scaled(random), grey, scaled(random), grey});
  }
  return pixels;
}

struct Columns {
  explicit Columns(const std::vector<std::array<double, 4>>& pixels) : in(4), out(3) {
    for (const auto& pixel : pixels) {
      for (std::size_t k = 0; k < 4; ++k) in[k].push_back(pixel[k]);
    }
    for (auto& row : out) row.assign(pixels.size(), -1.0);
    fusion::SubstituteIntensity(in[0].data(), in[1].data(), in[2].data(), in[3].data(), static_cast<int>(pixels.size()),
                                out[0].data(), out[1].data(), out[2].data());
  }
  std::vector<std::vector<double>> in;
  std::vector<std::vector<double>> out;
};

bool IsSame(double a, double b) { return (a == b && std::signbit(a) == std::signbit(b)) || (a != a && b != b); }

TEST(IhsRows, EqualTheTransformPixelByPixelBitForBit) {
  const auto pixels = Pixels();
  const Columns rows(pixels);
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    const auto& [pan, r, g, b] = pixels[i];
    const Ihs v = Forward(r, g, b);
    const auto rgb = Back({pan, v.h, v.s});
    for (std::size_t k = 0; k < 3; ++k) {
      ASSERT_TRUE(IsSame(rows.out[k][i], rgb[k]))
          << k << " of " << pan << ": " << r << ' ' << g << ' ' << b << ": " << rows.out[k][i] << ", not " << rgb[k];
    }
  }
}

TEST(IhsRows, AgreeWithTheDefinitionInTheFunctionsOfTheCLibrary) {
  const auto pixels = Pixels();
  const Columns rows(pixels);
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    const auto& [pan, r, g, b] = pixels[i];
    double rgb[] = {r, g, b};
    ihs_definition::Substitute(pan, rgb[0], rgb[1], rgb[2]);
    double size = 0.0;
    for (const double v : rgb) size = std::max(size, std::fabs(v));
    for (std::size_t k = 0; k < 3; ++k) {
      const double value = rows.out[k][i];
      ASSERT_TRUE(value == rgb[k] || (value != value && rgb[k] != rgb[k]) ||
                  (std::isfinite(size) && std::fabs(value - rgb[k]) <= 1e-12 * size))
          << k << " of " << pan << ": " << r << ' ' << g << ' ' << b << ": " << value << ", not " << rgb[k];
    }
  }
}

TEST(IhsRows, EveryLengthIsDoneToItsEnd) {
  const auto pixels = Pixels();
  const Columns all({pixels.end() - 700, pixels.end()});
  for (const std::ptrdiff_t n : {1, 2, 3, 7, 8, 9, 255, 256, 257, 511, 513, 699}) {
    const Columns some({pixels.end() - 700, pixels.end() - 700 + n});
    for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
      for (std::size_t k = 0; k < 3; ++k) ASSERT_TRUE(IsSame(some.out[k][i], all.out[k][i])) << n << ' ' << i;
    }
  }
}

TEST(IhsScale, BringsTheRangeToTheScaleAndLeavesNoData) {
  const float tenth = 0.1F;
  const std::vector<double> in = {-100.0, 0.0, 100.0, static_cast<double>(tenth), 50.0, 25.0, -50.0, 300.0, 7.0};
  const auto scaled = [&](const platform::NoDataRule& test) {
    std::vector<double> values = in;
    fusion::ScaleToBytes(-100.0, 100.0, test, values.data(), static_cast<std::int64_t>(values.size()));
    return values;
  };
  const auto expect = [&](const std::vector<double>& values, double kept) {
    for (std::size_t i = 0; i < in.size(); ++i) {
      EXPECT_EQ(values[i], in[i] == kept ? kept : (in[i] + 100.0) / 200.0 * 253.0 + 1.0) << i;
    }
  };
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  expect(scaled({}), kNaN);
  expect(scaled({false, false, 50.0}), kNaN);
  expect(scaled({true, false, 50.0}), 50.0);
  expect(scaled({true, false, kNaN}), kNaN);
  // A float band whose value was declared in more digits than it holds.
  expect(scaled({true, false, 0.1}), kNaN);
  expect(scaled({true, true, 0.1}), static_cast<double>(tenth));
}

}  // namespace
