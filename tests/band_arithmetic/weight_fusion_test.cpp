#include "band_arithmetic/weight_fusion.h"

#include <gtest/gtest.h>

#include "tests/band_arithmetic/weight_fixture.h"

namespace {

using test_support::ReadImage;
using test_support::RecordingProgress;
using test_support::Scene;
using weight::Correlated;
using weight::Recorded;
using weight::Reference;

class WeightDefinition : public test_support::MethodSweep {};

TEST_P(WeightDefinition, HoldsForRatiosOffsetsAreasAndMasks) { Sweep<Recorded>(Reference); }

INSTANTIATE_TEST_SUITE_P(AllTypes, WeightDefinition, test_support::AllTypesAndResamplings(),
                         test_support::SweepCaseName);

TEST(WeightFusion, FusedValuesByHand) {
  // Pan deviates from its mean by -3, -1, 1, 3. Bands 1 and 3 are straight lines of it: correlation 1, over four bands
  // a quarter, a = 1/2, fused = (m + 3 p) / 4. Bands 2 and 4 deviate by 2, -2, -2, 2: covariance 0, a = 0, the mean of
  // both images.
  const test_support::OneRow row(
      {2.0, 4.0, 6.0, 8.0}, {{5.0, 9.0, 13.0, 17.0}, {7.0, 3.0, 3.0, 7.0}, {1.0, 2.0, 3.0, 4.0}, {9.0, 5.0, 5.0, 9.0}});
  const auto out = row.Fuse<CWeightFusion>();
  const std::vector<std::vector<double>> expected = {
      {2.75, 5.25, 7.75, 10.25}, {4.5, 3.5, 4.5, 7.5}, {1.75, 3.5, 5.25, 7.0}, {5.5, 4.5, 5.5, 8.5}};
  for (std::size_t b = 0; b < 4; ++b) {
    for (std::size_t i = 0; i < 4; ++i) EXPECT_NEAR(out[b][i], expected[b][i], 1e-12) << b << ' ' << i;
  }
}

TEST(WeightFusion, PreparingWithoutOpenImagesFails) { EXPECT_EQ(CWeightFusion(nullptr).Preproccess(), 4); }

TEST(WeightFusion, BandEqualToPanComesOutAsPan) {
  Correlated correlated(2);
  Scene& scene = correlated.scene;
  scene.ms.bands[0] = scene.pan.bands[0];
  test_support::WriteImage(scene.ms, scene.msFile, PDT_FLOAT64);
  FusionParam param = scene.Param();
  param.m_eResampleType = RT_NEAREST;
  CWeightFusion fusion(&param);
  fusion.Process();
  const auto out = ReadImage(scene.outFile);
  for (std::size_t i = 0; i < out.bands[0].size(); ++i) {
    ASSERT_NEAR(out.bands[0][i], scene.pan.bands[0][i], 1e-9);
  }
}

TEST(WeightFusion, BandsWithoutAWeightCanBeKept) {
  // The first band goes with pan (correlation 1, a third of it: a = sqrt(1/3)), the second against it, the third is
  // constant.
  const test_support::OneRow row({2.0, 4.0, 6.0, 8.0},
                                 {{5.0, 9.0, 13.0, 17.0}, {9.0, 7.0, 6.0, 3.0}, {4.0, 4.0, 4.0, 4.0}});
  const auto out = row.Fuse<CWeightFusion>(PDT_FLOAT64, [](CWeightFusion& f) { f.KeepBandsWithoutWeight(true); });
  const double a = std::sqrt(1.0 / 3.0);
  for (std::size_t i = 0; i < 4; ++i) {
    const double band = 5.0 + 4.0 * static_cast<double>(i);
    const double pan = 2.0 + 2.0 * static_cast<double>(i);
    EXPECT_NEAR(out[0][i], ((1.0 - a) * band + (1.0 + a) * pan) / 2.0, 1e-12);
  }
  EXPECT_EQ(out[1], (std::vector<double>{9.0, 7.0, 6.0, 3.0}));
  EXPECT_EQ(out[2], (std::vector<double>{4.0, 4.0, 4.0, 4.0}));
}

TEST(WeightFusion, NegativeCorrelationGivesAnUndefinedBandAndZeroInIntegers) {
  Correlated correlated(2);
  Scene& scene = correlated.scene;
  for (double& v : scene.ms.bands[1]) v = -v;
  for (std::size_t i = 0; i < scene.ms.bands[1].size(); ++i) scene.ms.bands[1][i] = -scene.pan.bands[0][i];
  test_support::WriteImage(scene.ms, scene.msFile, PDT_FLOAT64);
  FusionParam param = scene.Param(PDT_FLOAT64);
  CWeightFusion(&param).Process();
  const auto floats = ReadImage(scene.outFile);
  EXPECT_TRUE(std::isnan(floats.bands[1][0]));
  EXPECT_FALSE(std::isnan(floats.bands[0][0]));
  param.m_eOutDataType = PDT_UINT16;
  CWeightFusion(&param).Process();
  const auto integers = ReadImage(scene.outFile);
  for (const double v : integers.bands[1]) ASSERT_EQ(v, 0.0);
}

TEST(WeightFusion, BandWithoutSpreadGivesAnUndefinedWeight) {
  Correlated correlated(2);
  Scene& scene = correlated.scene;
  std::fill(scene.ms.bands[1].begin(), scene.ms.bands[1].end(), 5.0);
  test_support::WriteImage(scene.ms, scene.msFile, PDT_FLOAT64);
  FusionParam param = scene.Param();
  Recorded fusion(&param);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  EXPECT_FALSE(std::isfinite(Recorded::s_weights[1]));
}

TEST(WeightFusion, SpectralMatchingIsNotCarriedOut) {
  const Scene scene(55);
  FusionParam param = scene.Param();
  param.m_bSpectralMatch = true;
  class Temporary : public CWeightFusion {
   public:
    using CWeightFusion::CWeightFusion;
    const std::wstring& Path() const { return m_strTempFile; }
  } fusion(&param);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  EXPECT_FALSE(test_support::FileExists(scene.outFile));
  EXPECT_TRUE(test_support::FileExists(fusion.Path()));
  CRasterSource::DeleteFileW(fusion.Path());
}

TEST(WeightFusion, TheSizeOfAWeightCountsNotItsSign) {
  class Weighted : public CWeightFusion {
   public:
    using CWeightFusion::CWeightFusion;
    GISError Preproccess() override {
      const GISError result = CWeightFusion::Preproccess();
      m_pWeight[0] = -0.5;
      m_pWeight[1] = 0.5;
      return result;
    }
  };
  const test_support::OneRow row({2.0, 4.0, 6.0}, {{6.0, 2.0, 4.0}, {6.0, 2.0, 4.0}});
  const auto out = row.Fuse<Weighted>();
  EXPECT_EQ(out[0], (std::vector<double>{3.0, 3.5, 5.5}));
  EXPECT_EQ(out[1], out[0]);
}

TEST(WeightFusion, OutputBandsBeyondTheMultispectralOnesAreHalfOfPan) {
  const test_support::OneRow row({2.0, 4.0, 7.0}, {{6.0, 2.0, 4.0}, {5.0, 2.0, 4.0}});
  FusionParam param = row.Param();
  param.m_nOutBandCount = 3;
  param.m_eOutDataType = PDT_FLOAT64;
  CWeightFusion(&param).Process();
  EXPECT_EQ(ReadImage(param.m_strOutFile).bands.at(2), (std::vector<double>{1.0, 2.0, 3.5}));
}

TEST(WeightFusion, DoesNotNarrowTheRangeForNoData) {
  test_support::SceneOptions options;
  options.panNoData = 0.0;
  options.msNoData = 0.0;
  const Scene scene(58, options);
  const FusionParam param = scene.Param(PDT_UINT8);
  test_support::ExpectDefinition<Recorded>(scene, param, Reference(scene, param));
}

TEST(WeightFusion, EndOfTheRunFreesTheArrays) {
  class Ended : public CWeightFusion {
   public:
    using CWeightFusion::CWeightFusion;
    void EndProccess() override {
      hadArrays = m_pMulMax && m_pMulMin && m_pWeight;
      CWeightFusion::EndProccess();
      hasArrays = m_pMulMax || m_pMulMin || m_pWeight;
    }
    bool hadArrays = false;
    bool hasArrays = true;
  };
  const Scene scene(59);
  FusionParam param = scene.Param();
  Ended fusion(&param);
  fusion.Process();
  EXPECT_TRUE(fusion.hadArrays);
  EXPECT_FALSE(fusion.hasArrays);
}

TEST(WeightFusion, PositionsStartAtTheOutputRaster) { test_support::ExpectPositionStart<Recorded>(Reference); }

TEST(WeightFusion, CommonRulesOfAMethodHold) { test_support::ExpectCommonRules<CWeightFusion>(); }

}  // namespace
