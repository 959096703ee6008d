// The correlation pass: what the weights are made of, and how the pass runs.
#include <gtest/gtest.h>
#include <ogr_spatialref.h>

#include <cmath>
#include <memory>
#include <utility>

#include "framework/resampling/kernels.h"
#include "tests/band_arithmetic/weight_fixture.h"

namespace {

using test_support::ReadImage;
using test_support::RecordingProgress;
using test_support::Scene;
using test_support::SceneOptions;
using weight::Correlated;
using weight::ExpectWeights;
using weight::Recorded;
using weight::Reference;
using weight::Weights;

TEST(CorrelationPass, WeightIsTheRootOfTheCorrelationOverTheNumberOfBands) {
  const Correlated correlated(4);
  FusionParam param = correlated.scene.Param();
  param.m_eResampleType = RT_NEAREST;
  Recorded fusion(&param);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  ASSERT_EQ(Recorded::s_weights.size(), 4u);
  // The first band is a straight line of pan: correlation 1, divided by four bands, and the root of a quarter.
  EXPECT_NEAR(Recorded::s_weights[0], 0.5, 1e-12);
  const auto expected = Weights(correlated.scene, Reference(correlated.scene, param));
  for (std::size_t b = 0; b < 4; ++b) EXPECT_NEAR(Recorded::s_weights[b], expected[b], 1e-12);
}

TEST(CorrelationPass, WeightsHoldForEveryResampling) {
  const Correlated correlated(3);
  for (const ResampleType type : fusion::kResampleTypes) {
    FusionParam param = correlated.scene.Param();
    param.m_eResampleType = type;
    ExpectWeights(correlated.scene, param, Reference(correlated.scene, param));
  }
}

TEST(CorrelationPass, WeightsHoldForAChosenAreaOverSeveralBlocks) {
  const Correlated correlated(2, 24, 1090);
  FusionParam param = correlated.scene.Param();
  param.m_rcProcess = {3, 7, 22, 1060};
  ExpectWeights(correlated.scene, param, Reference(correlated.scene, param));
}

TEST(CorrelationPass, WeightsCountPixelsInsideTheAreaOfInterestOnly) {
  const Correlated correlated(2);
  FusionParam param = correlated.scene.Param();
  param.m_strAoiFile = L"/vsimem/weight_area.csv";
  const double x = 440000.0 + 5 * 10.0;
  const double y = 4470000.0 - 4 * 10.0;
  test_support::WriteTriangle(param.m_strAoiFile, {x, y}, {x + 200.0, y}, {x, y - 200.0});
  reference::Run run = Reference(correlated.scene, param);
  run.process = {5, 4, 25, 24};
  run.inside = [](int column, int row) { return column - 5 + 0.5 + row - 4 + 0.5 < 20.0; };
  ExpectWeights(correlated.scene, param, run);
}

TEST(CorrelationPass, ShowsItsOwnProgress) {
  test_support::SceneOptions options;
  options.panWidth = 8;
  options.panHeight = 700;
  const Scene scene(52, options);
  FusionParam param = scene.Param();
  RecordingProgress progress;
  CWeightFusion fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  const std::vector<std::wstring> expected = {
      L"Start 正在进行test... 100", L"Step 0 配置参数...", L"Start 正在计算相关系数 ... 2",
      L"Step 1 处理中...",          L"Step 2 处理中...",   L"Start 正在进行test... 2",
      L"Step 1 处理中...",          L"Step 2 处理中...",   L"Finish"};
  EXPECT_EQ(progress.Calls(), expected);
}

TEST(CorrelationPass, CancellingTakesEffectInTheBlockLoop) {
  test_support::SceneOptions options;
  options.panWidth = 8;
  options.panHeight = 700;
  const Scene scene(53, options);
  FusionParam param = scene.Param();
  RecordingProgress progress;
  progress.CancelAtStep(1);
  CWeightFusion fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 1);
  EXPECT_EQ(progress.Steps(), 1 + 2 + 1) << "the answer does not stop the pass";
}

TEST(CorrelationPass, FailedReadLeavesErrorTwoAndTheLoopStillRuns) {
  const Scene scene(54);
  for (const std::wstring& file : {scene.panFile, scene.msFile}) {
    FusionParam param = scene.Param();
    RecordingProgress progress;
    // The statistics read every band once before the pass does.
    const int statisticsReads = file == scene.panFile ? 1 : 3;
    platform::SetRasterFault(
        [&, reads = 0](platform::RasterOperation operation, const std::wstring& path, int, const CRect&) mutable {
          return operation == platform::RasterOperation::kRead && path == file && ++reads == statisticsReads + 1;
        });
    CWeightFusion fusion(&param);
    fusion.SetProgress(&progress);
    fusion.Process();
    platform::SetRasterFault({});
    EXPECT_EQ(fusion.GetLastErrorType(), 2);
    EXPECT_EQ(progress.Calls().back(), L"Step 1 处理中...");
    EXPECT_EQ(progress.Errors(), 0);
    // The weights stayed 0: the plain mean of both images.
    Recorded::s_weights = {0.0, 0.0, 0.0};
    test_support::ExpectEqual(ReadImage(scene.outFile), reference::Fuse(Reference(scene, param)));
  }
}

