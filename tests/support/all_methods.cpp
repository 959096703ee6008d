#include "tests/support/all_methods.h"

#include <gtest/gtest.h>

#include "band_arithmetic/brovey_fusion.h"
#include "band_arithmetic/multiple_fusion.h"
#include "band_arithmetic/weight_fusion.h"
#include "highpass/bayes_pan_sharpening_fusion.h"
#include "highpass/bayesian_model.h"
#include "highpass/hpf_fusion_process_alg.h"
#include "highpass/simple_pan_sharpening_fusion_process_alg.h"
#include "transform/ihs_tran_fusion.h"
#include "transform/prin_component_fusion.h"

namespace test_support {
namespace {

void Finish(CBaseAlgorithm& algorithm, const RunRequest& request) {
  algorithm.SetOverlappedIo(request.overlapped);
  algorithm.SetThreads(request.threads);
  algorithm.SetBuildsOverviews(false);
  algorithm.Process();
  EXPECT_EQ(algorithm.GetLastErrorType(), 0);
  EXPECT_TRUE(algorithm.GetLastErrorMessage().empty());
}

template <typename Method>
void Run(const FusionParam& given, const RunRequest& request) {
  FusionParam param = given;
  Method method(&param);
  Finish(method, request);
}

template <typename Method>
void RunMatched(const FusionParam& given, const RunRequest& request) {
  FusionParam param = given;
  param.m_bSpectralMatch = true;
  Run<Method>(param, request);
}

void RunHpf(const FusionParam& given, const RunRequest& request) {
  HpfFusionParam param = HpfRecord(given);
  CHpfFusionProcessAlg method(&param);
  Finish(method, request);
}

BayesianFusionParam BayesianRecord(const FusionParam& given) {
  BayesianFusionParam param;
  static_cast<FusionParam&>(param) = given;
  param.m_dBayesParam = 0.5;
  return param;
}

void RunBayesian(const FusionParam& given, const RunRequest& request) {
  BayesianFusionParam param = BayesianRecord(given);
  BayesianModelEstimator estimator(param);
  Finish(estimator, request);
  BayesPanSharpeningFusion method(&param);
  method.SetModel(estimator.GetModel());
  Finish(method, request);
}

void RunBayesianWithFixedModel(const FusionParam& given, const RunRequest& request) {
  BayesianFusionParam param = BayesianRecord(given);
  BayesPanSharpeningFusion method(&param);
  BayesianModel model;
  model.weight = 0.5;
  model.panMean = 4.0;
  model.panVariance = 60.0;
  model.panCovariance = {31.0, 17.5, 11.25};
  model.transform = {0.75, -0.125, -0.1, -0.25, 0.875, -0.05, -0.2, -0.0625, 0.9};
  method.SetModel(model);
  Finish(method, request);
}

}  // namespace

HpfFusionParam HpfRecord(const FusionParam& given) {
  constexpr int kSize = 5;
  HpfFusionParam param;
  static_cast<FusionParam&>(param) = given;
  param.m_filter1.m_nWidth = param.m_filter1.m_nHeight = kSize;
  param.m_filter1.m_nCenterX = param.m_filter1.m_nCenterY = kSize / 2;
  param.m_filter1.m_dScale = 1.0 / (kSize * kSize);
  param.m_filter1.m_vecCoefficients.assign(kSize * kSize, -1.0);
  param.m_filter1.m_vecCoefficients[kSize * kSize / 2] = kSize * kSize - 1.0;
  return param;
}

const std::vector<NamedMethod>& AllMethods() {
  static const std::vector<NamedMethod> methods = {
      {.name = "brovey", .runWith = Run<CBroveyFusion>, .isLocal = true, .definition = "BroveyDefinition"},
      {.name = "multiplicative", .runWith = Run<CMultipleFusion>, .isLocal = true, .definition = "MultipleDefinition"},
      {.name = "brovey, matched", .runWith = RunMatched<CBroveyFusion>},
      {.name = "multiplicative, matched", .runWith = RunMatched<CMultipleFusion>},
      {.name = "weighted", .runWith = Run<CWeightFusion>, .definition = "WeightDefinition"},
      {.name = "ihs", .runWith = Run<CIhsTranFusion>, .isLocal = true, .definition = "IhsDefinition"},
      {.name = "pca", .runWith = Run<CPrinComponentFusion>, .definition = "PcaDefinition"},
      {.name = "bayesian", .runWith = RunBayesian, .definition = "BayesDefinition"},
      {.name = "bayesian, given model", .runWith = RunBayesianWithFixedModel, .isLocal = true},
      {.name = "hpf", .runWith = RunHpf, .isPipeline = true, .definition = "HpfDefinition"},
      {.name = "sharpen",
       .runWith = Run<CSimplePanSharpeningFusionProcessAlg>,
       .isPipeline = true,
       .isLocal = true,
       .definition = "SharpeningDefinition"},
  };
  return methods;
}

}  // namespace test_support
