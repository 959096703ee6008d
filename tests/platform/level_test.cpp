#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "platform/processing/outo_adjust_level.h"
#include "platform/statistics/order_statistics.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"

namespace {

using platform::OrderStatistics;
using reference::Image;
using test_support::ReadImage;
using test_support::WriteImage;

constexpr wchar_t kLevelIn[] = L"/vsimem/level_in.tif";
constexpr wchar_t kLevelOut[] = L"/vsimem/level_out.tif";
constexpr wchar_t kArea[] = L"/vsimem/level_area.csv";
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

void Select(OrderStatistics& order, PixelDataType type, const std::vector<double>& values, double noData = kNan) {
  for (int pass = 0; pass < OrderStatistics::PassCount(type); ++pass) {
    // In two parts, as a stream comes.
    const std::size_t half = values.size() / 2;
    order.AddRow(values.data(), nullptr, static_cast<int>(half), noData);
    order.AddRow(values.data() + half, nullptr, static_cast<int>(values.size() - half), noData);
    order.EndPass();
  }
}

TEST(OrderStatistics, EqualsTheSortedValuesForEveryType) {
  std::mt19937_64 random(11);
  const std::pair<PixelDataType, std::pair<double, double>> types[] = {{PDT_UINT8, {0, 255}},
                                                                       {PDT_UINT16, {0, 65535}},
                                                                       {PDT_INT16, {-32768, 32767}},
                                                                       {PDT_UINT32, {0, 4294967295.0}},
                                                                       {PDT_INT32, {-2147483648.0, 2147483647.0}},
                                                                       {PDT_FLOAT32, {-0x1p100, 0x1p100}},
                                                                       {PDT_FLOAT64, {-1e300, 1e300}}};
  for (const auto& [type, range] : types) {
    for (const double scale : {1.0, 1e-4}) {
      std::uniform_real_distribution<double> value(range.first * scale, range.second * scale);
      std::vector<double> values = {range.first, range.second};
      for (int i = 0; i < 5000; ++i) {
        const double v = value(random);
        values.push_back(type == PDT_FLOAT64   ? v
                         : type == PDT_FLOAT32 ? static_cast<double>(static_cast<float>(v))
                                               : std::floor(v));
      }
      std::vector<double> sorted = values;
      std::sort(sorted.begin(), sorted.end());
      for (const double ratio : {0.0, 0.0001, 0.01, 0.25, 0.4999}) {
        OrderStatistics order(type, ratio);
        Select(order, type, values);
        const auto cut = static_cast<std::size_t>(ratio * static_cast<double>(values.size()));
        EXPECT_EQ(order.Count(), static_cast<std::int64_t>(values.size()));
        EXPECT_EQ(order.Low(), sorted[cut]) << "type " << type << " ratio " << ratio;
        EXPECT_EQ(order.High(), sorted[sorted.size() - 1 - cut]) << "type " << type << " ratio " << ratio;
      }
    }
  }
}

TEST(OrderStatistics, FloatsOrderAcrossZero) {
  const double far = std::numeric_limits<double>::max();
  const std::vector<double> values = {0.5, -0.5, far, -far, 1e-310, -1e-310, 3.0};
  for (const double ratio : {0.0, 0.2, 0.3}) {
    OrderStatistics order(PDT_FLOAT64, ratio);
    Select(order, PDT_FLOAT64, values);
    const double lows[] = {-far, -0.5, -1e-310};
    const double highs[] = {far, 3.0, 0.5};
    const int cut = static_cast<int>(ratio * 7.0);
    EXPECT_EQ(order.Low(), lows[cut]);
    EXPECT_EQ(order.High(), highs[cut]);
  }
}

TEST(OrderStatistics, NanInfinityNoDataAndMaskedValuesDoNotCount) {
  OrderStatistics order(PDT_FLOAT32, 0.0);
  const double infinity = std::numeric_limits<double>::infinity();
  const double values[] = {kNan, -9.0, 4.0, 8.0, 100.0, infinity, -infinity};
  const unsigned char inside[] = {1, 1, 1, 1, 0, 1, 1};
  for (int pass = 0; pass < 2; ++pass) {
    order.AddRow(values, inside, 7, -9.0);
    order.EndPass();
  }
  EXPECT_EQ(order.Count(), 2);
  EXPECT_EQ(order.Low(), 4.0);
  EXPECT_EQ(order.High(), 8.0);
}

TEST(OrderStatistics, NothingGivesZero) {
  OrderStatistics order(PDT_FLOAT64, 0.1);
  Select(order, PDT_FLOAT64, {kNan, kNan});
  EXPECT_EQ(order.Count(), 0);
  EXPECT_EQ(order.Low(), 0.0);
  EXPECT_EQ(order.High(), 0.0);
}

class Level : public testing::Test {
 protected:
  ~Level() override {
    for (const auto* file : {kLevelIn, kLevelOut, kArea}) CRasterSource::DeleteFileW(file);
  }

