// Band statistics and principal components.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>
#include <random>

#include "platform/raster/raster_algorithm.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/read_window.h"
#include "platform/system/start_thread.h"
#include "platform/system/workers.h"
#include "platform/utility/common_fun.h"
#include "platform/validity/raster_aoi.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"
#include "tests/support/test_raster.h"

namespace {

using test_support::MakeRaster;
using test_support::MemoryPath;
using test_support::TestRaster;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct Figures {
  bool ok = false;
  double minimum = -1.0;
  double maximum = -1.0;
  double mean = -1.0;
  double stdDev = -1.0;
  bool operator==(const Figures&) const = default;
};

/// The definition, in two passes with long doubles.
Figures Naive(const std::vector<double>& values, std::optional<double> noData) {
  long double sum = 0.0L;
  long double squares = 0.0L;
  long long count = 0;
  Figures result{true, INFINITY, -INFINITY, 0.0, 0.0};
  const auto valid = [&](double v) { return !std::isnan(v) && !(noData && v == *noData); };
  for (const double v : values) {
    if (!valid(v)) continue;
    sum += v;
    ++count;
    result.minimum = std::min(result.minimum, v);
    result.maximum = std::max(result.maximum, v);
  }
  const long double mean = sum / static_cast<long double>(count);
  for (const double v : values) {
    if (valid(v)) squares += (v - mean) * (v - mean);
  }
  result.mean = static_cast<double>(mean);
  result.stdDev = static_cast<double>(std::sqrt(squares / static_cast<long double>(count)));
  return result;
}

class RasterStatistics : public testing::Test {
 protected:
  ~RasterStatistics() override {
    m_source.Close();
    if (!m_path.empty()) CRasterSource::DeleteFileW(m_path);
  }
  CRasterSource& Open(const TestRaster& raster) {
    m_source.Close();
    m_path = MemoryPath();
    test_support::WriteRaster(raster, m_path);
    EXPECT_TRUE(m_source.OpenSimple(m_path));
    return m_source;
  }
  static Figures Compute(CRasterSource& source, CBaseProgress* progress = nullptr, bool approximate = false) {
    Figures f;
    f.ok = source.GetRasterBand(0)->ComputeStatics(&f.minimum, &f.maximum, &f.mean, &f.stdDev, approximate, progress);
    return f;
  }
  static void ExpectNaive(const TestRaster& raster, const Figures& actual, double tolerance) {
    const Figures expected = Naive(raster.bands[0], raster.noData);
    EXPECT_TRUE(actual.ok);
    EXPECT_EQ(actual.minimum, expected.minimum);
    EXPECT_EQ(actual.maximum, expected.maximum);
    EXPECT_NEAR(actual.mean, expected.mean, tolerance * std::abs(expected.mean));
    EXPECT_NEAR(actual.stdDev, expected.stdDev, tolerance * expected.stdDev);
  }

  std::wstring m_path;
  CRasterSource m_source;
};

TEST_F(RasterStatistics, OfAHandfulOfPixels) {
  TestRaster raster = MakeRaster(4, 2, [](int, int) { return 0.0; });
  raster.bands[0] = {2, 4, 4, 4, 5, 5, 7, 9};
  const Figures f = Compute(Open(raster));
  // The mean is 5, the squared deviations 9 1 1 1 0 0 4 16 sum to 32.
  EXPECT_EQ(f, (Figures{true, 2.0, 9.0, 5.0, 2.0}));
}

TEST_F(RasterStatistics, AgreeWithTheDefinitionForEverySizeAndLayout) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> value(-50.0, 900.0);
  for (const auto& [width, height] :
       {std::pair(1, 1), {3, 1}, {1, 50}, {15, 7}, {16, 16}, {17, 3}, {301, 77}, {5000, 9}}) {
    for (const bool tiled : {false, true}) {
      TestRaster raster = MakeRaster(width, height, [&](int, int) { return value(random); });
      if (tiled) raster.options = {"TILED=YES", "BLOCKXSIZE=16", "BLOCKYSIZE=32"};
      SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
      ExpectNaive(raster, Compute(Open(raster)), 1e-13);
    }
  }
}

TEST_F(RasterStatistics, AreReadInWindowsWhereARowOfTilesIsLarge) {
  // A row of tiles holds 16384 x 256 samples, four times what is read at once.
  TestRaster raster = MakeRaster(16384, 300, [](int x, int y) { return (x * 31 + y * 17) % 4093; });
  raster.type = PDT_UINT16;
  raster.options = {"TILED=YES"};
  ExpectNaive(raster, Compute(Open(raster)), 1e-13);
}

