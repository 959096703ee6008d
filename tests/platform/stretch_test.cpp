#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "platform/processing/stretch_of_multi_band.h"
#include "platform/raster/raster_fault.h"
#include "platform/utility/common_fun.h"
#include "tests/support/scene.h"
#include "tests/support/test_raster.h"

namespace {

using reference::Image;
using test_support::FileExists;
using test_support::ReadImage;
using test_support::WriteImage;

constexpr wchar_t kStretchIn[] = L"/vsimem/stretch_in.tif";
constexpr wchar_t kStretchOut[] = L"/vsimem/stretch_out.tif";
constexpr wchar_t kArea[] = L"/vsimem/stretch_area.csv";

Image Row(const std::vector<std::vector<double>>& bands) {
  Image image;
  image.width = static_cast<int>(bands.front().size());
  image.height = 1;
  image.bands = bands;
  return image;
}

class Stretch : public testing::Test {
 protected:
  ~Stretch() override {
    platform::SetRasterFault({});
    for (const auto* file : {kStretchIn, kStretchOut, kArea}) CRasterSource::DeleteFileW(file);
  }

  static CStretchAlgorithmParam Param(const std::vector<double>& means, const std::vector<double>& deviations) {
    CStretchAlgorithmParam param;
    param.m_strInFile = kStretchIn;
    param.m_strOutFile = kStretchOut;
    param.m_eOutDataType = PDT_FLOAT64;
    param.m_pMeans = means.data();
    param.m_pStdDevs = deviations.data();
    return param;
  }
  static Image Run(CStretchAlgorithmParam param) {
    CStretchOfMultiBand stretch(&param);
    stretch.Process();
    EXPECT_EQ(stretch.GetLastErrorType(), 0);
    return ReadImage(kStretchOut);
  }
};

// 2 4 4 4 5 5 7 9: mean 5, population deviation 2.
const std::vector<double> kEight = {2, 4, 4, 4, 5, 5, 7, 9};

TEST_F(Stretch, BringsEachBandToItsTarget) {
  std::vector<double> doubled = kEight;
  for (double& v : doubled) v = 2.0 * v + 1.0;
  WriteImage(Row({kEight, doubled}), kStretchIn, PDT_UINT8);
  const std::vector<double> means = {100.0, 0.0};
  const std::vector<double> deviations = {10.0, 1.0};
  const Image out = Run(Param(means, deviations));
  ASSERT_EQ(out.bands.size(), 2u);
  const double normal[] = {-1.5, -0.5, -0.5, -0.5, 0.0, 0.0, 1.0, 2.0};
  for (std::size_t i = 0; i < 8; ++i) {
    EXPECT_NEAR(out.bands[0][i], 100.0 + 10.0 * normal[i], 1e-12);
    EXPECT_NEAR(out.bands[1][i], normal[i], 1e-12);
  }
}

TEST_F(Stretch, CanTakeItsMomentsRobustly) {
  // 0 to 1999 in two bands, in one of which two values lie far off.
  std::vector<double> ramp;
  for (int i = 0; i < 2000; ++i) ramp.push_back(i);
  std::vector<double> spoilt = ramp;
  spoilt[3] = 60000.0;
  spoilt[1700] = 65535.0;
  WriteImage(Row({ramp, spoilt}), kStretchIn, PDT_UINT16);
  const std::vector<double> means = {500.0, 500.0};
  const std::vector<double> deviations = {100.0, 100.0};
  CStretchAlgorithmParam param = Param(means, deviations);
  param.m_bRobust = true;
  CStretchOfMultiBand stretch(&param);
  stretch.Process();
  ASSERT_EQ(stretch.GetLastErrorType(), 0);
  EXPECT_EQ(stretch.GetOutliers(), 2);
  EXPECT_GT(stretch.GetWidening(), 3.0);
  const Image robust = ReadImage(kStretchOut);
  param.m_bRobust = false;
  const Image plain = Run(param);
  EXPECT_EQ(robust.bands[0], plain.bands[0]);
  for (std::size_t i = 10; i < 1700; ++i) ASSERT_NEAR(robust.bands[1][i], robust.bands[0][i], 3.0);
  EXPECT_GT(std::fabs(plain.bands[1][1600] - plain.bands[0][1600]), 50.0);
}

TEST_F(Stretch, IntegersRoundHalfUpAndClamp) {
  WriteImage(Row({kEight}), kStretchIn, PDT_UINT8);
  const std::vector<double> means = {1.0};
  const std::vector<double> deviations = {1.0};
  CStretchAlgorithmParam param = Param(means, deviations);
  param.m_eOutDataType = PDT_UINT8;
  // -0.5 0.5 0.5 0.5 1 1 2 3
  EXPECT_EQ(Run(param).bands[0], (std::vector<double>{0, 1, 1, 1, 1, 1, 2, 3}));
  const std::vector<double> low = {-1.0};
  param.m_pMeans = low.data();
  EXPECT_EQ(Run(param).bands[0], (std::vector<double>{0, 0, 0, 0, 0, 0, 0, 1}));
}

TEST_F(Stretch, BandWithoutSpreadBecomesItsTargetMean) {
  WriteImage(Row({{7, 7, 7}}), kStretchIn, PDT_UINT8);
  const std::vector<double> means = {42.25};
  const std::vector<double> deviations = {5.0};
  EXPECT_EQ(Run(Param(means, deviations)).bands[0], (std::vector<double>(3, 42.25)));
}

TEST_F(Stretch, SpreadCountsFromAHundredMillionthOn) {
  const std::vector<double> means = {42.0};
  const std::vector<double> deviations = {5.0};
  WriteImage(Row({{-0.9e-8, 0.9e-8}}), kStretchIn, PDT_FLOAT64);
  EXPECT_EQ(Run(Param(means, deviations)).bands[0], (std::vector<double>(2, 42.0)));
  WriteImage(Row({{-1.1e-8, 1.1e-8}}), kStretchIn, PDT_FLOAT64);
  const Image out = Run(Param(means, deviations));
  EXPECT_NEAR(out.bands[0][0], 37.0, 1e-9);
  EXPECT_NEAR(out.bands[0][1], 47.0, 1e-9);
}

TEST_F(Stretch, NoDataStaysAndDoesNotCount) {
  std::vector<double> values = kEight;
  values.insert(values.begin() + 3, 200.0);
  WriteImage(Row({values}), kStretchIn, PDT_UINT8, "", 200.0);
  const std::vector<double> means = {50.0};
  const std::vector<double> deviations = {2.0};
  const Image out = Run(Param(means, deviations));
  EXPECT_EQ(out.bands[0][3], 200.0);
  EXPECT_NEAR(out.bands[0][0], 47.0, 1e-12);
  EXPECT_NEAR(out.bands[0][8], 54.0, 1e-12);
  CRasterSource file;
  ASSERT_TRUE(file.OpenSimple(kStretchOut));
  EXPECT_TRUE(file.GetRasterBand(0)->IsNoData(200.0));
}

TEST_F(Stretch, NanStaysNanAndDoesNotCount) {
  std::vector<double> values = kEight;
  values.push_back(NAN);
  WriteImage(Row({values}), kStretchIn, PDT_FLOAT32);
  const std::vector<double> means = {50.0};
  const std::vector<double> deviations = {2.0};
  const Image out = Run(Param(means, deviations));
  EXPECT_NEAR(out.bands[0][0], 47.0, 1e-12);
  EXPECT_TRUE(std::isnan(out.bands[0][8]));
}

TEST_F(Stretch, ImageWithoutAValidPixelIsCopied) {
  WriteImage(Row({{3, 3, 3}}), kStretchIn, PDT_UINT8, "", 3.0);
  const std::vector<double> means = {50.0};
  const std::vector<double> deviations = {2.0};
  EXPECT_EQ(Run(Param(means, deviations)).bands[0], (std::vector<double>{3, 3, 3}));
}

TEST_F(Stretch, OwnStatisticsAsTargetsChangeNothing) {
  Image image;
  image.width = 101;
  image.height = 57;
  std::mt19937 random(3);
  std::uniform_int_distribution<int> value(0, 65535);
  image.bands.resize(3);
  for (auto& band : image.bands) {
    for (int i = 0; i < 101 * 57; ++i) band.push_back(value(random));
  }
  WriteImage(image, kStretchIn, PDT_UINT16);
  std::vector<double> means(3);
  std::vector<double> deviations(3);
  CRasterSource source;
  ASSERT_TRUE(source.OpenSimple(kStretchIn));
  for (std::size_t b = 0; b < 3; ++b) {
    double low = 0.0;
    double high = 0.0;
    source.GetRasterBand(static_cast<int>(b))->ComputeStatics(&low, &high, &means[b], &deviations[b], true, nullptr);
  }
  source.Close();
  CStretchAlgorithmParam param = Param(means, deviations);
  param.m_eOutDataType = PDT_UNKNOWN;
  EXPECT_EQ(Run(param).bands, image.bands);
}

TEST_F(Stretch, GreenMixComesFirst) {
  // Green 10 x kEight and near infrared a constant 100: mixed 9 x kEight + 10, mean 55, deviation 18.
  std::vector<double> green = kEight;
  for (double& v : green) v *= 10.0;
  const std::vector<double> infrared(8, 100.0);
  WriteImage(Row({kEight, green, kEight, infrared}), kStretchIn, PDT_UINT8);
  const std::vector<double> means = {55.0, 55.0, 55.0, 100.0};
  const std::vector<double> deviations = {18.0, 18.0, 18.0, 1.0};
  CStretchAlgorithmParam param = Param(means, deviations);
  param.m_bMakeGreen = true;
  for (const int bandCount : {4, 3, 2}) {
    param.m_nOutBandCount = bandCount;
    const Image out = Run(param);
    ASSERT_EQ(out.bands.size(), static_cast<std::size_t>(bandCount));
    for (std::size_t i = 0; i < 8; ++i) {
      EXPECT_NEAR(out.bands[0][i], 9.0 * kEight[i] + 10.0, 1e-9) << "blue is only stretched";
      EXPECT_NEAR(out.bands[1][i], 9.0 * kEight[i] + 10.0, 1e-9);
    }
  }
}

TEST_F(Stretch, GreenIsNotMixedUnlessWanted) {
  WriteImage(Row({{1, 2, 3}, {10, 20, 30}, {1, 2, 3}, {0, 0, 600}}), kStretchIn, PDT_FLOAT64);
  const std::vector<double> means = {0.0, 20.0, 0.0, 0.0};
  const std::vector<double> deviations = {1.0, std::sqrt(200.0 / 3.0), 1.0, 1.0};
  const Image out = Run(Param(means, deviations));
  for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(out.bands[1][i], 10.0 + 10.0 * static_cast<double>(i), 1e-9);
}

TEST_F(Stretch, GreenMixShowsInTheShapeOfGreen) {
  // Near infrared outweighs green in the last pixel, which a stretch alone could not bring about.
  WriteImage(Row({{1, 2, 3}, {10, 20, 30}, {1, 2, 3}, {0, 0, 600}}), kStretchIn, PDT_FLOAT64);
  // Mixed 9, 18, 87: mean 38, deviation sqrt((29^2 + 20^2 + 49^2) / 3).
  const double deviation = std::sqrt((29.0 * 29.0 + 20.0 * 20.0 + 49.0 * 49.0) / 3.0);
  const std::vector<double> means = {0.0, 0.0, 0.0, 0.0};
  const std::vector<double> deviations = {1.0, 1.0, 1.0, 1.0};
  CStretchAlgorithmParam param = Param(means, deviations);
  param.m_bMakeGreen = true;
  const Image out = Run(param);
  EXPECT_NEAR(out.bands[1][0], -29.0 / deviation, 1e-12);
  EXPECT_NEAR(out.bands[1][1], -20.0 / deviation, 1e-12);
  EXPECT_NEAR(out.bands[1][2], 49.0 / deviation, 1e-12);
  EXPECT_NEAR(out.bands[3][2], std::sqrt(2.0), 1e-12);
}

TEST_F(Stretch, StatisticsAreTakenInsideTheAreaAndOutsideIsZero) {
  Image image;
  image.width = 4;
  image.height = 4;
  const double transform[6] = {0.0, 1.0, 0.0, 4.0, 0.0, -1.0};
  std::copy_n(transform, 6, image.geoTransform);
  image.bands = {{2, 4, 4, 900, 4, 5, 900, 900, 5, 900, 900, 900, 900, 900, 900, 900}};
  // Inside: column + row <= 2, that is 2 4 4 4 5 5: mean 4, variance (4 + 1 + 1) / 6 = 1.
  WriteImage(image, kStretchIn, PDT_UINT16);
  test_support::WriteTriangle(kArea, {0, 4}, {3.5, 4}, {0, 0.5});
  const std::vector<double> means = {10.0};
  const std::vector<double> deviations = {3.0};
  CStretchAlgorithmParam param = Param(means, deviations);
  param.m_strAoiFile = kArea;
  const Image out = Run(param);
  const double expected[] = {4, 10, 10, 0, 10, 13, 0, 0, 13, 0, 0, 0, 0, 0, 0, 0};
  for (std::size_t i = 0; i < 16; ++i) EXPECT_NEAR(out.bands[0][i], expected[i], 1e-12) << i;
}

TEST_F(Stretch, RealSceneTakesItsTargetsOverItsValidPixels) {
  const std::wstring folder = test_support::RealSceneFolder("l8_swath_nodata");
  const std::wstring scene = folder + L"ms.tif";
  if (folder.empty()) GTEST_SKIP() << "no scenes beside the checkout";
  const std::vector<double> means = {400.0, 500.0, 600.0, 700.0};
  const std::vector<double> deviations = {40.0, 30.0, 20.0, 10.0};
  CStretchAlgorithmParam param = Param(means, deviations);
  param.m_strInFile = scene;
  const Image in = ReadImage(scene);
  const Image out = Run(param);
  ASSERT_EQ(out.bands.size(), 4u);
  for (std::size_t b = 0; b < 4; ++b) {
    long double count = 0;
    long double sum = 0;
    long double squares = 0;
    for (std::size_t i = 0; i < in.bands[b].size(); ++i) {
      if (in.bands[b][i] == 0.0) {
        EXPECT_EQ(out.bands[b][i], 0.0) << "no-data stays";
        continue;
      }
      const long double v = out.bands[b][i];
      count += 1;
      sum += v;
      squares += v * v;
    }
    EXPECT_NEAR(static_cast<double>(sum / count), means[b], 1e-8);
    EXPECT_NEAR(static_cast<double>(std::sqrt(squares / count - sum / count * (sum / count))), deviations[b], 1e-8);
  }
}

TEST_F(Stretch, MissingTargetsAreAnErrorState) {
  WriteImage(Row({kEight}), kStretchIn, PDT_UINT8);
  const std::vector<double> one = {1.0};
  for (const int missing : {0, 1}) {
    CStretchAlgorithmParam param = Param(one, one);
    (missing == 0 ? param.m_pMeans : param.m_pStdDevs) = nullptr;
    CStretchOfMultiBand stretch(&param);
    stretch.Process();
    EXPECT_NE(stretch.GetLastErrorType(), 0);
    EXPECT_FALSE(stretch.GetLastErrorMessage().empty());
    EXPECT_FALSE(FileExists(kStretchOut));
  }
  AlgorithmParam plain;
  plain.m_strInFile = kStretchIn;
  plain.m_strOutFile = kStretchOut;
  CStretchOfMultiBand stretch(&plain);
  stretch.Process();
  EXPECT_NE(stretch.GetLastErrorType(), 0);
}

TEST_F(Stretch, MoreBandsThanTheImageHasFailLikeARead) {
  WriteImage(Row({kEight}), kStretchIn, PDT_UINT8);
  const std::vector<double> one = {1.0};
  CStretchAlgorithmParam param = Param(one, one);
  param.m_nOutBandCount = 2;
  CStretchOfMultiBand stretch(&param);
  stretch.Process();
  EXPECT_EQ(stretch.GetLastErrorType(), 2);
}

}  // namespace
