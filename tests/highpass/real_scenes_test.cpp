// The family on satellite images.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <memory>

#include "band_arithmetic/brovey_fusion.h"
#include "highpass/bayes_pan_sharpening_fusion.h"
#include "highpass/hpf_fusion_process_alg.h"
#include "highpass/simple_pan_sharpening_fusion_process_alg.h"
#include "platform/raster/coordinate_algorithm.h"
#include "platform/utility/common_fun.h"
#include "quality/errors.h"
#include "tests/highpass/pipeline_fixture.h"
#include "tests/support/method_sweep.h"
#include "tests/support/test_raster.h"
#include "transform/prin_component_fusion.h"

namespace {

using test_support::Deviation;
using test_support::Mean;
using test_support::ReadImage;

/// Tests of a scene are skipped where the scenes are not at hand.
class RealScene : public highpass_test::PipelineFiles {
 protected:
  /// False where the scene is absent.
  bool Choose(const std::string& scene) {
    const std::wstring folder = test_support::RealSceneFolder(scene);
    if (folder.empty()) return false;
    m_panFile = folder + L"pan.tif";
    m_msFile = folder + L"ms.tif";
    m_refFile = folder + L"ref.tif";
    return true;
  }

  template <typename Param>
  Param Record(PixelDataType type) const {
    Param param;
    param.m_strPanFile = m_panFile;
    param.m_strMSFile = m_msFile;
    param.m_strOutFile = m_outFile;
    param.m_eOutDataType = type;
    CCoordinateAlgorithm::IsNeededProject(m_panFile, m_msFile, param.m_bNeedReproject);
    return param;
  }

  static void RunWell(CBaseAlgorithm& algorithm) {
    algorithm.Process();
    ASSERT_EQ(algorithm.GetLastErrorType(), 0) << CommonFun::U2Utf8(algorithm.GetLastErrorMessage());
    ASSERT_TRUE(algorithm.GetLastErrorMessage().empty());
  }

  BayesianModel Model(double weight = 0.5) const {
    auto param = Record<BayesianFusionParam>(PDT_FLOAT32);
    param.m_dBayesParam = weight;
    BayesianModelEstimator estimator(param);
    RunWell(estimator);
    return estimator.GetModel();
  }