TEST(CorrelationPass, ARefusedBlockLeavesTheWeightsUncomputedAndTheRunFailed) {
  /// Refuses the pass's only block and none of the loop's.
  class Refusing : public CWeightFusion {
   public:
    using CWeightFusion::CWeightFusion;
    GISError StartBolckProcess() override { return std::exchange(m_refused, true) ? GIS_SUCCESS : GIS_OPEN_FAILED; }
    GISError Preproccess() override {
      const GISError result = CWeightFusion::Preproccess();
      weight = m_pWeight[0];
      return result;
    }
    double weight = -1.0;

   private:
    bool m_refused = false;
  };
  const Scene scene(40);
  FusionParam param = scene.Param();
  RecordingProgress progress;
  Refusing fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  EXPECT_EQ(fusion.weight, 0.0);
  EXPECT_EQ(fusion.GetLastErrorType(), GIS_OPEN_FAILED) << "what the refusal returned";
  EXPECT_FALSE(progress.Finished());
}

TEST(CorrelationPass, CountGrowsByTheNumberOfBandsPerPixel) {
  const Scene scene(56);
  FusionParam param = scene.Param();
  class Counting : public CWeightFusion {
   public:
    using CWeightFusion::CWeightFusion;
    void** AlgorithmProcess(double* pan, CRect* panRect, double** ms, int n, CRect* msRect, PixelDataType, int, CRect*,
                            CRasterAOI* aoi) override {
      double means[] = {0.0, 0.0, 0.0};
      double sums[] = {0.0, 0.0, 0.0};
      ComputeCovSum(pan, panRect, 0.0, 1.0, ms, n, msRect, means, means, sums, count, aoi);
      return nullptr;
    }
    long count = 0;
  } fusion(&param);
  fusion.Process();
  EXPECT_EQ(fusion.count, 37 * 29 * 3);
}

TEST(CorrelationPass, PanIsThePanBand) {
  Correlated correlated(3);
  Scene& scene = correlated.scene;
  // The bands follow the second band of the pan image; the first one has other moments.
  scene.pan.bands.insert(scene.pan.bands.begin(), scene.pan.bands[0]);
  for (std::size_t i = 0; i < scene.pan.bands[0].size(); ++i) scene.pan.bands[0][i] = static_cast<double>(i % 300);
  test_support::WriteImage(scene.pan, scene.panFile, PDT_UINT16);
  FusionParam param = scene.Param();
  param.m_nPanBand = 1;
  ExpectWeights(scene, param, Reference(scene, param));
}

TEST(CorrelationPass, BandsAreTheChosenOnesHoweverMany) {
  const Correlated correlated(9);
  FusionParam param = correlated.scene.Param();
  // Part of the image, since over all of it the bands' means cancel out.
  param.m_rcProcess = {3, 2, 30, 21};
  ExpectWeights(correlated.scene, param, Reference(correlated.scene, param));
  param.m_vecMSBands = {5, 0, 3};
  ExpectWeights(correlated.scene, param, Reference(correlated.scene, param));
}

TEST(CorrelationPass, BlockWithoutReadRectangleIsLeftOutAndNotStepped) {
  class FirstBlock : public Recorded {
   public:
    using Recorded::Recorded;
    bool GetReadBufferRect(CRect* dstBlock, CRect* msRect) override {
      return dstBlock->top == 0 && Recorded::GetReadBufferRect(dstBlock, msRect);
    }
  };
  const Correlated correlated(2, 20, 700);
  FusionParam param = correlated.scene.Param();
  reference::Run run = Reference(correlated.scene, param);
  run.inside = [](int, int row) { return row < 512; };
  RecordingProgress progress;
  FirstBlock fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  const auto expected = Weights(correlated.scene, run);
  for (std::size_t b = 0; b < 2; ++b) EXPECT_NEAR(Recorded::s_weights[b], expected[b], 1e-10);
  EXPECT_EQ(progress.Steps(), 1 + 1 + 1);
}

TEST(CorrelationPass, BlockOutsideTheAreaCountsAsDone) {
  const Correlated correlated(2, 20, 1200);
  FusionParam param = correlated.scene.Param();
  // Two triangles, with nothing of them in the second block.
  param.m_strAoiFile = L"/vsimem/pass_areas.csv";
  test_support::WriteTriangles(param.m_strAoiFile,
                               {{{440000.0, 4470000.0}, {440150.0, 4470000.0}, {440000.0, 4469000.0}},
                                {{440000.0, 4458100.0}, {440150.0, 4458100.0}, {440000.0, 4458000.0}}});
  RecordingProgress progress;
  Recorded fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  const auto& calls = progress.Calls();
  const auto start = std::find(calls.begin(), calls.end(), L"Start 正在计算相关系数 ... 3");
  ASSERT_LT(calls.end() - start, 10);
  ASSERT_GT(calls.end() - start, 4);
  EXPECT_EQ(start[3], L"Step 3 处理中...");
}

