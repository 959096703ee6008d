#include "highpass/bayes_pan_sharpening_fusion.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/method_sweep.h"

namespace {

using test_support::OneRow;
using test_support::ReadImage;
using test_support::Scene;

/// A model of any size with nothing special about it.
BayesianModel AnyModel(int n) {
  std::mt19937 random(static_cast<unsigned>(n));
  std::uniform_real_distribution<double> value(-0.5, 0.5);
  BayesianModel model;
  model.weight = 0.7;
  model.panMean = 12.5;
  model.panVariance = 3.0;
  for (int i = 0; i < n; ++i) model.panCovariance.push_back(value(random));
  for (int i = 0; i < n * n; ++i) model.transform.push_back((i % (n + 1) == 0 ? 1.0 : 0.0) + value(random));
  return model;
}

int BandCount(const FusionParam& param) {
  if (!param.m_vecMSBands.empty()) return static_cast<int>(param.m_vecMSBands.size());
  return test_support::FileExists(param.m_strMSFile) ? static_cast<int>(ReadImage(param.m_strMSFile).bands.size()) : 3;
}

class WithModel : public BayesPanSharpeningFusion {
 public:
  explicit WithModel(FusionParam* param) : BayesPanSharpeningFusion(param) { SetModel(AnyModel(BandCount(*param))); }
};

std::vector<double> Estimate(const BayesianModel& model, const reference::Pixel& pixel) {
  const std::size_t n = model.panCovariance.size();
  const double g = 2.0 * model.weight;
  std::vector<double> out;
  for (std::size_t b = 0; b < n; ++b) {
    double t = 0.0;
    for (std::size_t i = 0; i < n; ++i) t += pixel.ms[i] * model.transform[i * n + b];
    const double d = (pixel.pan - model.panMean) * g * model.panCovariance[b] / model.panVariance;
    out.push_back(d + g * t);
  }
  return out;
}

reference::Run Reference(const Scene& scene, const FusionParam& param) {
  reference::Run run = scene.Reference(param);
  run.reprojectedOffset = 0.5;
  run.arithmetic = [model = AnyModel(run.outBandCount)](const reference::Pixel& pixel) {
    return Estimate(model, pixel);
  };
  return run;
}

class BayesDefinition : public test_support::MethodSweep {};

TEST_P(BayesDefinition, HoldsForRatiosOffsetsAreasAndMasks) { Sweep<WithModel>(Reference); }

INSTANTIATE_TEST_SUITE_P(AllTypes, BayesDefinition, test_support::AllTypesAndResamplings(),
                         test_support::SweepCaseName);

BayesianModel SmallModel() {
  BayesianModel model;
  model.weight = 0.25;
  model.panMean = 10.0;
  model.panVariance = 4.0;
  model.panCovariance = {2.0, -8.0};
  model.transform = {3.0, 1.0, 0.0, 2.0};
  return model;
}

TEST(BayesPanSharpening, WeighsTheTransformedBandsAndTheDeviationOfPan) {
  const OneRow row({14.0, 10.0}, {{1.0, 2.0}, {4.0, 6.0}});
  const auto out = row.Fuse<BayesPanSharpeningFusion>(PDT_FLOAT64, [](auto& f) { f.SetModel(SmallModel()); });
  // g = 0.5. First pixel: t = (1 x 3 + 4 x 0, 1 x 1 + 4 x 2) = (3, 9), d = 4 x 0.5 x (2, -8) / 4 = (1, -4).
  EXPECT_EQ(out[0][0], 2.5);
  EXPECT_EQ(out[1][0], 0.5);
  // Second pixel: t = (6, 14), d = 0.
  EXPECT_EQ(out[0][1], 3.0);
  EXPECT_EQ(out[1][1], 7.0);
}

TEST(BayesPanSharpening, AGainAndAVarianceOfOneAreNothingSpecial) {
  const OneRow row({14.0, 10.0}, {{1.0, 2.0}, {4.0, 6.0}});
  BayesianModel model = SmallModel();
  model.weight = 0.5;
  model.panVariance = 1.0;
  auto out = row.Fuse<BayesPanSharpeningFusion>(PDT_FLOAT64, [&](auto& f) { f.SetModel(model); });
  // The t of above; d = 4 x (2, -8) and 0.
  EXPECT_EQ(out[0][0], 11.0);
  EXPECT_EQ(out[1][0], -23.0);
  EXPECT_EQ(out[0][1], 6.0);
  EXPECT_EQ(out[1][1], 14.0);
  model.panVariance = 4.0;
  out = row.Fuse<BayesPanSharpeningFusion>(PDT_FLOAT64, [&](auto& f) { f.SetModel(model); });
  EXPECT_EQ(out[0][0], 5.0);
  EXPECT_EQ(out[1][0], 1.0);
}

TEST(BayesPanSharpening, VarianceBelowTheLimitCountsAsOneForTheRestOfTheRun) {
  class Readable : public BayesPanSharpeningFusion {
   public:
    using BayesPanSharpeningFusion::BayesPanSharpeningFusion;
    double Variance() const { return m_dPanVariance; }
  };
  const OneRow row({14.0, 10.0}, {{1.0, 2.0}, {4.0, 6.0}});
  for (const auto& [given, used] : {std::pair(0.0, 1.0), std::pair(9.9e-9, 1.0), std::pair(-9.9e-9, 1.0),
                                    std::pair(1e-8, 1e-8), std::pair(-2.0, -2.0)}) {
    FusionParam param = row.Param();
    param.m_eOutDataType = PDT_FLOAT64;
    BayesianModel model = SmallModel();
    model.panVariance = given;
    Readable fusion(&param);
    fusion.SetModel(model);
    EXPECT_EQ(fusion.Variance(), given);
    fusion.Process();
    test_support::ExpectSuccess(fusion);
    EXPECT_EQ(fusion.Variance(), used);
    EXPECT_EQ(ReadImage(param.m_strOutFile).bands[0][0], 4.0 * 0.5 * 2.0 / used + 0.5 * 3.0);
  }
}

TEST(BayesPanSharpening, ConstructorDoesNotTakeTheWeightOver) {
  class Readable : public BayesPanSharpeningFusion {
   public:
    using BayesPanSharpeningFusion::BayesPanSharpeningFusion;
    double Weight() const { return m_bayesParam.m_dBayesParam; }
  };
  BayesianFusionParam param;
  param.m_dBayesParam = 0.9;
  Readable fusion(&param);
  EXPECT_EQ(fusion.Weight(), 0.0);
  fusion.SetModel(SmallModel());
  EXPECT_EQ(fusion.Weight(), 0.25);
  const Readable copy(fusion);
  EXPECT_EQ(copy.Weight(), 0.25);
}

TEST(BayesPanSharpening, ModelOfOtherSizeThanTheBandsIsErrorSevenAndNothingIsComputed) {
  const OneRow row({14.0}, {{1.0}, {4.0}, {2.0}});
  BayesianModel broken = SmallModel();
  broken.transform.pop_back();
  for (const auto& model : {SmallModel(), BayesianModel(), broken}) {
    FusionParam param = row.Param();
    test_support::RecordingProgress progress;
    BayesPanSharpeningFusion fusion(&param);
    fusion.SetProgress(&progress);
    fusion.SetModel(model);
    fusion.Process();
    EXPECT_EQ(fusion.GetLastErrorType(), 7);
    EXPECT_FALSE(fusion.GetLastErrorMessage().empty());
    EXPECT_EQ(progress.Errors(), 1);
    EXPECT_FALSE(progress.Finished());
  }
  FusionParam param = row.Param();
  BayesPanSharpeningFusion without(&param);
  EXPECT_EQ(without.Preproccess(), 0);
  without.Process();
  EXPECT_EQ(without.GetLastErrorType(), 7);
}

TEST(BayesPanSharpening, OutputBandsBeyondTheModelAreZero) {
  const OneRow row({14.0}, {{1.0}, {4.0}});
  FusionParam param = row.Param();
  param.m_nOutBandCount = 3;
  param.m_eOutDataType = PDT_FLOAT64;
  BayesPanSharpeningFusion fusion(&param);
  fusion.SetModel(SmallModel());
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  const auto out = ReadImage(param.m_strOutFile).bands;
  EXPECT_EQ(out[0][0], 2.5);
  EXPECT_EQ(out[1][0], 0.5);
  EXPECT_EQ(out[2][0], 0.0);
}

TEST(BayesPanSharpening, SpectralMatchingWithoutTargetsIsErrorSevenAndLeavesNoFile) {
  const Scene scene(41);
  FusionParam param = scene.Param();
  param.m_bSpectralMatch = true;
  WithModel fusion(&param);
  const auto before = test_support::FilesNamedLike(L"out~");
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 7);
  EXPECT_EQ(fusion.GetLastErrorMessage(), L"计算多光谱影像统计值出错！");
  EXPECT_FALSE(test_support::FileExists(scene.outFile));
  EXPECT_EQ(test_support::FilesNamedLike(L"out~"), before);
}

TEST(BayesPanSharpening, CommonRulesOfAMethodHold) { test_support::ExpectCommonRules<WithModel>(); }

}  // namespace