TEST_F(RasterStatistics, KeepTheirDigitsBesideALargeMean) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> noise(-1e-3, 1e-3);
  TestRaster raster = MakeRaster(257, 129, [&](int, int) { return 1e9 + noise(random); });
  ExpectNaive(raster, Compute(Open(raster)), 1e-12);
  raster = MakeRaster(257, 129, [&](int x, int) { return 1e6 + x % 3; });
  ExpectNaive(raster, Compute(Open(raster)), 1e-12);
}

TEST_F(RasterStatistics, LeaveOutNoDataAndNaN) {
  std::mt19937 random(9);
  std::uniform_int_distribution<int> value(0, 40);
  TestRaster raster = MakeRaster(333, 21, [&](int, int) { return value(random); });
  raster.noData = 7.0;
  for (std::size_t i = 0; i < raster.bands[0].size(); i += 5) raster.bands[0][i] = kNaN;
  ExpectNaive(raster, Compute(Open(raster)), 1e-13);
  raster.noData = kNaN;
  const Figures f = Compute(Open(raster));
  raster.noData.reset();
  ExpectNaive(raster, f, 1e-13);
}

TEST_F(RasterStatistics, WindowsOfTheLargestRastersAreCounted) {
  constexpr int kMost = std::numeric_limits<int>::max();
  const platform::WindowGrid wide{kMost, 3, {0, 0, 65536, 2}};
  // 2^31 - 1 is 32767 times 65536 and 65535 more.
  EXPECT_EQ(wide.Count(), 2 * 32768);
  EXPECT_EQ(wide.At(32767), CRect(kMost - 65535, 0, kMost, 2));
  EXPECT_EQ(wide.At(65535), CRect(kMost - 65535, 2, kMost, 3));
  const platform::WindowGrid both{kMost, kMost, {0, 0, 1, 1}};
  EXPECT_EQ(both.Count(), std::int64_t{kMost} * kMost);
  EXPECT_EQ(both.At(both.Count() - 1), CRect(kMost - 1, kMost - 1, kMost, kMost));

  // A raster that is described only: it reads as zeros.
  for (const bool lies : {true, false}) {
    const std::string most = std::to_string(kMost);
    const std::string text = "<VRTDataset rasterXSize=\"" + (lies ? most : "1") + "\" rasterYSize=\"" +
                             (lies ? "1" : most) + "\"><VRTRasterBand dataType=\"Byte\" band=\"1\"/></VRTDataset>";
    CRasterSource source;
    ASSERT_TRUE(source.OpenSimple(CommonFun::Utf82U(text)));
    EXPECT_EQ(lies ? source.GetWidth() : source.GetHeight(), kMost);
    EXPECT_TRUE(source.GetRasterBand(0)->HasValidPixel());
  }
}

TEST_F(RasterStatistics, LeaveOutInfinities) {
  TestRaster raster = MakeRaster(5, 40, [](int x, int) { return x < 3 ? INFINITY : -INFINITY; });
  raster.type = PDT_FLOAT32;
  EXPECT_EQ(Compute(Open(raster)), (Figures{false, 0.0, 0.0, 0.0, 0.0}));
  EXPECT_FALSE(m_source.GetRasterBand(0)->HasValidPixel());
  raster.bands[0][7] = 1.0;
  raster.bands[0][199] = 3.0;
  EXPECT_EQ(Compute(Open(raster)), (Figures{true, 1.0, 3.0, 2.0, 1.0}));
  EXPECT_TRUE(m_source.GetRasterBand(0)->HasValidPixel());
  double minimum = 0.0;
  double maximum = 0.0;
  ASSERT_TRUE(m_source.GetRasterBand(0)->ComputeMinMax(&minimum, &maximum, false));
  EXPECT_EQ(minimum, 1.0);
  EXPECT_EQ(maximum, 3.0);
}

TEST_F(RasterStatistics, LeaveOutANoDataValueThatAFloatBandRounds) {
  TestRaster raster = MakeRaster(4, 1, [](int x, int) { return x; });
  raster.type = PDT_FLOAT32;
  raster.bands[0][0] = static_cast<double>(0.1F);
  raster.noData = 0.1;
  EXPECT_EQ(Compute(Open(raster)).minimum, 1.0);
}

TEST_F(RasterStatistics, WithoutAValidPixelAreZerosAndAFailure) {
  TestRaster raster = MakeRaster(20, 3, [](int, int) { return 4.0; });
  raster.noData = 4.0;
  EXPECT_EQ(Compute(Open(raster)), (Figures{false, 0.0, 0.0, 0.0, 0.0}));
  EXPECT_FALSE(m_source.GetRasterBand(0)->HasValidPixel());
  raster.bands[0][31] = 5.0;
  EXPECT_EQ(Compute(Open(raster)), (Figures{true, 5.0, 5.0, 5.0, 0.0}));
  EXPECT_TRUE(m_source.GetRasterBand(0)->HasValidPixel());
}