/// A smooth pattern on the ground, and one it is mixed with.
double Pattern(double east, double north) { return 500.0 + 200.0 * std::sin(east / 17.0) * std::cos(north / 23.0); }
double Other(double east, double north) { return 150.0 * std::cos(east / 41.0 + north / 29.0); }

/// The weights of the reprojected scene, from exact positions instead of the run's own: the corner of every pixel,
/// taken to degrees by PROJ, and bilinear between the four samples around.
std::vector<double> ExactWeights(const Scene& scene, const CRect& area, OGRCoordinateTransformation& toDegrees) {
  const reference::Image& ms = scene.ms;
  const double panMean = test_support::Mean(scene.pan.bands[0]);
  std::vector<double> weights;
  for (const auto& band : ms.bands) {
    const double mean = test_support::Mean(band);
    double covariance = 0.0;
    for (int row = area.top; row < area.bottom; ++row) {
      for (int column = area.left; column < area.right; ++column) {
        double x = scene.pan.geoTransform[0] + column * scene.pan.geoTransform[1];
        double y = scene.pan.geoTransform[3] + row * scene.pan.geoTransform[5];
        EXPECT_TRUE(toDegrees.Transform(1, &x, &y));
        x = (x - ms.geoTransform[0]) / ms.geoTransform[1] - 0.5;
        y = (y - ms.geoTransform[3]) / ms.geoTransform[5] - 0.5;
        const auto at = [&](int c, int r) { return band.at(static_cast<std::size_t>(r * ms.width + c)); };
        const int c = static_cast<int>(x);
        const int r = static_cast<int>(y);
        const double fx = x - c;
        const double fy = y - r;
        const double value = (at(c, r) * (1 - fx) + at(c + 1, r) * fx) * (1 - fy) +
                             (at(c, r + 1) * (1 - fx) + at(c + 1, r + 1) * fx) * fy;
        const double pan = scene.pan.bands[0][static_cast<std::size_t>(row * scene.pan.width + column)];
        covariance += (value - mean) * (pan - panMean);
      }
    }
    const double count = static_cast<double>(area.Area()) * static_cast<double>(ms.bands.size());
    const double spread = test_support::Deviation(scene.pan.bands[0]) * test_support::Deviation(band);
    weights.push_back(std::sqrt(covariance / (spread * count)));
  }
  return weights;
}

TEST(CorrelationPass, WeightsUnderReprojectionAgreeWithExactPositions) {
  test_support::ReprojectedScene reprojected(57);
  Scene& scene = reprojected.Base();
  OGRSpatialReference utm;
  OGRSpatialReference degrees;
  ASSERT_EQ(utm.importFromEPSG(32630), OGRERR_NONE);
  ASSERT_EQ(degrees.importFromEPSG(4326), OGRERR_NONE);
  degrees.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
  const std::unique_ptr<OGRCoordinateTransformation> toUtm(OGRCreateCoordinateTransformation(&degrees, &utm));
  const std::unique_ptr<OGRCoordinateTransformation> toDegrees(OGRCreateCoordinateTransformation(&utm, &degrees));
  ASSERT_TRUE(toUtm && toDegrees);

  reference::Image& ms = scene.ms;
  for (int i = 0; i < ms.width * ms.height; ++i) {
    double x = ms.geoTransform[0] + (i % ms.width + 0.5) * ms.geoTransform[1];
    double y = ms.geoTransform[3] + (i / ms.width + 0.5) * ms.geoTransform[5];
    ASSERT_TRUE(toUtm->Transform(1, &x, &y));
    for (std::size_t b = 0; b < ms.bands.size(); ++b) {
      ms.bands[b][static_cast<std::size_t>(i)] = Pattern(x, y) + static_cast<double>(b) * Other(x, y);
    }
  }
  reference::Image& pan = scene.pan;
  for (int i = 0; i < pan.width * pan.height; ++i) {
    pan.bands[0][static_cast<std::size_t>(i)] =
        Pattern(pan.geoTransform[0] + (i % pan.width + 0.5) * pan.geoTransform[1],
                pan.geoTransform[3] + (i / pan.width + 0.5) * pan.geoTransform[5]);
  }
  test_support::WriteImage(ms, scene.msFile, PDT_FLOAT64, test_support::Wgs84Wkt());
  test_support::WriteImage(pan, scene.panFile, PDT_FLOAT64, test_support::UtmWkt());

  FusionParam param = scene.Param();
  param.m_eResampleType = RT_BILINEAR;
  param.m_rcProcess = {3, 2, 33, 27};
  param.m_bNeedReproject = true;
  Recorded fusion(&param);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  const auto expected = ExactWeights(scene, param.m_rcProcess, *toDegrees);
  ASSERT_EQ(Recorded::s_weights.size(), 3u);
  // The run's own positions may lie 0.01 samples off.
  for (std::size_t b = 0; b < 3; ++b) EXPECT_NEAR(Recorded::s_weights[b], expected[b], 2e-3 * expected[b]);
}

}  // namespace
