#include "tests/gaps/gap_methods.h"

#include <gtest/gtest.h>

#include "band_arithmetic/brovey_fusion.h"
#include "band_arithmetic/multiple_fusion.h"
#include "band_arithmetic/weight_fusion.h"
#include "highpass/bayes_pan_sharpening_fusion.h"
#include "highpass/bayesian_model.h"
#include "highpass/hpf_fusion_process_alg.h"
#include "highpass/simple_pan_sharpening_fusion_process_alg.h"
#include "platform/algorithm/build_raster_overviews.h"
#include "transform/ihs_tran_fusion.h"
#include "transform/prin_component_fusion.h"

namespace gap_test {
namespace {

void Finish(CBaseAlgorithm& algorithm) {
  CBuildRasterOverviews::SetEnabled(false);
  algorithm.Process();
  CBuildRasterOverviews::SetEnabled(true);
  EXPECT_EQ(algorithm.GetLastErrorType(), 0);
  EXPECT_TRUE(algorithm.GetLastErrorMessage().empty());
}

template <typename Method>
void Run(const FusionParam& given) {
  FusionParam param = given;
  Method method(&param);
  Finish(method);
}

template <typename Method>
void RunMatched(const FusionParam& given) {
  FusionParam param = given;
  param.m_bSpectralMatch = true;
  Run<Method>(param);
}

void RunHpf(const FusionParam& given) {
  constexpr int kSize = 5;
  HpfFusionParam param;
  static_cast<FusionParam&>(param) = given;
  param.m_filter1.m_nWidth = param.m_filter1.m_nHeight = kSize;
  param.m_filter1.m_nCenterX = param.m_filter1.m_nCenterY = kSize / 2;
  param.m_filter1.m_dScale = 1.0 / (kSize * kSize);
  param.m_filter1.m_vecCoefficients.assign(kSize * kSize, -1.0);
  param.m_filter1.m_vecCoefficients[kSize * kSize / 2] = kSize * kSize - 1.0;
  CHpfFusionProcessAlg method(&param);
  Finish(method);
}

BayesianFusionParam BayesianRecord(const FusionParam& given) {
  BayesianFusionParam param;
  static_cast<FusionParam&>(param) = given;
  param.m_dBayesParam = 0.5;
  return param;
}

void RunBayesian(const FusionParam& given) {
  BayesianFusionParam param = BayesianRecord(given);
  BayesianModelEstimator estimator(param);
  Finish(estimator);
  BayesPanSharpeningFusion method(&param);
  method.SetModel(estimator.GetModel());
  Finish(method);
}

void RunBayesianWithFixedModel(const FusionParam& given) {
  BayesianFusionParam param = BayesianRecord(given);
  BayesPanSharpeningFusion method(&param);
  const std::vector<double> sigma = {90.0, 20.0, 10.0, 20.0, 80.0, 5.0, 10.0, 5.0, 70.0};
  method.SetModel(fusion::MakeBayesianModel(0.5, 4.0, {0.5, 0.25, 0.2}, 60.0, sigma));
  Finish(method);
}

}  // namespace

const std::vector<NamedMethod>& Methods() {
  static const std::vector<NamedMethod> methods = {
      {.name = "brovey", .run = Run<CBroveyFusion>, .isLocal = true},
      {.name = "multiplicative", .run = Run<CMultipleFusion>, .isLocal = true},
      {.name = "brovey, matched", .run = RunMatched<CBroveyFusion>},
      {.name = "multiplicative, matched", .run = RunMatched<CMultipleFusion>},
      {.name = "weighted", .run = Run<CWeightFusion>},
      {.name = "ihs", .run = Run<CIhsTranFusion>, .isLocal = true},
      {.name = "pca", .run = Run<CPrinComponentFusion>},
      {.name = "bayesian", .run = RunBayesian},
      {.name = "bayesian, given model", .run = RunBayesianWithFixedModel, .isLocal = true},
      {.name = "hpf", .run = RunHpf, .isPipeline = true},
      {.name = "sharpen", .run = Run<CSimplePanSharpeningFusionProcessAlg>, .isPipeline = true, .isLocal = true},
  };
  return methods;
}

}  // namespace gap_test
