// What the estimator finds, held against the dense definition.
#include "highpass/bayesian_model.h"

#include <gtest/gtest.h>
#include <ogr_spatialref.h>

#include <memory>
#include <random>

#include "platform/raster/raster_fault.h"
#include "tests/highpass/bayesian_fixture.h"
#include "tests/highpass/dense_model.h"
#include "tests/support/method_sweep.h"

namespace {

using highpass_test::BayesianRecord;
using highpass_test::Box;
using highpass_test::CollectSamples;
using highpass_test::DenseModel;
using highpass_test::DenseSamples;
using highpass_test::Estimate;
using highpass_test::Figures;
using highpass_test::Fit;
using highpass_test::GridCells;
using test_support::Scene;
using test_support::SceneOptions;
using test_support::WriteImage;

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
    ExpectModel(Estimate(BayesianRecord(scene, 0.4)), 0.4, Fit(samples));
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
  ExpectModel(Estimate(BayesianRecord(scene)), 0.5, Fit(samples));
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
  ExpectModel(Estimate(BayesianRecord(scene)), 0.5, Fit(valid));
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
  ExpectModel(Estimate(BayesianRecord(scene)), 0.5, Fit(samples));
}

TEST(BayesianEstimator, TakesTheChosenBandsInTheirOrderAndTheChosenPanBand) {
  SceneOptions options;
  options.msBands = 5;
  Scene scene(132, options);
  BayesianFusionParam param = BayesianRecord(scene);
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
  BayesianFusionParam param = BayesianRecord(scene);
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
  BayesianFusionParam param = BayesianRecord(scene);
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
  BayesianFusionParam param = BayesianRecord(scene);
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
  const BayesianModel model = Estimate(BayesianRecord(scene));
  platform::SetRasterFault({});
  EXPECT_LE(largest, 1 << 22);
  const DenseSamples samples = CollectSamples(scene.pan, scene.ms, {0, 1, 2}, GridCells(scene.pan, scene.ms));
  ExpectModel(model, 0.5, Fit(samples));
}

}  // namespace
