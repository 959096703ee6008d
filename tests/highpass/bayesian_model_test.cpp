// What the estimator finds, held against the dense definition.
#include "highpass/bayesian_model.h"

#include <gtest/gtest.h>
#include <ogr_spatialref.h>

#include <memory>
#include <random>

#include "highpass/bayes_pan_sharpening_fusion.h"
#include "platform/raster/raster_fault.h"
#include "tests/highpass/dense_model.h"
#include "tests/support/method_sweep.h"

namespace {

using highpass_test::Box;
using highpass_test::CollectSamples;
using highpass_test::DenseModel;
using highpass_test::DenseSamples;
using highpass_test::Figures;
using highpass_test::Fit;
using highpass_test::GridCells;
using test_support::ReadImage;
using test_support::Scene;
using test_support::SceneOptions;
using test_support::WriteImage;

BayesianFusionParam Record(const Scene& scene, double weight = 0.5) {
  BayesianFusionParam param;
  static_cast<FusionParam&>(param) = scene.Param();
  param.m_dBayesParam = weight;
  return param;
}

BayesianModel Estimate(const BayesianFusionParam& param) {
  BayesianModelEstimator estimator(param);
  estimator.Process();
  EXPECT_EQ(estimator.GetLastErrorType(), 0);
  EXPECT_TRUE(estimator.GetLastErrorMessage().empty());
  return estimator.GetModel();
}

void ExpectClose(double actual, double expected, double scale, const char* what) {
  EXPECT_NEAR(actual, expected, 1e-9 * std::max(scale, 1e-300)) << what;
}

/// The estimated model is the dense one; the matrices are those of the definition for its parts.
void ExpectModel(const BayesianModel& model, double weight, const DenseModel& dense) {
  const auto n = dense.beta.size();
  ASSERT_EQ(model.coefficients.size(), static_cast<std::size_t>(n));
  EXPECT_EQ(model.weight, weight);
  ExpectClose(model.panMean, dense.intercept, std::fabs(dense.intercept) + 1000.0, "intercept");
  ExpectClose(model.panVariance, dense.variance, dense.variance, "residual variance");
  for (Eigen::Index b = 0; b < n; ++b) {
    ExpectClose(model.coefficients[static_cast<std::size_t>(b)], dense.beta(b), dense.beta.norm(), "coefficient");
  }
  const auto figures = Figures(weight, dense.beta, dense.variance, dense.sigma);
  for (Eigen::Index i = 0; i < n; ++i) {
    ExpectClose(model.panCovariance[static_cast<std::size_t>(i)], figures.covariance(i), figures.covariance.norm(),
                "pan covariance");
    for (Eigen::Index j = 0; j < n; ++j) {
      ExpectClose(model.transform[static_cast<std::size_t>(i * n + j)], figures.transform(i, j),
                  figures.transform.norm(), "transform");
    }
  }
}

TEST(BayesianModel, MatricesAreThoseOfTheDefinition) {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> value(-1.0, 1.0);
  for (const int n : {1, 2, 4, 8}) {
    for (const double weight : {0.01, 0.3, 0.5, 0.99}) {
      Eigen::MatrixXd root = Eigen::MatrixXd::NullaryExpr(n, n, [&] { return value(random); });
      DenseModel dense{7.0, Eigen::VectorXd::NullaryExpr(n, [&] { return value(random); }), 2.5,
                       40.0 * (root * root.transpose() + Eigen::MatrixXd::Identity(n, n))};
      const std::vector<double> beta(dense.beta.data(), dense.beta.data() + n);
      const std::vector<double> sigma(dense.sigma.data(), dense.sigma.data() + n * n);
      ExpectModel(fusion::MakeBayesianModel(weight, dense.intercept, beta, dense.variance, sigma), weight, dense);
    }
  }
}

TEST(BayesianModel, VarianceBelowTheLimitCountsAsOneInTheMatricesToo) {
  const std::vector<double> beta = {0.5, 0.25};
  const std::vector<double> sigma = {4.0, 1.0, 1.0, 9.0};
  const BayesianModel one = fusion::MakeBayesianModel(0.3, 1.0, beta, 1.0, sigma);
  for (const double variance : {0.0, 9.9e-9}) {
    const BayesianModel model = fusion::MakeBayesianModel(0.3, 1.0, beta, variance, sigma);
    EXPECT_EQ(model.panVariance, 1.0);
    EXPECT_EQ(model.panCovariance, one.panCovariance);
    EXPECT_EQ(model.transform, one.transform);
  }
  EXPECT_EQ(fusion::MakeBayesianModel(0.3, 1.0, beta, 1e-8, sigma).panVariance, 1e-8);
}

TEST(BayesianEstimator, AgreesWithTheDenseSolutionForRatiosShiftsAndPartialOverlap) {
  struct Case {
    double ratio, shiftX, shiftY;
    int msWidth, msHeight;
    bool southUp;
  };
  const Case cases[] = {{2.0, 0.0, 0.0, 0, 0, false},     {1.0, 0.0, 0.0, 0, 0, false},
                        {4.0, 0.0, 0.0, 0, 0, true},      {2.37, 0.0, 0.0, 0, 0, false},
                        {2.0, -1.5, -0.5, 0, 0, false},   {3.0, 0.7, 1.9, 40, 90, false},
                        {2.0, 31.0, 77.0, 40, 60, false}, {0.5, 3.0, 4.0, 90, 80, true}};
  unsigned seed = 100;
  for (const Case& c : cases) {
    SceneOptions options;
    options.panWidth = 67;
    options.panHeight = 190;
    options.ratio = c.ratio;
    options.msShiftX = c.shiftX;
    options.msShiftY = c.shiftY;
    options.msWidth = c.msWidth;
    options.msHeight = c.msHeight;
    options.southUp = c.southUp;
    const Scene scene(++seed, options);
    SCOPED_TRACE("ratio " + std::to_string(c.ratio) + " shift " + std::to_string(c.shiftX));
    const DenseSamples samples = CollectSamples(scene.pan, scene.ms, {0, 1, 2}, GridCells(scene.pan, scene.ms));
    ASSERT_GT(samples.pan.size(), 100);
    ExpectModel(Estimate(Record(scene, 0.4)), 0.4, Fit(samples));
  }
}

TEST(BayesianEstimator, TilesSeeTheirNeighboursAndEdgesAreRepeated) {
  // Several tiles across and down, each at the image's edge or next to another.
  SceneOptions options;
  options.panWidth = 2200;
  options.panHeight = 150;
  options.ratio = 1.0;
  const Scene scene(120, options);
  const DenseSamples samples = CollectSamples(scene.pan, scene.ms, {0, 1, 2}, GridCells(scene.pan, scene.ms));
  ASSERT_EQ(samples.pan.size(), 2200 * 150);
  ExpectModel(Estimate(Record(scene)), 0.5, Fit(samples));
}

TEST(BayesianEstimator, OnlyPixelsWithAllDataCount) {
  SceneOptions options;
  options.panWidth = 120;
  options.panHeight = 90;
  options.ratio = 2.37;
  options.low = 0.0;
  options.high = 60.0;  // a zero now and then
  options.panNoData = 0.0;
  options.msNoData = 0.0;
  const Scene scene(130, options);
  const auto cells = GridCells(scene.pan, scene.ms);
  const DenseSamples all = CollectSamples(scene.pan, scene.ms, {0, 1, 2}, cells);
  const DenseSamples valid = CollectSamples(scene.pan, scene.ms, {0, 1, 2}, cells, 0.0, 0.0);
  ASSERT_LT(valid.pan.size(), all.pan.size() * 3 / 4);
  ASSERT_GT(valid.pan.size(), 50);
  ExpectModel(Estimate(Record(scene)), 0.5, Fit(valid));
}

TEST(BayesianEstimator, NaNAndInfiniteSamplesDoNotCount) {
  SceneOptions options;
  options.panType = PDT_FLOAT32;
  options.msType = PDT_FLOAT64;
  Scene scene(131, options);
  scene.pan.bands[0][200] = NAN;
  scene.ms.bands[1][40] = INFINITY;
  scene.ms.bands[2][150] = NAN;
  WriteImage(scene.pan, scene.panFile, PDT_FLOAT32);
  WriteImage(scene.ms, scene.msFile, PDT_FLOAT64);
  const DenseSamples samples = CollectSamples(scene.pan, scene.ms, {0, 1, 2}, GridCells(scene.pan, scene.ms));
  ExpectModel(Estimate(Record(scene)), 0.5, Fit(samples));
}

TEST(BayesianEstimator, TakesTheChosenBandsInTheirOrderAndTheChosenPanBand) {
  SceneOptions options;
  options.msBands = 5;
  Scene scene(132, options);
  BayesianFusionParam param = Record(scene);
  param.m_vecMSBands = {4, 0};
  const DenseSamples samples = CollectSamples(scene.pan, scene.ms, {4, 0}, GridCells(scene.pan, scene.ms));
  ExpectModel(Estimate(param), 0.5, Fit(samples));

  reference::Image twoBands = scene.pan;
  twoBands.bands.insert(twoBands.bands.begin(), std::vector<double>(twoBands.bands[0].size(), 3.0));
  WriteImage(twoBands, scene.panFile, PDT_UINT16);
  param.m_nPanBand = 1;
  ExpectModel(Estimate(param), 0.5, Fit(samples));
}

TEST(BayesianEstimator, DoesNotLookAtTheWindowOfTheRun) {
  const Scene scene(133);
  BayesianFusionParam param = Record(scene);
  const BayesianModel whole = Estimate(param);
  param.m_rcProcess = {3, 3, 12, 12};
  EXPECT_EQ(Estimate(param).coefficients, whole.coefficients);
}

TEST(BayesianEstimator, TurnedImagesUseTheUprightRectangleAroundEachCentre) {
  Scene scene(134);
  // The multispectral image turned by some degrees, both seen as they lie.
  const double angle = 0.15;
  double* m = scene.ms.geoTransform;
  m[0] = 440060.0;
  m[3] = 4469990.0;
  m[1] = 14.0 * std::cos(angle);
  m[4] = -14.0 * std::sin(angle);
  m[2] = -16.0 * std::sin(angle);
  m[5] = -16.0 * std::cos(angle);
  WriteImage(scene.ms, scene.msFile, PDT_UINT16);
  BayesianFusionParam param = Record(scene);
  param.m_bOpenOption = false;
  const auto cell = [&](int column, int row) {
    const double gx = m[0] + (column + 0.5) * m[1] + (row + 0.5) * m[2];
    const double gy = m[3] + (column + 0.5) * m[4] + (row + 0.5) * m[5];
    const double x = (gx - 440000.0) / 10.0;
    const double y = (4470000.0 - gy) / 10.0;
    const double width = (std::fabs(m[1]) + std::fabs(m[2])) / 10.0;
    const double height = (std::fabs(m[4]) + std::fabs(m[5])) / 10.0;
    return Box{x - width / 2, y - height / 2, x + width / 2, y + height / 2};
  };
  const DenseSamples samples = CollectSamples(scene.pan, scene.ms, {0, 1, 2}, cell);
  ASSERT_GT(samples.pan.size(), 50);
  ExpectModel(Estimate(param), 0.5, Fit(samples));
}

TEST(BayesianEstimator, OtherCoordinateSystemsUseTheUprightRectangleAroundEachTransformedCentre) {
  test_support::ReprojectedScene reprojected(135);
  const Scene& scene = reprojected.Base();
  BayesianFusionParam param = Record(scene);
  param.m_bNeedReproject = true;

  OGRSpatialReference degrees;
  OGRSpatialReference utm;
  degrees.importFromEPSG(4326);
  utm.importFromEPSG(32630);
  degrees.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
  const std::unique_ptr<OGRCoordinateTransformation> toUtm(OGRCreateCoordinateTransformation(&degrees, &utm));
  const double* m = scene.ms.geoTransform;
  const auto carry = [&](double column, double row) {
    double x = m[0] + column * m[1];
    double y = m[3] + row * m[5];
    EXPECT_TRUE(toUtm->Transform(1, &x, &y));
    return reference::Position{(x - 440000.0) / 10.0, (4470000.0 - y) / 10.0};
  };
  // The pixel's size: the transformed image over its columns and rows.
  double minX = 1e9, maxX = -1e9, minY = 1e9, maxY = -1e9;
  for (int i = 0; i <= 20; ++i) {
    for (const auto& p : {carry(24.0 * i / 20, 0.0), carry(24.0 * i / 20, 20.0), carry(0.0, i), carry(24.0, i)}) {
      minX = std::min(minX, p.x);
      maxX = std::max(maxX, p.x);
      minY = std::min(minY, p.y);
      maxY = std::max(maxY, p.y);
    }
  }
  const double width = (maxX - minX) / 24.0;
  const double height = (maxY - minY) / 20.0;
  const auto cell = [&](int column, int row) {
    const auto p = carry(column + 0.5, row + 0.5);
    return Box{p.x - width / 2, p.y - height / 2, p.x + width / 2, p.y + height / 2};
  };
  const DenseModel dense = Fit(CollectSamples(scene.pan, scene.ms, {0, 1, 2}, cell));
  const BayesianModel model = Estimate(param);
  // Positions come from a grid that is as good as exact here, but not to the last digit.
  for (std::size_t b = 0; b < 3; ++b) {
    EXPECT_NEAR(model.coefficients[b], dense.beta(static_cast<Eigen::Index>(b)), 1e-4 * dense.beta.norm());
  }
  EXPECT_NEAR(model.panVariance, dense.variance, 1e-4 * dense.variance);
  EXPECT_NEAR(model.panMean, dense.intercept, 1e-4 * std::fabs(dense.intercept));
}

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

class BayesianRefusal : public testing::Test {
 protected:
  BayesianRefusal() : m_scene(200), m_param(Record(m_scene)) {}
  ~BayesianRefusal() override { platform::SetRasterFault({}); }

