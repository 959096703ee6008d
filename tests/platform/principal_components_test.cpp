// Principal components of a raster's bands.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "platform/raster/raster_algorithm.h"
#include "platform/raster/raster_source.h"
#include "platform/system/start_thread.h"
#include "platform/system/workers.h"
#include "platform/validity/raster_aoi.h"
#include "tests/platform/opened_raster.h"
#include "tests/support/numbers.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"
#include "tests/support/test_raster.h"

namespace {

using test_support::TestRaster;

using test_support::kNaN;

class PrincipalComponents : public OpenedRaster {};

/// What ComputeStaticsFromAOI answers.
struct Components {
  bool ok = false;
  long long count = -1;
  std::vector<double> means, stdDevs, eigenvalues, rows;
};

Components Principal(CRasterSource& source, CRasterAOI* aoi = nullptr, CDataProgress* progress = nullptr) {
  const auto n = static_cast<std::size_t>(source.GetBandCount());
  Components c{false,
               -1,
               std::vector<double>(n, -9),
               std::vector<double>(n, -9),
               std::vector<double>(n, -9),
               std::vector<double>(n * n, -9)};
  c.ok = CRasterAlgorithm::ComputeStaticsFromAOI(&source, aoi, c.count, c.means.data(), c.stdDevs.data(),
                                                 c.eigenvalues.data(), c.rows.data(), false, progress);
  return c;
}

void ExpectNear(const std::vector<double>& actual, const std::vector<double>& expected, double tolerance) {
  ASSERT_EQ(actual.size(), expected.size());
  for (std::size_t i = 0; i < actual.size(); ++i) EXPECT_NEAR(actual[i], expected[i], tolerance) << i;
}

TestRaster Bands(int width, int height, const std::vector<std::vector<double>>& bands) {
  TestRaster raster;
  raster.width = width;
  raster.height = height;
  raster.bands = bands;
  return raster;
}

TEST_F(PrincipalComponents, OfTwoBandsByHand) {
  // Deviations (-2,-1) (2,1) (-1,-2) (1,2) around (10, 20): variances 10/4, covariance 8/4. The eigenvalues of
  // [2.5 2; 2 2.5] are 4.5 along (1,1) and 0.5 along (1,-1). The first row is divided by its sum.
  const Components c = Principal(Open(Bands(4, 1, {{8, 12, 9, 11}, {19, 21, 18, 22}})));
  ASSERT_TRUE(c.ok);
  EXPECT_EQ(c.count, 4);
  ExpectNear(c.means, {10, 20}, 1e-14);
  ExpectNear(c.stdDevs, {std::sqrt(2.5), std::sqrt(2.5)}, 1e-14);
  ExpectNear(c.eigenvalues, {4.5, 0.5}, 1e-13);
  const double h = std::sqrt(0.5);
  // The second row's sum is 0, so its first entry is positive.
  ExpectNear(c.rows, {0.5, 0.5, h, -h}, 1e-13);
}

TEST_F(PrincipalComponents, OfUnequalVariancesByHand) {
  // Uncorrelated: variances 4 and 1, so the rows are the axes themselves.
  const Components c = Principal(Open(Bands(4, 1, {{3, 7, 3, 7}, {1, 1, 3, 3}})));
  ASSERT_TRUE(c.ok);
  ExpectNear(c.eigenvalues, {4, 1}, 1e-14);
  ExpectNear(c.rows, {1, 0, 0, 1}, 1e-14);
}

TEST_F(PrincipalComponents, ANegativelyCorrelatedPairHasAFirstRowWithoutScale) {
  // Deviations along (1,-1): the first row's sum is 0, so it keeps length 1 and its first entry is positive.
  const Components c = Principal(Open(Bands(4, 1, {{1, 2, 3, 4}, {4, 3, 2, 1}})));
  ASSERT_TRUE(c.ok);
  const double h = std::sqrt(0.5);
  ExpectNear(c.rows, {h, -h, h, h}, 1e-13);
  ExpectNear(c.eigenvalues, {2.5, 0.0}, 1e-13);
}

TEST_F(PrincipalComponents, BandsThatAreMultiplesHaveOneComponent) {
  std::mt19937 random(3);
  std::uniform_int_distribution<int> value(1, 200);
  std::vector<std::vector<double>> bands(3);
  for (int i = 0; i < 40 * 30; ++i) {
    const double v = value(random);
    bands[0].push_back(v);
    bands[1].push_back(2.0 * v);
    bands[2].push_back(0.5 * v);
  }
  const Components c = Principal(Open(Bands(40, 30, bands)));
  ASSERT_TRUE(c.ok);
  // Weights in the proportion of the standard deviations, 1 : 2 : 0.5, summing to 1.
  ExpectNear({c.rows[0], c.rows[1], c.rows[2]}, {1 / 3.5, 2 / 3.5, 0.5 / 3.5}, 1e-10);
  const double total = c.stdDevs[0] * c.stdDevs[0] * 5.25;
  EXPECT_NEAR(c.eigenvalues[0], total, 1e-9 * total);
  EXPECT_NEAR(c.eigenvalues[1], 0.0, 1e-9 * total);
  EXPECT_GE(c.eigenvalues[2], 0.0);
}

TEST_F(PrincipalComponents, DiagonaliseTheCovariance) {
  std::mt19937 random(21);
  std::normal_distribution<double> noise(0.0, 1.0);
  constexpr int kBands = 5;
  constexpr int kWidth = 133;
  constexpr int kHeight = 41;
  std::vector<std::vector<double>> bands(kBands);
  for (int i = 0; i < kWidth * kHeight; ++i) {
    const double common = 50.0 * noise(random);
    for (int b = 0; b < kBands; ++b) {
      bands[static_cast<std::size_t>(b)].push_back(10000.0 * b + (b + 1) * common + 10.0 * noise(random));
    }
  }
  const Components c = Principal(Open(Bands(kWidth, kHeight, bands)));
  ASSERT_TRUE(c.ok);
  // Covariance by its definition.
  std::vector<long double> mean(kBands, 0.0L);
  for (int b = 0; b < kBands; ++b) {
    for (const double v : bands[static_cast<std::size_t>(b)]) mean[static_cast<std::size_t>(b)] += v;
    mean[static_cast<std::size_t>(b)] /= kWidth * kHeight;
  }
  const auto covariance = [&](std::size_t a, std::size_t b) {
    long double sum = 0.0L;
    for (std::size_t i = 0; i < bands[a].size(); ++i) sum += (bands[a][i] - mean[a]) * (bands[b][i] - mean[b]);
    return static_cast<double>(sum / (kWidth * kHeight));
  };
  for (std::size_t r = 0; r < kBands; ++r) {
    EXPECT_NEAR(c.means[r], static_cast<double>(mean[r]), 1e-9);
    EXPECT_NEAR(c.stdDevs[r], std::sqrt(covariance(r, r)), 1e-9);
    double sum = 0.0;
    double length = 0.0;
    for (std::size_t b = 0; b < kBands; ++b) {
      // Covariance times row = eigenvalue times row.
      double product = 0.0;
      for (std::size_t k = 0; k < kBands; ++k) product += covariance(b, k) * c.rows[r * kBands + k];
      EXPECT_NEAR(product, c.eigenvalues[r] * c.rows[r * kBands + b], 1e-7 * c.eigenvalues[0]);
      sum += c.rows[r * kBands + b];
      length += c.rows[r * kBands + b] * c.rows[r * kBands + b];
    }
    EXPECT_GE(sum, 0.0);
    EXPECT_NEAR(r == 0 ? sum : length, 1.0, 1e-12);
    if (r > 0) {
      EXPECT_LE(c.eigenvalues[r], c.eigenvalues[r - 1]);
    }
  }
}

TEST_F(PrincipalComponents, UsePixelsValidInEveryBandInsideTheArea) {
  TestRaster raster = Bands(4, 2, {{8, 12, 9, 11, 500, -1, kNaN, 3}, {19, 21, 18, 22, -1, 4, 5, -1}});
  raster.noData = -1.0;
  raster.geoTransform = std::vector<double>{0, 1, 0, 0, 0, 1};
  CRasterSource& source = Open(raster);
  const Components whole = Principal(source);
  EXPECT_EQ(whole.count, 4) << "the second row has a gap in one band or the other";
  ExpectNear(whole.eigenvalues, {4.5, 0.5}, 1e-13);

  // The triangle covers the centres of columns 0 and 1 of the first row alone.
  const std::wstring area = L"/vsimem/statistics_area.csv";
  test_support::WriteTriangle(area, {0.0, 0.0}, {4.0, 0.0}, {0.0, 1.0});
  CRasterAOI aoi;
  ASSERT_TRUE(aoi.Load(area, source));
  const Components inside = Principal(source, &aoi);
  EXPECT_EQ(inside.count, 2);
  ExpectNear(inside.means, {10, 20}, 1e-14);
  CRasterSource::DeleteFileW(area);
}

TEST_F(PrincipalComponents, ThatFailLeaveTheArraysAlone) {
  TestRaster raster = Bands(2, 1, {{1, 2}, {3, 4}});
  raster.noData = 1.0;
  raster.bands[0] = {1, 1};
  const std::vector<double> untouched(2, -9);
  Components c = Principal(Open(raster));
  EXPECT_FALSE(c.ok);
  EXPECT_EQ(c.means, untouched);
  EXPECT_EQ(c.eigenvalues, untouched);
  raster.noData.reset();
  test_support::RecordingProgress progress;
  progress.RequestCancel();
  c = Principal(Open(raster), nullptr, &progress);
  EXPECT_FALSE(c.ok);
  EXPECT_EQ(c.means, untouched);
  CRasterSource closed;
  EXPECT_FALSE(Principal(closed).ok);
}

TestRaster RandomBands(unsigned seed, int width, int height) {
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> value(0, 4000);
  std::vector<std::vector<double>> bands(4);
  for (auto& band : bands) {
    for (int i = 0; i < width * height; ++i) band.push_back(value(random));
  }
  return Bands(width, height, bands);
}

TEST_F(PrincipalComponents, OfTwoRunsAgreeBitForBit) {
  CRasterSource& source = Open(RandomBands(33, 211, 97));
  const Components first = Principal(source);
  const Components second = Principal(source);
  EXPECT_EQ(first.rows, second.rows);
  EXPECT_EQ(first.means, second.means);
}

TEST_F(PrincipalComponents, AreTakenByAllThreads) {
  static int started;
  CRasterSource& source = Open(RandomBands(34, 211, 197));
  const Components alone = Principal(source);
  platform::Workers workers(3);
  source.SetWorkers(&workers);
  started = 0;
  platform::SetThreadFault([] {
    ++started;
    return false;
  });
  const Components together = Principal(source);
  platform::SetThreadFault(nullptr);
  source.SetWorkers(nullptr);
  EXPECT_EQ(started, 2) << "beside the caller's";
  EXPECT_EQ(together.rows, alone.rows);
  EXPECT_EQ(together.means, alone.means);
  EXPECT_EQ(together.eigenvalues, alone.eigenvalues);
}

}  // namespace
