#include "tests/highpass/estimated.h"

#include <gtest/gtest.h>

#include <cmath>

#include "estimation/detail_moments.h"
#include "estimation/injection_model.h"
#include "highpass/bayes_pan_sharpening_fusion.h"
#include "highpass/bayesian_source.h"
#include "tests/support/method_sweep.h"

namespace highpass_test {

using test_support::LowPassOf;
using test_support::ReadImage;

Estimated::Estimated(const BayesianFusionParam& param, BayesianRegistration registration, bool threaded,
                     const CRect& area) {
  BayesianModelEstimator estimator(param);
  estimator.SetRegistration(registration);
  estimator.SetOverlappedIo(threaded);
  estimator.SetThreads(threaded ? 3 : 1);
  estimator.SetArea(area);
  estimator.Process();
  EXPECT_EQ(estimator.GetLastErrorType(), 0);
  EXPECT_TRUE(estimator.GetLastErrorMessage().empty());
  model = estimator.GetModel();
  estimate = estimator.GetEstimate();
  if (model.source) source = ReadImage(model.source->Path());
}

std::vector<std::vector<double>> FuseWith(const BayesianFusionParam& param, const BayesianModel& model) {
  FusionParam record = param;
  BayesPanSharpeningFusion fusion(&record);
  fusion.SetModel(model);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  return ReadImage(param.m_strOutFile).bands;
}

void ExpectModel(const Estimated& found, const SeenScene& scene, double weight) {
  const BayesianEstimate& e = found.estimate;
  const int n = static_cast<int>(found.source.bands.size()) - 1;
  std::vector<std::vector<double>> images(found.source.bands.begin(), found.source.bands.end() - 1);
  images.push_back(LowPassOf(scene, e.isBox, e.blur * e.restoring, e.moved ? e.shiftX : 0.0, e.moved ? e.shiftY : 0.0));
  std::vector<const double*> rows;
  for (const auto& image : images) rows.push_back(image.data());
  fusion::DetailMoments moments(n, found.source.width, found.source.height, {e.isBox, e.blur});
  moments.AddRows(rows.data(), found.source.height);
  fusion::InjectionDoubt doubt = fusion::InjectionDoubt::kNone;
  const auto whole = fusion::FitInjection(moments.Statistics(), n, true, doubt);
  EXPECT_EQ(e.samples, moments.Statistics().Count());
  ASSERT_EQ(e.gains.size(), static_cast<std::size_t>(n));
  const auto part = whole.Scaled(2.0 * weight);
  const BayesianModel& model = found.model;
  EXPECT_EQ(model.weight, 0.5);
  EXPECT_EQ(model.panMean, 0.0);
  EXPECT_EQ(model.panVariance, 1.0);
  const auto size = static_cast<std::size_t>(n) + 1;
  ASSERT_EQ(model.panCovariance.size(), size);
  ASSERT_EQ(model.transform.size(), size * size);
  EXPECT_EQ(model.panCovariance.back(), 0.0);
  for (std::size_t b = 0; b + 1 < size; ++b) {
    EXPECT_NEAR(e.gains[b], whole.panGains[b], 1e-8);
    EXPECT_NEAR(model.panCovariance[b], part.panGains[b], 1e-8);
    for (std::size_t j = 0; j + 1 < size; ++j) {
      EXPECT_NEAR(model.transform[j * size + b], part.bandGains[b * (size - 1) + j], 1e-8);
    }
    EXPECT_NEAR(model.transform[(size - 1) * size + b], part.lowPassGains[b], 1e-8);
  }
  for (std::size_t j = 0; j < size; ++j) EXPECT_EQ(model.transform[j * size + size - 1], 0.0);
}

void ExpectLowPass(const Estimated& found, const SeenScene& scene, int least) {
  const BayesianEstimate& e = found.estimate;
  const auto expected = LowPassOf(scene, e.isBox, e.blur, e.moved ? e.shiftX : 0.0, e.moved ? e.shiftY : 0.0);
  int compared = 0;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    if (std::isnan(expected[i])) continue;
    ++compared;
    ASSERT_NEAR(found.source.bands.back()[i], expected[i], 1e-3) << i;
  }
  EXPECT_GT(compared, least);
}

}  // namespace highpass_test
