#include "band_arithmetic/brovey_fusion.h"

#include <gtest/gtest.h>

#include "tests/support/method_sweep.h"

namespace {

using test_support::Scene;
using test_support::SceneOptions;

reference::Run BroveyReference(const Scene& scene, const FusionParam& param) {
  reference::Run run = scene.Reference(param);
  run.arithmetic = [n = run.outBandCount](const reference::Pixel& pixel) { return reference::Brovey(pixel, n); };
  return run;
}

TEST(BroveyFusion, SharesThePanValueInTheRatioOfTheBands) {
  const test_support::OneRow row({120.0, 60.0}, {{10.0, 1.0}, {20.0, 1.0}, {30.0, 1.0}});
  const auto out = row.Fuse<CBroveyFusion>();
  EXPECT_EQ(out[0][0], 20.0);
  EXPECT_EQ(out[1][0], 40.0);
  EXPECT_EQ(out[2][0], 60.0);
  for (const auto& band : out) EXPECT_EQ(band[1], 20.0);
}

TEST(BroveyFusion, DarkMultispectralPixelBecomesGreyAtThePanIntensity) {
  const test_support::OneRow row({90.0, 90.0, 90.0}, {{0.0, 5.0, 1e-9}, {0.0, -5.0, 1e-9}, {0.0, 0.0, 1e-9}});
  const auto out = row.Fuse<CBroveyFusion>();
  for (const auto& band : out) {
    EXPECT_EQ(band[0], 30.0);
    EXPECT_EQ(band[1], 30.0) << "bands that cancel";
    EXPECT_EQ(band[2], 30.0) << "a sum below the limit";
  }
}

TEST(BroveyFusion, SumsBelowTheLimitOnEitherSideOfZeroAreNothing) {
  const test_support::OneRow row({90.0, 90.0, 90.0, 90.0, 90.0},
                                 {{9.9e-9, 1e-8, 1.01e-8, -9.9e-9, -1.01e-8}, {0.0, 0.0, 0.0, 0.0, 0.0}});
  const auto out = row.Fuse<CBroveyFusion>();
  EXPECT_EQ(out[0], (std::vector<double>{45.0, 1e-8 * 90.0 / 1e-8, 1.01e-8 * 90.0 / 1.01e-8, 45.0,
                                         -1.01e-8 * 90.0 / -1.01e-8}));
  EXPECT_EQ(out[1], (std::vector<double>{45.0, 0.0, 0.0, 45.0, 0.0}));
}

TEST(BroveyFusion, TheSumTakesAsManyBandsAsTheOutputHas) {
  const test_support::OneRow row({120.0, 90.0}, {{10.0, 0.0}, {20.0, 0.0}, {30.0, 7.0}});
  FusionParam param = row.Param();
  param.m_eOutDataType = PDT_FLOAT64;
  param.m_nOutBandCount = 2;
  CBroveyFusion(&param).Process();
  EXPECT_EQ(test_support::ReadImage(param.m_strOutFile).bands,
            (std::vector<std::vector<double>>{{40.0, 45.0}, {80.0, 45.0}}));
  // A band beyond the multispectral ones holds nothing.
  param.m_nOutBandCount = 4;
  CBroveyFusion(&param).Process();
  EXPECT_EQ(test_support::ReadImage(param.m_strOutFile).bands,
            (std::vector<std::vector<double>>{{20.0, 0.0}, {40.0, 0.0}, {60.0, 90.0}, {0.0, 0.0}}));
}

TEST(BroveyFusion, PositionsStartAtThePanRaster) { test_support::ExpectPositionStart<CBroveyFusion>(BroveyReference); }

TEST(BroveyFusion, ResultIsClampedThenTruncatedToTheOutputType) {
  const test_support::OneRow row({1000.0, 7.0, -50.0}, {{3.0, 1.0, 1.0}, {1.0, 1.0, 1.0}});
  const auto bytes = row.Fuse<CBroveyFusion>(PDT_UINT8);
  EXPECT_EQ(bytes[0][0], 255.0);
  EXPECT_EQ(bytes[1][0], 250.0);
  EXPECT_EQ(bytes[0][1], 3.0) << "3.5 is cut, not rounded";
  EXPECT_EQ(bytes[0][2], 0.0);
  const auto shorts = row.Fuse<CBroveyFusion>(PDT_INT16);
  EXPECT_EQ(shorts[0][0], 750.0);
  EXPECT_EQ(shorts[0][2], -25.0);
}

class BroveyDefinition : public test_support::MethodSweep {};

TEST_P(BroveyDefinition, HoldsForRatiosOffsetsAreasAndMasks) { Sweep<CBroveyFusion>(BroveyReference); }

TEST_P(BroveyDefinition, HoldsForChosenAreaAndBands) {
  SceneOptions options;
  options.msBands = 5;
  const Scene scene(Seed(), options);
  FusionParam param = Param(scene);
  param.m_rcProcess = {5, 3, 30, 27};
  param.m_vecMSBands = {4, 0, 2};
  test_support::ExpectDefinition<CBroveyFusion>(scene, param, BroveyReference(scene, param));
}

TEST_P(BroveyDefinition, HoldsForPartialOverlap) {
  SceneOptions options;
  options.msShiftX = 7.0;
  options.msShiftY = 5.0;
  options.msWidth = 9;
  options.msHeight = 8;
  const Scene scene(Seed(), options);
  const FusionParam param = Param(scene);
  reference::Run run = BroveyReference(scene, param);
  run.process = {7, 5, 25, 21};
  test_support::ExpectDefinition<CBroveyFusion>(scene, param, run);
}

TEST_P(BroveyDefinition, HoldsForSouthUpImages) {
  SceneOptions options;
  options.southUp = true;
  const Scene scene(Seed(), options);
  const FusionParam param = Param(scene);
  test_support::ExpectDefinition<CBroveyFusion>(scene, param, BroveyReference(scene, param));
}

TEST_P(BroveyDefinition, NarrowsTheRangeWhereBothImagesDeclareNoData) {
  SceneOptions options;
  options.panNoData = 0.0;
  options.msNoData = 0.0;
  options.low = 0.0;
  options.high = 3.0;
  const Scene scene(Seed(), options);
  const FusionParam param = Param(scene);
  reference::Run run = BroveyReference(scene, param);
  run.conversion.addOne = true;
  test_support::ExpectDefinition<CBroveyFusion>(scene, param, run);
}

INSTANTIATE_TEST_SUITE_P(AllTypes, BroveyDefinition, test_support::AllTypesAndResamplings(),
                         test_support::SweepCaseName);

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
  reference::Run run = BroveyReference(scene, param);
  run.process = {5, 4, 25, 24};
  run.conversion.addOne = true;
  run.inside = [](int column, int row) { return column - 5 + 0.5 + row - 4 + 0.5 < 20.0; };
  test_support::ExpectDefinition<CBroveyFusion>(scene, param, run);
}

TEST(BroveyFusion, CommonRulesOfAMethodHold) { test_support::ExpectCommonRules<CBroveyFusion>(); }

}  // namespace
