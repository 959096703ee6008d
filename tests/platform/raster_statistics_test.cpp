// Band statistics.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "platform/raster/raster_algorithm.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/read_window.h"
#include "platform/utility/common_fun.h"
#include "tests/platform/opened_raster.h"
#include "tests/support/numbers.h"
#include "tests/support/recording_progress.h"
#include "tests/support/test_raster.h"

namespace {

using test_support::MakeRaster;
using test_support::TestRaster;

using test_support::kNaN;

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

class RasterStatistics : public OpenedRaster {
 protected:
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
    const std::string text = R"(<VRTDataset rasterXSize=")" + (lies ? most : "1") + R"(" rasterYSize=")" +
                             (lies ? "1" : most) + R"("><VRTRasterBand dataType="Byte" band="1"/></VRTDataset>)";
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
