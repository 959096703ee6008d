// Scenes whose model is known, and what the fusion makes of them.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "highpass/bayes_pan_sharpening_fusion.h"
#include "tests/highpass/bayesian_fixture.h"
#include "tests/highpass/dense_model.h"
#include "tests/support/method_sweep.h"

namespace {

using highpass_test::CollectSamples;
using highpass_test::DenseModel;
using highpass_test::DenseSamples;
using highpass_test::Estimate;
using highpass_test::Fit;
using highpass_test::GridCells;
using test_support::ReadImage;
using test_support::WriteImage;

/// Fine bands, averaged to a multispectral image, and a pan image that is a linear mix of them plus noise.
class MixedScene {
 public:
  MixedScene(unsigned seed, int msWidth, int msHeight, int ratio, double noise) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> value(100.0, 900.0);
    std::normal_distribution<double> error(0.0, 1.0);
    pan.width = msWidth * ratio;
    pan.height = msHeight * ratio;
    pan.bands.assign(1, std::vector<double>(static_cast<std::size_t>(pan.width * pan.height), kIntercept));
    ms.width = msWidth;
    ms.height = msHeight;
    ms.geoTransform[1] = ratio;
    ms.geoTransform[5] = -ratio;
    ms.bands.assign(3, std::vector<double>(static_cast<std::size_t>(msWidth * msHeight), 0.0));
    for (int y = 0; y < pan.height; ++y) {
      for (int x = 0; x < pan.width; ++x) {
        double& p = pan.bands[0][static_cast<std::size_t>(y * pan.width + x)];
        p += noise * error(random);
        for (std::size_t b = 0; b < 3; ++b) {
          const double v = value(random);
          p += kBeta[b] * v;
          ms.bands[b][static_cast<std::size_t>(y / ratio * msWidth + x / ratio)] += v / (ratio * ratio);
        }
      }
    }
    param.m_strPanFile = L"/vsimem/mixed_pan.tif";
    param.m_strMSFile = L"/vsimem/mixed_ms.tif";
    param.m_strOutFile = L"/vsimem/mixed_out.tif";
    param.m_eOutDataType = PDT_FLOAT64;
    param.m_dBayesParam = 0.5;
    WriteImage(pan, param.m_strPanFile, PDT_FLOAT64);
    WriteImage(ms, param.m_strMSFile, PDT_FLOAT64);
  }

  static constexpr double kIntercept = -40.0;
  static constexpr double kBeta[3] = {0.2, 0.5, 0.35};
  reference::Image pan;
  reference::Image ms;
  BayesianFusionParam param;
};

TEST(BayesianEstimator, RecoversAKnownMixWithinItsStandardErrors) {
  const double noise = 30.0;
  const MixedScene scene(7, 70, 90, 2, noise);
  const BayesianModel model = Estimate(scene.param);
  const DenseSamples samples = CollectSamples(scene.pan, scene.ms, {0, 1, 2}, GridCells(scene.pan, scene.ms));
  ASSERT_EQ(samples.pan.size(), 70 * 90);
  Eigen::MatrixXd system(samples.pan.size(), 4);
  system << Eigen::VectorXd::Ones(samples.pan.size()), samples.bands;
  const double variance = noise * noise / 4.0;  // of the mean of four pixels
  const Eigen::MatrixXd errors = variance * (system.transpose() * system).inverse();
  EXPECT_NEAR(model.panMean, MixedScene::kIntercept, 3.0 * std::sqrt(errors(0, 0)));
  for (std::size_t b = 0; b < 3; ++b) {
    const auto i = static_cast<Eigen::Index>(b) + 1;
    EXPECT_NEAR(model.coefficients[b], MixedScene::kBeta[b], 3.0 * std::sqrt(errors(i, i)));
  }
  EXPECT_NEAR(model.panVariance, variance, 3.0 * variance * std::sqrt(2.0 / (70 * 90)));
}

TEST(BayesianEstimator, RecoversAnExactMixToNineDigitsAndCountsItsVarianceAsOne) {
  for (const int ratio : {2, 4}) {
    const MixedScene scene(8, 40, 30, ratio, 0.0);
    const BayesianModel model = Estimate(scene.param);
    for (std::size_t b = 0; b < 3; ++b) EXPECT_NEAR(model.coefficients[b], MixedScene::kBeta[b], 1e-9);
    EXPECT_NEAR(model.panMean, MixedScene::kIntercept, 1e-6);
    EXPECT_EQ(model.panVariance, 1.0);
  }
}