  void ExpectError(int type, const std::wstring& message = {}) {
    test_support::RecordingProgress progress;
    BayesianModelEstimator estimator(m_param);
    estimator.SetProgress(&progress);
    estimator.Process();
    EXPECT_EQ(estimator.GetLastErrorType(), type);
    EXPECT_FALSE(estimator.GetLastErrorMessage().empty());
    if (!message.empty()) {
      EXPECT_EQ(estimator.GetLastErrorMessage(), message);
    }
    EXPECT_EQ(progress.Errors(), 1);
    EXPECT_FALSE(progress.Finished());
    EXPECT_TRUE(estimator.GetModel().coefficients.empty());
  }
  void Rewrite() {
    WriteImage(m_scene.pan, m_scene.panFile, PDT_FLOAT64, "", m_noData);
    WriteImage(m_scene.ms, m_scene.msFile, PDT_FLOAT64, "", m_noData);
  }

  Scene m_scene;
  BayesianFusionParam m_param;
  std::optional<double> m_noData;
};

TEST_F(BayesianRefusal, TooFewCommonPixels) {
  m_scene.ms.geoTransform[0] += 34.0 * 10.0;  // one whole column under the pan image, a corner of it
  m_scene.ms.geoTransform[3] -= 24.0 * 10.0;
  Rewrite();
  ExpectError(7, L"有效的公共像元太少，无法估计贝叶斯模型！");
  m_scene.ms.geoTransform[0] += 1e6;
  Rewrite();
  ExpectError(7, L"有效的公共像元太少，无法估计贝叶斯模型！");
}

TEST_F(BayesianRefusal, PanWithoutSpread) {
  for (double& v : m_scene.pan.bands[0]) v = 1234.1;
  Rewrite();
  ExpectError(10, L"影像数据标准差为零，无法估计贝叶斯模型！");
}

TEST_F(BayesianRefusal, BandWithoutSpread) {
  for (double& v : m_scene.ms.bands[1]) v = 0.7;
  Rewrite();
  ExpectError(10);
}

TEST_F(BayesianRefusal, BandWithoutDetail) {
  m_noData = -1.0;
  const int width = m_scene.ms.width;
  for (int y = 0; y < m_scene.ms.height; ++y) {
    for (int x = 0; x < width; ++x) {
      const bool edge = x == 0 || y == 0 || x == width - 1 || y == m_scene.ms.height - 1;
      m_scene.ms.bands[1][static_cast<std::size_t>(y * width + x)] = edge ? -1.0 : 5.0 * x + 9.0 * y;
    }
  }
  Rewrite();
  ExpectError(10);
}

TEST_F(BayesianRefusal, LinearlyDependentBands) {
  m_scene.ms.bands[2] = m_scene.ms.bands[0];
  Rewrite();
  ExpectError(7, L"多光谱波段线性相关，无法估计贝叶斯模型！");
  for (std::size_t i = 0; i < m_scene.ms.bands[2].size(); ++i) {
    m_scene.ms.bands[2][i] = 0.3 * m_scene.ms.bands[0][i] + 0.7 * m_scene.ms.bands[1][i] + 11.0;
  }
  Rewrite();
  ExpectError(7, L"多光谱波段线性相关，无法估计贝叶斯模型！");
  // The same bands chosen twice.
  m_param.m_vecMSBands = {0, 1, 0};
  ExpectError(7);
}

TEST_F(BayesianRefusal, ValuesTooLargeForTheirSquares) {
  for (double& v : m_scene.ms.bands[0]) v *= 1e200;
  Rewrite();
  ExpectError(7);
}

TEST_F(BayesianRefusal, WeightThatIsNotBetweenZeroAndOne) {
  for (const double weight : {0.0, 1.0, -0.5, 1.5, std::nan("")}) {
    m_param.m_dBayesParam = weight;
    ExpectError(6);
  }
}

TEST_F(BayesianRefusal, FilesAndBandsThatAreNotThere) {
  m_param.m_vecMSBands = {0, 3};
  ExpectError(2);
  m_param.m_vecMSBands = {};
  m_param.m_nPanBand = 1;
  ExpectError(2);
  m_param.m_strMSFile = L"/vsimem/没有.tif";
  ExpectError(4, L"打开文件（/vsimem/没有.tif）失败！");
}

TEST_F(BayesianRefusal, ReprojectionWithoutCoordinateSystems) {
  m_param.m_bNeedReproject = true;
  ExpectError(20, L"重投影失败！");
}

TEST_F(BayesianRefusal, FailedReadsOfEitherPass) {
  for (const auto& file : {m_scene.panFile, m_scene.msFile}) {
    for (const int succeeding : {0, 1, 4}) {
      int reads = 0;
      platform::SetRasterFault([&](platform::RasterOperation op, const std::wstring& path, int, const CRect&) {
        return op == platform::RasterOperation::kRead && path == file && reads++ >= succeeding;
      });
      if (file == m_scene.panFile && succeeding > 1) continue;  // one tile, two passes
      ExpectError(2, L"读取数据失败！");
    }
  }
}

TEST_F(BayesianRefusal, ExceptionsFromBelow) {
  platform::SetRasterFault([](platform::RasterOperation op, const std::wstring&, int, const CRect&) -> bool {
    if (op == platform::RasterOperation::kRead) throw std::bad_alloc();
    return false;
  });
  ExpectError(6, L"内存不足！");
}

TEST(BayesianEstimator, StepsThroughBothPassesAndCanBeCancelledInEach) {
  SceneOptions options;
  options.panWidth = 40;
  options.panHeight = 400;
  const Scene scene(210, options);  // 200 multispectral rows, four tiles
  test_support::RecordingProgress progress;
  BayesianModelEstimator estimator(Record(scene));
  estimator.SetProgress(&progress);
  estimator.Process();
  EXPECT_EQ(estimator.GetLastErrorType(), 0);
  EXPECT_EQ(progress.Calls().front(), L"Start 正在进行贝叶斯模型估计... 8");
  EXPECT_EQ(progress.Steps(), 8);
  EXPECT_EQ(progress.Calls().back(), L"Finish");
  for (const int step : {1, 4, 5, 8}) {
    test_support::RecordingProgress cancelling;
    cancelling.CancelAtStep(step);
    estimator.SetProgress(&cancelling);
    estimator.Process();
    EXPECT_EQ(estimator.GetLastErrorType(), 1);
    EXPECT_EQ(cancelling.Steps(), step);
    EXPECT_EQ(cancelling.Errors(), 0);
    EXPECT_FALSE(cancelling.Finished());
    EXPECT_TRUE(estimator.GetModel().coefficients.empty());
  }
}

TEST(BayesianEstimator, ReadsBoundedPiecesWhateverTheRatio) {
  SceneOptions options;
  options.panWidth = 2560;
  options.panHeight = 2000;
  options.ratio = 160.0;
  options.panType = PDT_UINT8;
  options.high = 250.0;
  const Scene scene(211, options);
  std::int64_t largest = 0;
  platform::SetRasterFault([&](platform::RasterOperation op, const std::wstring&, int, const CRect& rect) {
    if (op == platform::RasterOperation::kRead) largest = std::max(largest, rect.Area());
    return false;
  });
  const BayesianModel model = Estimate(Record(scene));
  platform::SetRasterFault({});
  EXPECT_LE(largest, 1 << 22);
  const DenseSamples samples = CollectSamples(scene.pan, scene.ms, {0, 1, 2}, GridCells(scene.pan, scene.ms));
  ExpectModel(model, 0.5, Fit(samples));
}

}  // namespace