TEST_F(RasterStatistics, TwoRunsAgreeAndAnApproximationIsExact) {
  std::mt19937 random(11);
  std::normal_distribution<double> value(100.0, 30.0);
  CRasterSource& source = Open(MakeRaster(611, 203, [&](int, int) { return value(random); }));
  const Figures first = Compute(source);
  EXPECT_EQ(Compute(source), first);
  EXPECT_EQ(Compute(source, nullptr, true), first);
  double minimum = 0.0;
  double maximum = 0.0;
  EXPECT_TRUE(source.GetRasterBand(0)->ComputeMinMax(&minimum, &maximum, true));
  EXPECT_EQ(minimum, first.minimum);
  EXPECT_EQ(maximum, first.maximum);
}

TEST_F(RasterStatistics, OnlyAskTheReporterWhetherToGoOn) {
  CRasterSource& source = Open(MakeRaster(20, 3, [](int x, int) { return x; }));
  test_support::RecordingProgress progress;
  EXPECT_TRUE(Compute(source, &progress).ok);
  progress.RequestCancel();
  EXPECT_EQ(Compute(source, &progress), (Figures{false, 0.0, 0.0, 0.0, 0.0}));
  EXPECT_TRUE(progress.Calls().empty());
}

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

TEST_F(RasterStatistics, PrincipalComponentsOfTwoBandsByHand) {
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

TEST_F(RasterStatistics, PrincipalComponentsOfUnequalVariancesByHand) {
  // Uncorrelated: variances 4 and 1, so the rows are the axes themselves.
  const Components c = Principal(Open(Bands(4, 1, {{3, 7, 3, 7}, {1, 1, 3, 3}})));
  ASSERT_TRUE(c.ok);
  ExpectNear(c.eigenvalues, {4, 1}, 1e-14);
  ExpectNear(c.rows, {1, 0, 0, 1}, 1e-14);
}

TEST_F(RasterStatistics, ANegativelyCorrelatedPairHasAFirstRowWithoutScale) {
  // Deviations along (1,-1): the first row's sum is 0, so it keeps length 1 and its first entry is positive.
  const Components c = Principal(Open(Bands(4, 1, {{1, 2, 3, 4}, {4, 3, 2, 1}})));
  ASSERT_TRUE(c.ok);
  const double h = std::sqrt(0.5);
  ExpectNear(c.rows, {h, -h, h, h}, 1e-13);
  ExpectNear(c.eigenvalues, {2.5, 0.0}, 1e-13);
}

TEST_F(RasterStatistics, BandsThatAreMultiplesHaveOneComponent) {
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

TEST_F(RasterStatistics, PrincipalComponentsDiagonaliseTheCovariance) {
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

TEST_F(RasterStatistics, PrincipalComponentsUsePixelsValidInEveryBandInsideTheArea) {
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

TEST_F(RasterStatistics, PrincipalComponentsThatFailLeaveTheArraysAlone) {
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

TEST_F(RasterStatistics, PrincipalComponentsOfTwoRunsAgreeBitForBit) {
  CRasterSource& source = Open(RandomBands(33, 211, 97));
  const Components first = Principal(source);
  const Components second = Principal(source);
  EXPECT_EQ(first.rows, second.rows);
  EXPECT_EQ(first.means, second.means);
}

TEST_F(RasterStatistics, PrincipalComponentsAreTakenByAllThreads) {
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

TEST(RasterAlgorithm, RangesAreTheTypesOwn) {
  const auto range = [](PixelDataType type) {
    double maximum = 0.5;
    double minimum = 0.5;
    EXPECT_TRUE(CRasterAlgorithm::GetMaxMinVal(type, maximum, minimum));
    return std::pair(minimum, maximum);
  };
  EXPECT_EQ(range(PDT_UINT8), std::pair(0.0, 255.0));
  EXPECT_EQ(range(PDT_UINT16), std::pair(0.0, 65535.0));
  EXPECT_EQ(range(PDT_INT16), std::pair(-32768.0, 32767.0));
  EXPECT_EQ(range(PDT_UINT32), std::pair(0.0, 4294967295.0));
  EXPECT_EQ(range(PDT_INT32), std::pair(-2147483648.0, 2147483647.0));
  EXPECT_EQ(range(PDT_FLOAT32).second, 340282346638528859811704183484516925440.0);
  EXPECT_EQ(range(PDT_FLOAT64).first, -std::numeric_limits<double>::max());
  double maximum = 0.5;
  double minimum = 0.5;
  EXPECT_FALSE(CRasterAlgorithm::GetMaxMinVal(PDT_UNKNOWN, maximum, minimum));
  EXPECT_EQ(maximum, 0.5);
}

}  // namespace