  std::wstring m_refFile;
};

#define CHOOSE_OR_SKIP(scene) \
  if (!Choose(scene)) GTEST_SKIP() << "no scene " << scene << " beside the checkout"

class RealPipelines : public RealScene, public testing::WithParamInterface<const char*> {};

TEST_P(RealPipelines, HpfRunsInEveryCombinationOfItsStages) {
  CHOOSE_OR_SKIP(GetParam());
  reference::Image ms = ReadImage(m_msFile);
  // Filled corners are no-data where there are any.
  for (auto& band : ms.bands) std::erase(band, 0.0);
  for (int combination = 0; combination < 8; ++combination) {
    auto param = Record<HpfFusionParam>(PDT_UNKNOWN);
    param.m_filter1 = highpass_test::HighPass(5);
    param.m_filter2 = highpass_test::HighPass(9);
    param.m_bSecondFilter = (combination & 1) != 0;
    param.m_bMakeGreen = (combination & 2) != 0;
    param.m_bDataStretch = (combination & 4) != 0;
    SCOPED_TRACE("combination " + std::to_string(combination));
    CHpfFusionProcessAlg pipeline(&param);
    RunWell(pipeline);
    for (const auto& file : NewFiles()) EXPECT_TRUE(file.starts_with(L"融合.tif")) << CommonFun::U2Utf8(file);

    const auto out = ReadImage(m_outFile);
    ASSERT_EQ(out.bands.size(), ms.bands.size());
    for (std::size_t b = 0; b < out.bands.size(); ++b) {
      const auto [low, high] = std::minmax_element(out.bands[b].begin(), out.bands[b].end());
      if (param.m_bDataStretch) {
        EXPECT_EQ(*low, 0.0);
        EXPECT_EQ(*high, 255.0);
      } else if (b != 1) {
        // Spectrally corrected; green may be mixed. Clamping at the type's ends moves the figures a little.
        EXPECT_NEAR(Mean(out.bands[b]), Mean(ms.bands[b]), 0.01 * Mean(ms.bands[b]));
        EXPECT_NEAR(Deviation(out.bands[b]), Deviation(ms.bands[b]), 0.05 * Deviation(ms.bands[b]));
      }
    }
  }
}

TEST_P(RealPipelines, SharpenRunsInEveryCombinationOfItsStages) {
  CHOOSE_OR_SKIP(GetParam());
  const std::size_t bands = ReadImage(m_msFile).bands.size();
  for (int combination = 0; combination < 4; ++combination) {
    auto param = Record<HpfFusionParam>(PDT_UINT16);
    param.m_bMakeGreen = (combination & 1) != 0;
    param.m_bDataStretch = (combination & 2) != 0;
    SCOPED_TRACE("combination " + std::to_string(combination));
    CSimplePanSharpeningFusionProcessAlg pipeline(&param);
    RunWell(pipeline);
    for (const auto& file : NewFiles()) EXPECT_TRUE(file.starts_with(L"融合.tif")) << CommonFun::U2Utf8(file);
    const auto out = ReadImage(m_outFile);
    ASSERT_EQ(out.bands.size(), bands);
    const auto [low, high] = std::minmax_element(out.bands[0].begin(), out.bands[0].end());
    EXPECT_LT(*low, *high);
    if (param.m_bDataStretch) {
      EXPECT_EQ(*low, 0.0);
      EXPECT_EQ(*high, 65535.0);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Scenes, RealPipelines,
                         testing::Values("l8_tiny", "l8_momotombo_4band", "l8_madrid_3band", "l8_ms_epsg4326",
                                         "l8_partial_overlap"));

/// The bands resampled and nothing else.
class Upsampling : public CFusion {
 public:
  using CFusion::CFusion;
  void** AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect,
                          PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI* aoi) override {
    return FuseRows({pan, panRect, nullptr, ms, msBandCount, msRect, outType, outBandCount, dstBlock, aoi}, {},
                    [](const fusion::FusionRow& row) {
                      for (int b = 0; b < row.outBandCount; ++b) std::copy_n(row.ms[b], row.width, row.out[b]);
                    });
  }
};

quality::Image ForMeasures(const reference::Image& image) { return {image.width, image.height, image.bands, {}}; }

TEST_F(RealScene, BayesianIsTheNearestToTheTruthOfAReducedScene) {
  CHOOSE_OR_SKIP("l8_momotombo_triple");
  const auto truth = ForMeasures(ReadImage(m_refFile));
  const auto error = [&](CBaseAlgorithm& algorithm) {
    RunWell(algorithm);
    return quality::Ergas(truth, ForMeasures(ReadImage(m_outFile)), 2.0);
  };
  auto record = Record<FusionParam>(PDT_FLOAT32);
  BayesPanSharpeningFusion bayesian(&record);
  bayesian.SetModel(Model());
  Upsampling upsampling(&record);
  CPrinComponentFusion pca(&record);
  auto matched = record;
  matched.m_bSpectralMatch = true;
  CBroveyFusion brovey(&matched);
  auto hpfRecord = Record<HpfFusionParam>(PDT_UNKNOWN);
  hpfRecord.m_filter1 = highpass_test::HighPass(5);
  CHpfFusionProcessAlg hpf(&hpfRecord);

  const double best = error(bayesian);
  EXPECT_LT(best, 1.06);
  EXPECT_GT(best, 0.95) << "better than can be: the truth has leaked in";
  EXPECT_LT(best, error(upsampling));
  EXPECT_LT(best, error(pca));
  EXPECT_LT(best, error(brovey));
  EXPECT_LT(best, error(hpf));
}

}  // namespace
