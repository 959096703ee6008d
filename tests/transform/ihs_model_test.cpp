#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "transform/ihs_tran_fusion.h"

namespace {

constexpr double kPi = 3.141592653589793;

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

}  // namespace
