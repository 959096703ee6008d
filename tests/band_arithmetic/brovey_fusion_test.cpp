#include "band_arithmetic/brovey_fusion.h"

#include <gtest/gtest.h>

#include "platform/raster/reproject.h"
#include "tests/support/scene.h"

namespace {

using test_support::ExpectEqual;
using test_support::ReadImage;
using test_support::Scene;
using test_support::SceneOptions;

void ExpectSuccess(const CFusion& fusion) {
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  EXPECT_TRUE(fusion.GetLastErrorMessage().empty());
}

/// Runs the scene and holds the output against the per-pixel definition.
void ExpectDefinition(const Scene& scene, FusionParam param, reference::Run run) {
  CBroveyFusion fusion(&param);
  fusion.Process();
  ExpectSuccess(fusion);
  run.arithmetic = [n = run.outBandCount](const reference::Pixel& pixel) { return reference::Brovey(pixel, n); };
  ExpectEqual(ReadImage(scene.outFile), reference::Fuse(run));
}

/// A scene of one pan row over one multispectral sample row, so that every resampling gives the samples themselves.
struct OneRow {
  OneRow(std::vector<double> pan, std::vector<std::vector<double>> bands) {
    reference::Image panImage;
    panImage.width = static_cast<int>(pan.size());
    panImage.height = 1;
    panImage.bands = {std::move(pan)};
    reference::Image msImage = panImage;
    msImage.bands = std::move(bands);
    test_support::WriteImage(panImage, L"/vsimem/row_pan.tif", PDT_FLOAT64);
    test_support::WriteImage(msImage, L"/vsimem/row_ms.tif", PDT_FLOAT64);
  }
  static std::vector<std::vector<double>> Fuse(PixelDataType type = PDT_FLOAT64) {
    FusionParam param;
    param.m_strPanFile = L"/vsimem/row_pan.tif";
    param.m_strMSFile = L"/vsimem/row_ms.tif";
    param.m_strOutFile = L"/vsimem/row_out.tif";
    param.m_eResampleType = RT_NEAREST;
    param.m_eOutDataType = type;
    CBroveyFusion fusion(&param);
    fusion.Process();
    ExpectSuccess(fusion);
    return ReadImage(param.m_strOutFile).bands;
  }
};

TEST(BroveyFusion, SharesThePanValueInTheRatioOfTheBands) {
  const OneRow row({120.0, 60.0}, {{10.0, 1.0}, {20.0, 1.0}, {30.0, 1.0}});
  const auto out = OneRow::Fuse();
  EXPECT_EQ(out[0][0], 20.0);
  EXPECT_EQ(out[1][0], 40.0);
  EXPECT_EQ(out[2][0], 60.0);
  for (const auto& band : out) EXPECT_EQ(band[1], 20.0);
}

TEST(BroveyFusion, DarkMultispectralPixelBecomesGreyAtThePanIntensity) {
  const OneRow row({90.0, 90.0, 90.0}, {{0.0, 5.0, 1e-9}, {0.0, -5.0, 1e-9}, {0.0, 0.0, 1e-9}});
  const auto out = OneRow::Fuse();
  for (const auto& band : out) {
    EXPECT_EQ(band[0], 30.0);
    EXPECT_EQ(band[1], 30.0) << "bands that cancel";
    EXPECT_EQ(band[2], 30.0) << "a sum below the limit";
  }
}

TEST(BroveyFusion, ResultIsClampedThenTruncatedToTheOutputType) {
  const OneRow row({1000.0, 7.0, -50.0}, {{3.0, 1.0, 1.0}, {1.0, 1.0, 1.0}});
  const auto bytes = OneRow::Fuse(PDT_UINT8);
  EXPECT_EQ(bytes[0][0], 255.0);
  EXPECT_EQ(bytes[1][0], 250.0);
  EXPECT_EQ(bytes[0][1], 3.0) << "3.5 is cut, not rounded";
  EXPECT_EQ(bytes[0][2], 0.0);
  const auto shorts = OneRow::Fuse(PDT_INT16);
  EXPECT_EQ(shorts[0][0], 750.0);
  EXPECT_EQ(shorts[0][2], -25.0);
}

class BroveyDefinition : public testing::TestWithParam<std::tuple<int, int>> {
 protected:
  FusionParam Param(const Scene& scene) const {
    FusionParam param = scene.Param(static_cast<PixelDataType>(std::get<0>(GetParam())));
    param.m_eResampleType = static_cast<ResampleType>(std::get<1>(GetParam()));
    return param;
  }
  unsigned Seed() const { return static_cast<unsigned>(std::get<0>(GetParam()) * 10 + std::get<1>(GetParam())); }
};

TEST_P(BroveyDefinition, HoldsForRatiosAndOffsets) {
  const double ratios[] = {1.0, 2.0, 3.0, 4.0, 8.0, 2.37};
  for (std::size_t i = 0; i < std::size(ratios); ++i) {
    SceneOptions options;
    options.ratio = ratios[i];
    options.msBands = 2 + static_cast<int>(i % 4);
    options.low = -200.0;
    options.panType = PDT_INT16;
    options.msType = PDT_FLOAT64;
    const Scene scene(Seed() + static_cast<unsigned>(i), options);
    const FusionParam param = Param(scene);
    ExpectDefinition(scene, param, scene.Reference(param));
  }
}

TEST_P(BroveyDefinition, HoldsForChosenAreaAndBands) {
  SceneOptions options;
  options.msBands = 5;
  const Scene scene(Seed(), options);
  FusionParam param = Param(scene);
  param.m_rcProcess = {5, 3, 30, 27};
  param.m_vecMSBands = {4, 0, 2};
  ExpectDefinition(scene, param, scene.Reference(param));
}

TEST_P(BroveyDefinition, HoldsForPartialOverlap) {
  SceneOptions options;
  options.msShiftX = 7.0;
  options.msShiftY = 5.0;
  options.msWidth = 9;
  options.msHeight = 8;
  const Scene scene(Seed(), options);
  const FusionParam param = Param(scene);
  reference::Run run = scene.Reference(param);
  run.process = {7, 5, 25, 21};
  ExpectDefinition(scene, param, run);
}

TEST_P(BroveyDefinition, HoldsOverSeveralBlocks) {
  SceneOptions options;
  options.panWidth = 19;
  options.panHeight = 1300;
  options.msBands = 2;
  const Scene scene(Seed(), options);
  const FusionParam param = Param(scene);
  ExpectDefinition(scene, param, scene.Reference(param));
}

TEST_P(BroveyDefinition, HoldsForSouthUpImages) {
  SceneOptions options;
  options.southUp = true;
  const Scene scene(Seed(), options);
  const FusionParam param = Param(scene);
  ExpectDefinition(scene, param, scene.Reference(param));
}

TEST_P(BroveyDefinition, NarrowsTheRangeWhereBothImagesDeclareNoData) {
  SceneOptions options;
  options.panNoData = 0.0;
  options.msNoData = 0.0;
  options.low = 0.0;
  options.high = 3.0;
  const Scene scene(Seed(), options);
  const FusionParam param = Param(scene);
  reference::Run run = scene.Reference(param);
  run.conversion.addOne = true;
  ExpectDefinition(scene, param, run);
}

std::string CaseName(const testing::TestParamInfo<std::tuple<int, int>>& info) {
  static const char* kTypes[] = {"", "uint8", "uint16", "int16", "uint32", "int32", "float32", "float64"};
  static const char* kResampling[] = {"nearest", "bilinear", "bicubic"};
  return std::string(kTypes[std::get<0>(info.param)]) + "_" + kResampling[std::get<1>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(AllTypes, BroveyDefinition, testing::Combine(testing::Range(1, 8), testing::Range(0, 3)),
                         CaseName);

TEST(BroveyFusion, PixelsOutsideTheAreaOfInterestAreZeroWhateverTheAddOneSwitch) {
  SceneOptions options;
  options.panNoData = 0.0;
  options.msNoData = 0.0;
  const Scene scene(21, options);
  FusionParam param = scene.Param(PDT_UINT16);
  param.m_strAoiFile = L"/vsimem/brovey_area.csv";
  // A triangle with its right angle at pan pixel (5, 4), legs of 20 pixels; no coordinate system, so map units.
  const double x = 440000.0 + 5 * 10.0;
  const double y = 4470000.0 - 4 * 10.0;
  test_support::WriteTriangle(param.m_strAoiFile, {x, y}, {x + 200.0, y}, {x, y - 200.0});
  reference::Run run = scene.Reference(param);
  run.process = {5, 4, 25, 24};
  run.conversion.addOne = true;
  run.inside = [](int column, int row) { return column - 5 + 0.5 + row - 4 + 0.5 < 20.0; };
  ExpectDefinition(scene, param, run);
}

TEST(BroveyFusion, ReprojectedPositionsStartFromTheWholeNumberPixel) {
  SceneOptions options;
  options.panWkt = test_support::UtmWkt();
  Scene scene(22, options);
  // The same ground in degrees, a little larger than the pan image on every side.
  reference::Image& ms = scene.ms;
  ms.width = 24;
  ms.height = 20;
  const double degrees[6] = {-3.70810, 2.4e-4, 0.0, 40.37860, 0.0, -1.9e-4};
  std::copy_n(degrees, 6, ms.geoTransform);
  std::mt19937 random(5);
  for (auto& band : ms.bands) {
    band.assign(static_cast<std::size_t>(ms.width) * 20, 0.0);
    for (double& v : band) v = 1.0 + static_cast<double>(random() % 900);
  }
  test_support::WriteImage(ms, scene.msFile, PDT_UINT16, test_support::Wgs84Wkt());

  for (int type = 0; type < 3; ++type) {
    FusionParam param = scene.Param(PDT_FLOAT64);
    param.m_eResampleType = static_cast<ResampleType>(type);
    CRasterSource msSource;
    CRasterSource panSource;
    ASSERT_TRUE(msSource.OpenSimple(scene.msFile));
    ASSERT_TRUE(panSource.OpenSimple(scene.panFile));
    const std::unique_ptr<CReproject> reproject(
        CReproject::Create(&msSource, panSource.GetSpatialReferenceWKT(), nullptr, nullptr));
    ASSERT_TRUE(reproject);
    CBroveyFusion fusion(&param);
    fusion.Process();
    ExpectSuccess(fusion);
    const reference::Image out = ReadImage(scene.outFile);
    ASSERT_GT(out.width * out.height, 500);

    reference::Run run = scene.Reference(param);
    const int left = static_cast<int>(std::lround((out.geoTransform[0] - scene.pan.geoTransform[0]) / 10.0));
    const int top = static_cast<int>(std::lround((scene.pan.geoTransform[3] - out.geoTransform[3]) / 10.0));
    run.process = {left, top, left + out.width, top + out.height};
    reproject->CreateGrid(panSource.ImageToGround(run.process), 0.0, 0.0, 3);
    run.reproject = [&](double gx, double gy) {
      reference::Position p{};
      reproject->GetSrcPos(&gx, &gy, &p.x, &p.y, 1);
      return p;
    };
    run.reprojectedRect = [&](double l, double t, double r, double b) {
      CRect rect;
      EXPECT_TRUE(reproject->GetInImgEnveFromGeoOut(CBoundingBox(l, t, r, b), rect, 0.0, 0.0));
      return rect;
    };
    run.arithmetic = [](const reference::Pixel& pixel) { return reference::Brovey(pixel, 3); };
    ExpectEqual(out, reference::Fuse(run));
  }
}

TEST(BroveyFusion, UnknownOutputTypeYieldsNoBlock) {
  class Exposed : public CBroveyFusion {
   public:
    Exposed() : CBroveyFusion(nullptr) {}
  } fusion;
  CRect rect(0, 0, 1, 1);
  double pan[] = {1.0};
  double band[] = {1.0, 0.0, 0.0, 0.0};
  double* bands[] = {band};
  for (const int type : {0, 8, -1}) {
    EXPECT_EQ(fusion.AlgorithmProcess(pan, &rect, bands, 1, &rect, static_cast<PixelDataType>(type), 1, &rect, nullptr),
              nullptr);
  }
}

TEST(BroveyFusion, CopiesAreIndependentRuns) {
  const Scene scene(23);
  FusionParam param = scene.Param(PDT_FLOAT64);
  param.m_bSpectralMatch = true;
  CBroveyFusion first(&param);
  first.Process();
  ExpectSuccess(first);
  const auto before = ReadImage(scene.outFile);
  {
    CBroveyFusion copy(first);
    CBroveyFusion assigned(nullptr);
    assigned = copy;
    assigned.Process();
    ExpectSuccess(assigned);
  }
  ExpectEqual(ReadImage(scene.outFile), before.bands);
}

}  // namespace
