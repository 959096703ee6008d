#include "platform/statistics/running_covariance.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "platform/statistics/survey.h"

namespace {

using platform::RunningCovariance;

TEST(RunningCovariance, ByHand) {
  // Means 2 and 5; deviations (-1, 0, 1) and (3, -1, -2).
  const double x[] = {1.0, 2.0, 3.0};
  const double y[] = {8.0, 4.0, 3.0};
  const double* columns[] = {x, y};
  RunningCovariance statistics(2);
  statistics.Add(columns, 3);
  EXPECT_EQ(statistics.Count(), 3);
  EXPECT_DOUBLE_EQ(statistics.Mean(0), 2.0);
  EXPECT_DOUBLE_EQ(statistics.Mean(1), 5.0);
  EXPECT_DOUBLE_EQ(statistics.Covariance(0, 0), 2.0 / 3.0);
  EXPECT_DOUBLE_EQ(statistics.Covariance(1, 1), 14.0 / 3.0);
  EXPECT_DOUBLE_EQ(statistics.Covariance(0, 1), -5.0 / 3.0);
  EXPECT_EQ(statistics.Covariance(1, 0), statistics.Covariance(0, 1));
}

TEST(RunningCovariance, TakesOverWhatAnotherHasSeen) {
  // The first two values of the test above, then the third one, whose origins are others.
  const double x[] = {1.0, 2.0, 3.0};
  const double y[] = {8.0, 4.0, 3.0};
  const double* first[] = {x, y};
  const double* last[] = {x + 2, y + 2};
  RunningCovariance statistics(2);
  RunningCovariance behind(2);
  statistics.Add(first, 2);
  behind.Add(last, 1);
  statistics.Add(RunningCovariance(2));
  statistics.Add(behind);
  EXPECT_EQ(statistics.Count(), 3);
  EXPECT_DOUBLE_EQ(statistics.Mean(0), 2.0);
  EXPECT_DOUBLE_EQ(statistics.Mean(1), 5.0);
  EXPECT_DOUBLE_EQ(statistics.Covariance(0, 0), 2.0 / 3.0);
  EXPECT_DOUBLE_EQ(statistics.Covariance(1, 1), 14.0 / 3.0);
  EXPECT_DOUBLE_EQ(statistics.Covariance(0, 1), -5.0 / 3.0);
  RunningCovariance empty(2);
  empty.Add(statistics);
  EXPECT_EQ(empty.Count(), 3);
  EXPECT_EQ(empty.Covariance(0, 1), statistics.Covariance(0, 1));
  EXPECT_THROW(empty.Add(RunningCovariance(3)), platform::SurveyFault);
}

TEST(RunningCovariance, EmptyOnesAreZero) {
  RunningCovariance statistics(1);
  const double* none[] = {nullptr};
  statistics.Add(none, 0);
  EXPECT_EQ(statistics.Count(), 0);
  EXPECT_EQ(statistics.Covariance(0, 0), 0.0);
}

/// Two passes in long double.
long double Covariance(const std::vector<double>& a, const std::vector<double>& b) {
  long double meanA = 0;
  long double meanB = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    meanA += a[i];
    meanB += b[i];
  }
  const auto n = static_cast<long double>(a.size());
  meanA /= n;
  meanB /= n;
  long double sum = 0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += (a[i] - meanA) * (b[i] - meanB);
  return sum / n;
}

TEST(RunningCovariance, BatchesOfAnySizeAndLargeMeansCostNoDigits) {
  std::mt19937 random(4);
  std::normal_distribution<double> value(0.0, 1.0);
  std::vector<std::vector<double>> values(3);
  for (int i = 0; i < 5000; ++i) {
    const double common = value(random);
    values[0].push_back(1e9 + common);
    values[1].push_back(-3e6 + 2.0 * common + value(random) + 0.01 * i);
    values[2].push_back(1e-3 * value(random));
  }
  for (const std::size_t batch : {1u, 7u, 16u, 100u, 4999u, 5000u}) {
    RunningCovariance statistics(3);
    for (std::size_t first = 0; first < 5000; first += batch) {
      const double* columns[] = {values[0].data() + first, values[1].data() + first, values[2].data() + first};
      statistics.Add(columns, static_cast<std::int64_t>(std::min<std::size_t>(batch, 5000 - first)));
    }
    EXPECT_EQ(statistics.Count(), 5000);
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) {
        const auto a = static_cast<std::size_t>(i);
        const auto b = static_cast<std::size_t>(j);
        const double scale =
            static_cast<double>(std::sqrt(Covariance(values[a], values[a]) * Covariance(values[b], values[b])));
        // The values themselves hold the first column's deviations to 1e-7.
        EXPECT_NEAR(statistics.Covariance(i, j), static_cast<double>(Covariance(values[a], values[b])), 1e-8 * scale);
      }
    }
  }
}

}  // namespace
