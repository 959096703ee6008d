#include "highpass/simple_pan_sharpening_fusion.h"

#include <gtest/gtest.h>
#include <omp.h>

#include "tests/highpass/highpass_methods.h"

namespace {

using highpass_test::SecondImage;
using test_support::ReadImage;
using test_support::Scene;
using test_support::SceneOptions;
using test_support::WriteImage;

using Sharpening = highpass_test::WithSecond<CSimplePanSharpeningFusion>;

reference::Run Reference(const Scene& scene, const FusionParam& param) {
  static reference::Image smooth;
  smooth = SecondImage(scene.pan);
  reference::Run run = scene.Reference(param);
  run.reprojectedOffset = 0.5;
  run.detail = &smooth;
  run.arithmetic = [](const reference::Pixel& pixel) {
    const double k = std::fabs(pixel.detail) > 1e-8 ? pixel.pan / pixel.detail : 1.0;
    std::vector<double> out;
    for (const double ms : pixel.ms) out.push_back(k * ms + pixel.pan);
    return out;
  };
  return run;
}

class SharpeningDefinition : public test_support::MethodSweep {};

TEST_P(SharpeningDefinition, HoldsForRatiosOffsetsAreasAndMasks) { Sweep<Sharpening>(Reference); }

INSTANTIATE_TEST_SUITE_P(AllTypes, SharpeningDefinition, test_support::AllTypesAndResamplings(),
                         test_support::SweepCaseName);

std::vector<std::vector<double>> Fuse(const std::vector<double>& pan, const std::vector<double>& smooth,
                                      const std::vector<std::vector<double>>& bands) {
  const test_support::OneRow row(pan, bands);
  HpfFusionParam param;
  static_cast<FusionParam&>(param) = row.Param();
  param.m_eOutDataType = PDT_FLOAT64;
  param.m_bSecondFilter = true;
  param.m_strSecondHpfFile = L"/vsimem/smooth.tif";
  reference::Image image;
  image.width = static_cast<int>(smooth.size());
  image.height = 1;
  image.bands = {smooth};
  WriteImage(image, param.m_strSecondHpfFile, PDT_FLOAT64);
  CSimplePanSharpeningFusion fusion(&param);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  return ReadImage(param.m_strOutFile).bands;
}

TEST(SimplePanSharpening, ScalesByTheRatioToTheSmoothedPanAndAddsPan) {
  const auto out = Fuse({30.0, 8.0}, {20.0, 16.0}, {{10.0, 4.0}, {100.0, -6.0}});
  EXPECT_EQ(out[0], (std::vector<double>{45.0, 10.0}));
  EXPECT_EQ(out[1], (std::vector<double>{180.0, 5.0}));
}

TEST(SimplePanSharpening, RatioIsOneWhereTheSmoothedPanIsZero) {
  const auto out = Fuse({30.0, 8.0, 5.0, 6.0}, {0.0, 1e-8, -1e-8, 2e-8}, {{10.0, 4.0, 3.0, 1.0}, {1.0, 1.0, 1.0, 2.0}});
  EXPECT_EQ(out[0][0], 40.0);
  EXPECT_EQ(out[0][1], 12.0);
  EXPECT_EQ(out[0][2], 8.0);
  EXPECT_NEAR(out[0][3], 3e8 + 6.0, 1e-6) << "above the limit it divides";
}

TEST(SimplePanSharpening, NeedsNoSpreadAndNoStatistics) {
  const auto out = Fuse({7.0, 7.0, 7.0}, {7.0, 7.0, 7.0}, {{1.0, 2.0, 3.0}, {4.0, 5.0, 6.0}});
  EXPECT_EQ(out[0], (std::vector<double>{8.0, 9.0, 10.0}));
  FusionParam param;
  EXPECT_EQ(CSimplePanSharpeningFusion(&param).Preproccess(), 0) << "even before any image is open";
}

TEST(SimplePanSharpening, ResultDoesNotDependOnTheNumberOfThreads) {
  SceneOptions options;
  options.panWidth = 211;
  options.panHeight = 600;
  options.ratio = 3.0;
  const Scene scene(31, options);
  FusionParam param = scene.Param(PDT_FLOAT64);
  param.m_strAoiFile = L"/vsimem/sharpen_area.csv";
  test_support::WriteTriangle(param.m_strAoiFile, {440100.0, 4469900.0}, {441900.0, 4469900.0}, {440100.0, 4464500.0});
  const int before = omp_get_max_threads();
  std::vector<std::vector<double>> single;
  for (const int threads : {1, 2, 3, 7}) {
    omp_set_num_threads(threads);
    Sharpening fusion(&param);
    fusion.Process();
    test_support::ExpectSuccess(fusion);
    const auto out = ReadImage(scene.outFile);
    if (threads == 1) single = out.bands;
    test_support::ExpectEqual(out, single);
  }
  omp_set_num_threads(before);
}

TEST(SimplePanSharpening, CommonRulesOfAMethodHold) { test_support::ExpectCommonRules<Sharpening>(); }

}  // namespace
