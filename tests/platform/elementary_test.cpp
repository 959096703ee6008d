#include "platform/system/elementary.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "tests/support/numbers.h"

namespace {

using test_support::kPi;
constexpr double kInfinity = std::numeric_limits<double>::infinity();
using test_support::kNaN;

/// Distance from a value known better, in units of the last place that a double of its size has.
double Units(double value, long double exact) {
  int exponent = 0;
  std::frexp(static_cast<double>(exact), &exponent);
  return static_cast<double>(std::fabs(value - exact)) / std::ldexp(1.0, exponent - 53);
}

/// Numbers between two limits: evenly dense, random, the limits' neighbours and numbers ever closer to them.
std::vector<double> Between(double low, double high) {
  std::vector<double> values = {low, high};
  constexpr int kSteps = 100000;
  for (int i = 0; i <= kSteps; ++i) values.push_back(low + (high - low) * i / kSteps);
  std::mt19937_64 random(9);
  std::uniform_real_distribution<double> any(low, high);
  for (int i = 0; i < kSteps; ++i) values.push_back(any(random));
  double up = low;
  double down = high;
  for (int i = 0; i < 1000; ++i) {
    up = std::nextafter(up, high);
    down = std::nextafter(down, low);
    values.insert(values.end(), {up, down});
  }
  for (double part = 0.5; part > 1e-16; part *= 0.7) {
    values.insert(values.end(), {low + (high - low) * part, high - (high - low) * part});
  }
  return values;
}

/// The same for cosines. The C library of Windows takes the processor's own, which knows pi to 66 binary digits: close
/// to a zero, or many turns away, that tells no more than how far two cosines are apart, in units of those close to 1.
double CosineUnits(double value, long double exact) {
#ifdef _WIN32
  return static_cast<double>(std::fabs(value - exact)) * 0x1p53;
#else
  return Units(value, exact);
#endif
}
#ifdef _WIN32
constexpr double kManyTurns = 1e6 * 0x1p-66 * 0x1p53 + 2.0;
#else
constexpr double kManyTurns = 2.0;
#endif

template <typename Function, typename Exact>
double LargestError(const std::vector<double>& values, Function function, Exact exact,
                    double (*units)(double, long double) = Units) {
  double largest = 0.0;
  for (const double v : values) largest = std::fmax(largest, units(function(v), exact(static_cast<long double>(v))));
  return largest;
}

class Elementary : public testing::Test {
 protected:
  void SetUp() override {
    if (LDBL_MANT_DIG < 64) GTEST_SKIP() << "no type with more digits to compare with";
  }
};

using ElementaryAccuracy = Elementary;

TEST_F(ElementaryAccuracy, CosineIsWithinOneUnitOfTheLastPlace) {
  const auto cosine = [](double x) { return platform::Cos(x); };
  const auto exact = [](long double x) { return std::cos(x); };
  for (int eighth = -16; eighth < 16; ++eighth) {
    const double low = eighth * kPi / 8.0;
    EXPECT_LT(LargestError(Between(low, low + kPi / 8.0), cosine, exact, CosineUnits), 0.95) << low;
  }
  // Where the cosine is as small as that of a double can be, all its digits come from the digits of pi.
  for (const double zero : {kPi / 2.0, 3.0 * kPi / 2.0}) {
    EXPECT_LT(LargestError(Between(zero - 1e-9, zero + 1e-9), cosine, exact, CosineUnits), 0.95) << zero;
    EXPECT_LT(CosineUnits(platform::Cos(zero), std::cos(static_cast<long double>(zero))), 0.95);
  }
  EXPECT_LT(LargestError(Between(-1e6, 1e6), cosine, exact, CosineUnits), kManyTurns);
}

TEST_F(ElementaryAccuracy, ArcCosineIsWithinOneUnitOfTheLastPlace) {
  const auto arcCosine = [](double x) { return platform::ArcCos(x); };
  // Not every C library's own is exact close to 1 and -1.
  const auto exact = [](long double x) { return std::atan2(std::sqrt((1 - x) * (1 + x)), x); };
  const double limits[] = {-1.0, -0.75, -0.5, -0.25, -1e-3, 0.0, 1e-3, 0.25, 0.5, 0.75, 0.999, 1.0};
  for (std::size_t i = 0; i + 1 < std::size(limits); ++i) {
    EXPECT_LT(LargestError(Between(limits[i], limits[i + 1]), arcCosine, exact), 0.95) << limits[i];
  }
}

TEST(ElementaryValues, CosineOfWhatHasAnExactOne) {
  EXPECT_EQ(platform::Cos(0.0), 1.0);
  EXPECT_EQ(platform::Cos(-0.0), 1.0);
  EXPECT_EQ(platform::Cos(5e-324), 1.0);
  EXPECT_EQ(platform::Cos(kPi), -1.0);
  // What pi lacks in a double: half of 1.2246467991473532e-16.
  EXPECT_DOUBLE_EQ(platform::Cos(kPi / 2.0), 6.123233995736766e-17);
  for (const double x : {kInfinity, -kInfinity, kNaN}) EXPECT_TRUE(std::isnan(platform::Cos(x))) << x;
}

TEST(ElementaryValues, ArcCosineOfWhatHasAnExactOne) {
  EXPECT_EQ(platform::ArcCos(1.0), 0.0);
  EXPECT_FALSE(std::signbit(platform::ArcCos(1.0)));
  EXPECT_EQ(platform::ArcCos(-1.0), kPi);
  for (const double x : {0.0, -0.0, 5e-324, 1e-20}) EXPECT_EQ(platform::ArcCos(x), kPi / 2.0) << x;
  EXPECT_DOUBLE_EQ(platform::ArcCos(0.5), kPi / 3.0);
  EXPECT_DOUBLE_EQ(platform::ArcCos(-0.5), 2.0 * kPi / 3.0);
  for (const double x : {1.0000000000000002, -1.0000000000000002, 2.0, 1e300, kInfinity, -kInfinity, kNaN}) {
    EXPECT_TRUE(std::isnan(platform::ArcCos(x))) << x;
  }
}

TEST(ElementaryValues, BothKeepTheirSymmetryAndUndoEachOther) {
  for (const double x : Between(0.0, kPi)) {
    ASSERT_EQ(platform::Cos(-x), platform::Cos(x)) << x;
    const double c = platform::Cos(x);
    ASSERT_LE(std::fabs(c), 1.0) << x;
    // Near 0 and pi the cosine tells angles apart no better than this.
    ASSERT_NEAR(platform::ArcCos(c), x, 3e-8) << x;
  }
  for (const double x : Between(0.0, 1.0)) {
    ASSERT_NEAR(platform::ArcCos(x) + platform::ArcCos(-x), kPi, 1e-15) << x;
    ASSERT_NEAR(platform::Cos(platform::ArcCos(x)), x, 3e-16) << x;
  }
}

}  // namespace
