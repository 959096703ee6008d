#include "band_arithmetic/multiple_fusion.h"

#include <gtest/gtest.h>

#include "tests/support/method_sweep.h"

namespace {

using test_support::ReadImage;
using test_support::Scene;

reference::Run MultipleReference(const Scene& scene, const FusionParam& param) {
  reference::Run run = scene.Reference(param);
  run.startAtOutput = true;
  run.arithmetic = [](const reference::Pixel& pixel) {
    std::vector<double> out;
    for (const double ms : pixel.ms) out.push_back(ms * pixel.pan);
    return out;
  };
  return run;
}

class MultipleDefinition : public test_support::MethodSweep {};

TEST_P(MultipleDefinition, HoldsForRatiosOffsetsAreasAndMasks) { Sweep<CMultipleFusion>(MultipleReference); }

INSTANTIATE_TEST_SUITE_P(AllTypes, MultipleDefinition, test_support::AllTypesAndResamplings(),
                         test_support::SweepCaseName);

class Exposed : public CMultipleFusion {
 public:
  using CMultipleFusion::CMultipleFusion;
  void EndProccess() override {
    panMin = m_dPanMin;
    panMax = m_dPanMax;
    if (m_pMulMin) minima.assign(&m_pMulMin[0], &m_pMulMin[3]);
    if (m_pMulMax) maxima.assign(&m_pMulMax[0], &m_pMulMax[3]);
    if (m_pMeans) means.assign(&m_pMeans[0], &m_pMeans[3]);
    CMultipleFusion::EndProccess();
    freed = !m_pMulMin && !m_pMulMax;
  }
  using CMultipleFusion::m_dPanMax;
  using CMultipleFusion::m_dPanMin;
  double panMin = 0;
  double panMax = 0;
  bool freed = false;
  std::vector<double> minima;
  std::vector<double> maxima;
  std::vector<double> means;
};

TEST(MultipleFusion, ProductOfTwoBytesIsClampedToTheRange) {
  const test_support::OneRow row({3.0, 20.0, 0.0}, {{5.0, 20.0, 9.0}, {0.0, 1.0, 9.0}});
  const auto out = row.Fuse<CMultipleFusion>(PDT_UINT8);
  EXPECT_EQ(out[0], (std::vector<double>{15.0, 255.0, 0.0}));
  EXPECT_EQ(out[1], (std::vector<double>{0.0, 20.0, 0.0}));
}

TEST(MultipleFusion, PreparingWithoutOpenImagesFails) { EXPECT_EQ(CMultipleFusion(nullptr).Preproccess(), 4); }

TEST(MultipleFusion, PositionsStartAtTheOutputRaster) {
  test_support::ExpectPositionStart<CMultipleFusion>(MultipleReference);
}

TEST(MultipleFusion, UnknownResamplingGivesZero) {
  const Scene scene(41);
  FusionParam param = scene.Param();
  param.m_eResampleType = static_cast<ResampleType>(7);
  CMultipleFusion fusion(&param);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  const auto out = ReadImage(scene.outFile);
  for (const double v : out.bands[0]) ASSERT_EQ(v, 0.0);
}

TEST(MultipleFusion, KeepsRangesAndMeansWhetherMatchedOrNot) {
  const Scene scene(42);
  FusionParam param = scene.Param();
  Exposed fusion(&param);
  EXPECT_EQ(fusion.m_dPanMax, 255.0);
  EXPECT_EQ(fusion.m_dPanMin, 0.0);
  fusion.Process();
  EXPECT_EQ(fusion.panMin, *std::min_element(scene.pan.bands[0].begin(), scene.pan.bands[0].end()));
  EXPECT_EQ(fusion.panMax, *std::max_element(scene.pan.bands[0].begin(), scene.pan.bands[0].end()));
  ASSERT_EQ(fusion.minima.size(), 3u);
  ASSERT_EQ(fusion.means.size(), 3u);
  EXPECT_EQ(fusion.minima[1], *std::min_element(scene.ms.bands[1].begin(), scene.ms.bands[1].end()));
  EXPECT_EQ(fusion.maxima[2], *std::max_element(scene.ms.bands[2].begin(), scene.ms.bands[2].end()));
  EXPECT_TRUE(fusion.freed);
}

TEST(MultipleFusion, DoesNotNarrowTheRangeForNoData) {
  test_support::SceneOptions options;
  options.panNoData = 0.0;
  options.msNoData = 0.0;
  const Scene scene(43, options);
  const FusionParam param = scene.Param(PDT_UINT8);
  test_support::ExpectDefinition<CMultipleFusion>(scene, param, MultipleReference(scene, param));
}

TEST(MultipleFusion, SpectralMatchingBringsTheBandsToTheirMeans) {
  const Scene scene(44);
  FusionParam param = scene.Param(PDT_FLOAT64);
  param.m_bSpectralMatch = true;
  CMultipleFusion fusion(&param);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  const auto out = ReadImage(scene.outFile);
  for (std::size_t b = 0; b < 3; ++b) {
    EXPECT_NEAR(test_support::Mean(out.bands[b]), test_support::Mean(scene.ms.bands[b]), 1e-6);
    EXPECT_NEAR(test_support::Deviation(out.bands[b]), test_support::Deviation(scene.ms.bands[b]), 1e-6);
  }
}

TEST(MultipleFusion, CommonRulesOfAMethodHold) { test_support::ExpectCommonRules<CMultipleFusion>(); }

}  // namespace
