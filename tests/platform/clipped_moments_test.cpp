#include "platform/statistics/clipped_moments.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>

#include "platform/statistics/row_statistics.h"

namespace {

using platform::ClippedMoments;
using platform::RowStatistics;

ClippedMoments Of(const std::vector<double>& values, double noData = std::nan("")) {
  ClippedMoments moments(noData);
  moments.Add(values.data(), static_cast<std::int64_t>(values.size()));
  moments.Settle();
  return moments;
}

struct Expected {
  double mean;
  double stdDev;
  std::int64_t outliers;
};

/// The definition, over the sorted values.
Expected Define(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t n = values.size();
  const double low = values[n / 1000];
  const double high = values[n - 1 - n / 1000];
  const double least = low - (high - low);
  const double most = high + (high - low);
  Expected expected{0.0, 0.0, 0};
  for (double& v : values) {
    if (v < least || v > most) ++expected.outliers;
    v = std::clamp(v, least, most);
    expected.mean += v / static_cast<double>(n);
  }
  for (const double v : values) {
    expected.stdDev += (v - expected.mean) * (v - expected.mean) / static_cast<double>(n);
  }
  expected.stdDev = std::sqrt(expected.stdDev);
  return expected;
}

std::vector<double> Ramp(int count, double first, double step) {
  std::vector<double> values;
  for (int i = 0; i < count; ++i) values.push_back(first + i * step);
  return values;
}

TEST(ClippedMoments, AreThePlainOnesWhereNothingLiesFarOff) {
  std::mt19937 random(3);
  std::normal_distribution<double> normal(400.0, 90.0);
  std::vector<double> values(20000);
  for (double& v : values) v = normal(random);
  RowStatistics plain;
  plain.Add(values.data(), 20000);
  const ClippedMoments moments = Of(values);
  EXPECT_EQ(moments.Mean(), plain.Mean());
  EXPECT_EQ(moments.StdDev(), plain.StdDev());
  EXPECT_EQ(moments.Outliers(), 0);
  EXPECT_EQ(moments.Widening(), 1.0);
}

TEST(ClippedMoments, AreTheSameFromParts) {
  std::vector<double> values = Ramp(9000, 100.0, 0.37);
  for (const std::size_t far : {700U, 4000U, 8999U}) values[far] = 1e7 + static_cast<double>(far);
  const ClippedMoments whole = Of(values);
  ASSERT_EQ(whole.Outliers(), 3);
  ClippedMoments moments;
  std::vector<ClippedMoments::Part> parts(3);
  for (std::size_t p = 0; p < 3; ++p) {
    // Each of two pieces.
    moments.Reduce(values.data() + 3000 * p, 2048, parts[p]);
    moments.Reduce(values.data() + 3000 * p + 2048, 952, parts[p]);
  }
  for (const ClippedMoments::Part& part : parts) moments.Add(part);
  moments.Settle();
  EXPECT_EQ(moments.Outliers(), 3);
  EXPECT_EQ(moments.Mean(), whole.Mean());
  EXPECT_EQ(moments.StdDev(), whole.StdDev());
}

TEST(ClippedMoments, TakeSingleValuesForLyingJustBeyondTheOthers) {
  for (const auto& [first, step] : {std::pair{100.0, 0.5}, {-3000.0, 0.5}, {-9000.0, 1.0}, {0.001, 1e-6}}) {
    std::vector<double> values = Ramp(6000, first, step);
    for (const double far : {1e6, 1e9, -1e7, 1e300}) values.push_back(far);
    // In another order than sorted.
    std::shuffle(values.begin(), values.end(), std::mt19937(5));
    const Expected expected = Define(values);
    ASSERT_EQ(expected.outliers, 4);
    const ClippedMoments moments = Of(values);
    EXPECT_EQ(moments.Outliers(), 4);
    // A bin is a thousandth of its values wide.
    const double largest = std::max(std::fabs(first), std::fabs(first + 6000 * step));
    EXPECT_NEAR(moments.Mean(), expected.mean, 1e-4 * largest);
    EXPECT_NEAR(moments.StdDev(), expected.stdDev, 1e-4 * largest);
    EXPECT_GT(moments.Widening(), 100.0);
  }
}

TEST(ClippedMoments, DoNotDependOnTheOrderInWhatTheyCut) {
  std::vector<double> values = Ramp(3000, 10.0, 1.0);
  values.insert(values.end(), {-5e5, 7e7});
  const ClippedMoments forward = Of(values);
  std::reverse(values.begin(), values.end());
  const ClippedMoments backward = Of(values);
  EXPECT_EQ(forward.Outliers(), backward.Outliers());
  EXPECT_EQ(forward.Mean(), backward.Mean());
  EXPECT_EQ(forward.StdDev(), backward.StdDev());
}

TEST(ClippedMoments, OfAnImageThatIsNearlyConstantArePlain) {
  std::vector<double> values(10000, 7.0);
  values[3] = values[900] = values[5000] = 500.0;
  // A share p of values that lie d above the rest: p d above it in the mean, and a variance of p (1 - p) d^2.
  constexpr double kShare = 3.0 / 10000.0;
  const ClippedMoments moments = Of(values);
  EXPECT_NEAR(moments.Mean(), 7.0 + kShare * 493.0, 1e-9);
  EXPECT_NEAR(moments.StdDev(), 493.0 * std::sqrt(kShare * (1.0 - kShare)), 1e-9);
  EXPECT_EQ(moments.Outliers(), 0);
}

TEST(ClippedMoments, LeaveOutWhatIsNoValue) {
  std::vector<double> values = Ramp(2000, 50.0, 1.0);
  const ClippedMoments expected = Of(values);
  for (int i = 0; i < 500; ++i) values.push_back(i % 2 ? std::nan("") : -32768.0);
  values.push_back(INFINITY);
  const ClippedMoments moments = Of(values, -32768.0);
  EXPECT_NEAR(moments.Mean(), expected.Mean(), 1e-9);
  EXPECT_NEAR(moments.StdDev(), expected.StdDev(), 1e-9);
  EXPECT_EQ(Of({}).Mean(), 0.0);
  EXPECT_EQ(Of({}).StdDev(), 0.0);
}

}  // namespace