TEST(BayesianEstimator, LargeOffsetsAndUnlikeUnitsCostNoDigits) {
  // Bands of a large mean and of a tiny unit: the same mix, seen through other units.
  MixedScene scene(9, 40, 30, 2, 0.0);
  for (double& v : scene.ms.bands[0]) v += 1e6;
  for (double& v : scene.ms.bands[1]) v *= 1e-6;
  WriteImage(scene.ms, scene.param.m_strMSFile, PDT_FLOAT64);
  const BayesianModel model = Estimate(scene.param);
  EXPECT_NEAR(model.coefficients[0], MixedScene::kBeta[0], 1e-9);
  EXPECT_NEAR(model.coefficients[1], MixedScene::kBeta[1] * 1e6, 1e-3);
  EXPECT_NEAR(model.coefficients[2], MixedScene::kBeta[2], 1e-9);
  EXPECT_EQ(model.panVariance, 1.0);
}

std::vector<std::vector<double>> FuseWith(const BayesianFusionParam& param, const BayesianModel& model) {
  FusionParam record = param;
  BayesPanSharpeningFusion fusion(&record);
  fusion.SetModel(model);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  return ReadImage(param.m_strOutFile).bands;
}

TEST(BayesianEstimator, WeightNearOneMakesTheFusedBandsPredictThePan) {
  MixedScene scene(10, 60, 40, 2, 25.0);
  scene.param.m_dBayesParam = 1.0 - 1e-10;
  const BayesianModel model = Estimate(scene.param);
  ASSERT_GT(model.panVariance, 10.0);
  const auto out = FuseWith(scene.param, model);
  for (std::size_t i = 0; i < out[0].size(); ++i) {
    double predicted = model.panMean;
    for (std::size_t b = 0; b < 3; ++b) predicted += model.coefficients[b] * out[b][i];
    ASSERT_NEAR(predicted, scene.pan.bands[0][i], 1e-4);
  }
}

TEST(BayesianEstimator, WeightNearZeroGivesTheResampledBands) {
  MixedScene scene(11, 60, 40, 2, 25.0);
  scene.param.m_dBayesParam = 1e-10;
  const auto out = FuseWith(scene.param, Estimate(scene.param));
  reference::Run run;
  run.pan = &scene.pan;
  run.ms = &scene.ms;
  run.process = {0, 0, scene.pan.width, scene.pan.height};
  run.msBands = {0, 1, 2};
  run.outBandCount = 3;
  run.arithmetic = [](const reference::Pixel& pixel) { return pixel.ms; };
  const auto resampled = reference::Fuse(run);
  for (std::size_t b = 0; b < 3; ++b) {
    for (std::size_t i = 0; i < out[b].size(); ++i) ASSERT_NEAR(out[b][i], resampled[b][i], 1e-4);
  }
}

TEST(BayesianEstimator, NearlyDependentDetailIsRidged) {
  // Two bands whose 3 x 3 detail is the same up to rounding while the bands themselves differ by a ramp: Sigma is
  // singular, the regression is not.
  MixedScene scene(12, 40, 30, 2, 10.0);
  for (int y = 0; y < 30; ++y) {
    for (int x = 0; x < 40; ++x) {
      const auto i = static_cast<std::size_t>(y * 40 + x);
      scene.ms.bands[2][i] = scene.ms.bands[0][i] + 50.0 * x;
    }
  }
  // No pixel whose repeated edge would bend the ramp.
  const double noData = -1.0;
  for (int y = 0; y < 30; ++y) {
    for (auto& band : scene.ms.bands)
      band[static_cast<std::size_t>(y * 40)] = band[static_cast<std::size_t>(y * 40 + 39)] = noData;
  }
  WriteImage(scene.ms, scene.param.m_strMSFile, PDT_FLOAT64, "", noData);
  const BayesianModel model = Estimate(scene.param);
  const DenseSamples samples =
      CollectSamples(scene.pan, scene.ms, {0, 1, 2}, GridCells(scene.pan, scene.ms), std::nullopt, noData);
  DenseModel dense = Fit(samples);
  const double ridge = 1e-9 * dense.sigma.trace() / 3.0;
  dense.sigma += ridge * Eigen::MatrixXd::Identity(3, 3);
  // Written without the inverse of Sigma, which has nine digits less.
  const double k = 0.5 / (0.5 * dense.variance);
  const Eigen::VectorXd spread = dense.sigma * dense.beta;
  const double scale = 1.0 + k * dense.beta.dot(spread);
  for (std::size_t b = 0; b < 3; ++b) {
    EXPECT_NEAR(model.panCovariance[b], spread(static_cast<Eigen::Index>(b)) / scale, 1e-8 * spread.norm() / scale);
  }
}

}  // namespace
