#include "band_arithmetic/weight_fusion.h"

#include <gtest/gtest.h>

#include "tests/support/method_sweep.h"

namespace {

using test_support::Deviation;
using test_support::Mean;
using test_support::ReadImage;
using test_support::RecordingProgress;
using test_support::Scene;

/// The correlation pass by definition: every pixel's resampled bands against pan, in row-major order.
std::vector<double> Weights(const Scene& scene, reference::Run run) {
  const std::size_t n = run.msBands.size();
  std::vector<double> means;
  std::vector<double> deviations;
  for (const int b : run.msBands) {
    means.push_back(Mean(scene.ms.bands[static_cast<std::size_t>(b)]));
    deviations.push_back(Deviation(scene.ms.bands[static_cast<std::size_t>(b)]));
  }
  const double panMean = Mean(scene.pan.bands[0]);
  std::vector<double> covariances(n, 0.0);
  long long count = 0;
  run.arithmetic = [&](const reference::Pixel& pixel) {
    for (std::size_t b = 0; b < n; ++b) {
      covariances[b] += (pixel.ms[b] - means[b]) * (pixel.pan - panMean);
      ++count;
    }
    return pixel.ms;
  };
  run.outBandCount = static_cast<int>(n);
  reference::Fuse(run);
  std::vector<double> weights;
  for (std::size_t b = 0; b < n; ++b) {
    weights.push_back(
        std::sqrt(covariances[b] / (Deviation(scene.pan.bands[0]) * deviations[b] * static_cast<double>(count))));
  }
  return weights;
}

/// The weight needs figures whose last bits depend on the order of summing, so the definition is held with the weights
/// that the run itself found; those are compared on their own.
class Recorded : public CWeightFusion {
 public:
  using CWeightFusion::CWeightFusion;
  GISError Preproccess() override {
    const GISError result = CWeightFusion::Preproccess();
    if (m_pWeight) s_weights.assign(&m_pWeight[0], &m_pWeight[m_param.m_vecMSBands.size()]);
    return result;
  }
  static std::vector<double> s_weights;
};
std::vector<double> Recorded::s_weights;

reference::Run Reference(const Scene& scene, const FusionParam& param) {
  reference::Run run = scene.Reference(param);
  run.startAtOutput = true;
  run.arithmetic = [](const reference::Pixel& pixel) {
    std::vector<double> out;
    for (std::size_t b = 0; b < pixel.ms.size(); ++b) {
      const double a = std::fabs(Recorded::s_weights[b]);
      out.push_back(((1.0 - a) * pixel.ms[b] + (1.0 + a) * pixel.pan) * 0.5);
    }
    return out;
  };
  return run;
}

class WeightDefinition : public test_support::MethodSweep {};

TEST_P(WeightDefinition, HoldsForRatiosOffsetsAreasAndMasks) { Sweep<Recorded>(Reference); }

INSTANTIATE_TEST_SUITE_P(AllTypes, WeightDefinition, test_support::AllTypesAndResamplings(),
                         test_support::SweepCaseName);

/// A scene whose bands follow pan to a known degree.
struct Correlated {
  explicit Correlated(int bands, int panWidth = 37, int panHeight = 29)
      : scene(51, Options(bands, panWidth, panHeight)) {
    for (std::size_t b = 0; b < scene.ms.bands.size(); ++b) {
      for (std::size_t i = 0; i < scene.pan.bands[0].size(); ++i) {
        scene.ms.bands[b][i] = scene.pan.bands[0][i] * 2.0 + 7.0 + static_cast<double>(b * ((i * 37) % 101));
      }
    }
    test_support::WriteImage(scene.ms, scene.msFile, PDT_FLOAT64);
  }
  static test_support::SceneOptions Options(int bands, int panWidth, int panHeight) {
    test_support::SceneOptions options;
    options.panWidth = panWidth;
    options.panHeight = panHeight;
    options.ratio = 1.0;
    options.msBands = bands;
    options.msType = PDT_FLOAT64;
    return options;
  }
  Scene scene;
};

TEST(WeightFusion, WeightIsTheRootOfTheCorrelationOverTheNumberOfBands) {
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

/// Holds the weights of a run against the pass written out; they differ only in the last bits of the statistics.
void ExpectWeights(const Scene& scene, FusionParam param, const reference::Run& run) {
  Recorded fusion(&param);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  const auto expected = Weights(scene, run);
  ASSERT_EQ(Recorded::s_weights.size(), expected.size());
  for (std::size_t b = 0; b < expected.size(); ++b) {
    ASSERT_GT(expected[b], 0.0);
    EXPECT_NEAR(Recorded::s_weights[b], expected[b], 1e-10);
  }
}

TEST(WeightFusion, WeightsHoldForEveryResampling) {
  const Correlated correlated(3);
  for (const ResampleType type : {RT_NEAREST, RT_BILINEAR, RT_BICUBIC}) {
    FusionParam param = correlated.scene.Param();
    param.m_eResampleType = type;
    ExpectWeights(correlated.scene, param, Reference(correlated.scene, param));
  }
}

TEST(WeightFusion, WeightsHoldForAChosenAreaOverSeveralBlocks) {
  const Correlated correlated(2, 24, 1090);
  FusionParam param = correlated.scene.Param();
  param.m_rcProcess = {3, 7, 22, 1060};
  ExpectWeights(correlated.scene, param, Reference(correlated.scene, param));
}

TEST(WeightFusion, WeightsCountPixelsInsideTheAreaOfInterestOnly) {
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

TEST(WeightFusion, CorrelationPassShowsItsOwnProgress) {
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

TEST(WeightFusion, CancellingInTheCorrelationPassTakesEffectInTheBlockLoop) {
  const Scene scene(53);
  FusionParam param = scene.Param();
  RecordingProgress progress;
  progress.CancelAtStep(1);
  CWeightFusion fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 1);
  EXPECT_EQ(progress.Steps(), 3) << "the pass's answer does not stop it";
}

TEST(WeightFusion, FailedReadInThePassLeavesErrorTwoAndTheLoopStillRuns) {
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

TEST(WeightFusion, CountGrowsByTheNumberOfBandsPerPixel) {
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

TEST(WeightFusion, CommonRulesOfAMethodHold) { test_support::ExpectCommonRules<CWeightFusion>(); }

}  // namespace