  static Image Row(const std::vector<std::vector<double>>& bands) {
    Image image;
    image.width = static_cast<int>(bands.front().size());
    image.height = 1;
    image.bands = bands;
    return image;
  }
  static OutoAdjustLevelParam Param(double ratio, PixelDataType type) {
    OutoAdjustLevelParam param;
    param.m_strInFile = kLevelIn;
    param.m_strOutFile = kLevelOut;
    param.m_dRatio = ratio;
    param.m_eOutDataType = type;
    return param;
  }
  static Image Run(OutoAdjustLevelParam param) {
    COutoAdjustLevel level(&param);
    level.CSingleBandIOProcess::Process();
    EXPECT_EQ(level.GetLastErrorType(), 0);
    return ReadImage(kLevelOut);
  }
};

TEST_F(Level, RecordStartsWithOneHundredthAndModeZero) {
  const OutoAdjustLevelParam param;
  EXPECT_EQ(param.m_dRatio, 0.01);
  EXPECT_EQ(param.m_nMode, 0);
}

TEST_F(Level, CutsTheShareAndMapsTheRestToTheRange) {
  // Ten values, a tenth cut: 20 to 100 become 0 to 255.
  WriteImage(Row({{60, 1000, 20, 30, 40, 1, 80, 50, 100, 90}}), kLevelIn, PDT_UINT16);
  const std::vector<double> expected = {128, 255, 0, 32, 64, 0, 191, 96, 255, 223};
  EXPECT_EQ(Run(Param(0.1, PDT_UINT8)).bands[0], expected);
}

TEST_F(Level, WithoutACutTheWholeRangeIsMapped) {
  WriteImage(Row({{10, 20, 30}, {5, 105, 55}}), kLevelIn, PDT_UINT8);
  const Image out = Run(Param(0.0, PDT_INT16));
  EXPECT_EQ(out.bands[0], (std::vector<double>{-32768, 0, 32767})) << "-0.5 rounds up";
  EXPECT_EQ(out.bands[1], (std::vector<double>{-32768, 32767, 0}));
}

TEST_F(Level, FloatsGoFromZeroToOne) {
  WriteImage(Row({{-4, 0, 4, 12}}), kLevelIn, PDT_FLOAT32);
  EXPECT_EQ(Run(Param(0.0, PDT_FLOAT32)).bands[0], (std::vector<double>{0, 0.25, 0.5, 1}));
}

TEST_F(Level, CutCountIsRoundedDown) {
  // 0.34 x 5 = 1.7: one value at each end.
  WriteImage(Row({{0, 10, 20, 30, 1000}}), kLevelIn, PDT_UINT16);
  EXPECT_EQ(Run(Param(0.34, PDT_FLOAT64)).bands[0], (std::vector<double>{0, 0, 0.5, 1, 1}));
}

TEST_F(Level, NoDataStaysAndDoesNotCount) {
  WriteImage(Row({{0, 10, 20, 30, 0}}), kLevelIn, PDT_UINT16, "", 0.0);
  EXPECT_EQ(Run(Param(0.0, PDT_UINT8)).bands[0], (std::vector<double>{0, 0, 128, 255, 0}));
  CRasterSource file;
  ASSERT_TRUE(file.OpenSimple(kLevelOut));
  EXPECT_TRUE(file.GetRasterBand(0)->IsNoData(0.0));
  file.Close();
  // Above the others, where a level would make it the largest value.
  WriteImage(Row({{0, 10, 20, 200, 30}}), kLevelIn, PDT_UINT16, "", 200.0);
  EXPECT_EQ(Run(Param(0.0, PDT_UINT8)).bands[0], (std::vector<double>{0, 85, 170, 200, 255}));
}

TEST_F(Level, ConstantBandBecomesTheLowEnd) {
  WriteImage(Row({{7, 7, 7}}), kLevelIn, PDT_UINT8);
  EXPECT_EQ(Run(Param(0.01, PDT_UINT8)).bands[0], (std::vector<double>{0, 0, 0}));
}

TEST_F(Level, WidestDoublesStayInRangeAndInfinitiesGoToItsEnds) {
  const double far = std::numeric_limits<double>::max();
  WriteImage(Row({{-far, 0, far}}), kLevelIn, PDT_FLOAT64);
  EXPECT_EQ(Run(Param(0.0, PDT_FLOAT64)).bands[0], (std::vector<double>{0, 0.5, 1}));
  const double infinity = std::numeric_limits<double>::infinity();
  WriteImage(Row({{-infinity, 1, 11, infinity, kNan}}), kLevelIn, PDT_FLOAT64);
  const Image out = Run(Param(0.0, PDT_UINT8));
  EXPECT_EQ(out.bands[0], (std::vector<double>{0, 0, 255, 255, 0}));
}

TEST_F(Level, OnlyTheAreaCountsAndOutsideIsZero) {
  Image image;
  image.width = 3;
  image.height = 2;
  const double transform[6] = {0.0, 1.0, 0.0, 2.0, 0.0, -1.0};
  std::copy_n(transform, 6, image.geoTransform);
  image.bands = {{10, 20, 500, 30, 500, 500}};
  WriteImage(image, kLevelIn, PDT_UINT16);
  test_support::WriteTriangle(kArea, {0, 2}, {2.5, 2}, {0, -0.5});
  OutoAdjustLevelParam param = Param(0.0, PDT_FLOAT64);
  param.m_strAoiFile = kArea;
  EXPECT_EQ(Run(param).bands[0], (std::vector<double>{0, 0.5, 0, 1, 0, 0}));
}

TEST_F(Level, EveryPassIsAStepOfTheProgress) {
  WriteImage(Row({{1, 2, 3}, {4, 5, 6}}), kLevelIn, PDT_FLOAT64);
  OutoAdjustLevelParam param = Param(0.0, PDT_UINT8);
  test_support::RecordingProgress progress;
  COutoAdjustLevel level(&param);
  level.SetProgress(&progress);
  level.Process();
  // Four passes over each band of doubles and the one that writes.
  EXPECT_EQ(progress.Calls()[2], L"Start 正在进行... 9");
  EXPECT_EQ(progress.Calls()[progress.Calls().size() - 2], L"Step 9 处理中...");
}

TEST_F(Level, ParametersThatMakeNoSenseAreRefused) {
  WriteImage(Row({{1, 2, 3}}), kLevelIn, PDT_UINT8);
  std::vector<OutoAdjustLevelParam> refused;
  for (const double ratio : {-0.1, 0.5, 2.0, kNan}) refused.push_back(Param(ratio, PDT_UINT8));
  refused.push_back(Param(0.1, PDT_UINT8));
  refused.back().m_nMode = 1;
  for (OutoAdjustLevelParam& param : refused) {
    COutoAdjustLevel level(&param);
    level.Process();
    EXPECT_NE(level.GetLastErrorType(), 0);
    EXPECT_FALSE(level.GetLastErrorMessage().empty());
    EXPECT_FALSE(test_support::FileExists(kLevelOut));
  }
}

}  // namespace
