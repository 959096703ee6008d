// What the high-pass fusion steps do at the edges of their definition.
#include <gtest/gtest.h>

#include <limits>

#include "framework/row_kernel.h"
#include "highpass/bayes_pan_sharpening_fusion.h"
#include "highpass/simple_pan_sharpening_fusion.h"
#include "tests/highpass/highpass_methods.h"
#include "tests/highpass/pipeline_fixture.h"
#include "tests/support/thread_watch.h"

namespace {

using highpass_test::RecordWithSecond;
using highpass_test::WithSecond;
using test_support::OneRow;
using test_support::ReadImage;
using test_support::RecordingProgress;
using test_support::Scene;
using test_support::WriteImage;

double g_deviations[] = {4.0, 12.0, 2.0};

/// Keeps what its preparation answered.
class Prepared : public CHpfFusion {
 public:
  explicit Prepared(FusionParam* param) : CHpfFusion(param) { SetMulStdvValue(g_deviations); }
  GISError Preproccess() override { return answer = CHpfFusion::Preproccess(); }
  GISError answer = GIS_SUCCESS;
};

/// A row of detail of the deviation v.
std::vector<double> Detail(double v) { return {v, -v, v, -v}; }

HpfFusionParam RecordOf(const OneRow& row, const std::vector<double>& second) {
  HpfFusionParam param;
  static_cast<FusionParam&>(param) = row.Param();
  param.m_eOutDataType = PDT_FLOAT64;
  param.m_strSecondHpfFile = L"/vsimem/hpf_edges_second.tif";
  param.m_bSecondFilter = true;
  reference::Image image;
  image.width = static_cast<int>(second.size());
  image.height = 1;
  image.bands = {second};
  WriteImage(image, param.m_strSecondHpfFile, PDT_FLOAT64);
  return param;
}

const std::vector<std::vector<double>> kTwoBands = {{10.0, 20.0, 30.0, 40.0}, {5.0, 6.0, 7.0, 8.0}};

TEST(HpfEdges, SpreadBelow1eMinus8IsNoneInEitherImageAndASpreadAboveIsUsed) {
  const struct {
    double first;
    double second;
    int error;
  } cases[] = {{9.9e-9, 2.0, 10}, {2.0, 9.9e-9, 10}, {1.01e-8, 2.0, 0}, {2.0, 1.01e-8, 0}};
  for (const auto& c : cases) {
    const OneRow row(Detail(c.first), kTwoBands);
    HpfFusionParam param = RecordOf(row, Detail(c.second));
    Prepared fusion(&param);
    fusion.Process();
    EXPECT_EQ(fusion.GetLastErrorType(), c.error) << c.first << ' ' << c.second;
    EXPECT_EQ(fusion.answer, c.error == 0 ? 0 : 4);
    if (c.error != 0) continue;
    // Gains 4 / deviation x weight, times a detail of that size.
    EXPECT_NEAR(ReadImage(param.m_strOutFile).bands[0][0], 10.0 + 4.0 * 0.5 + 4.0 * 0.35, 1e-6);
  }
}

TEST(HpfEdges, MissingBandsOfTheDetailImagesHaveTheirTypesAndMessages) {
  const OneRow row(Detail(2.0), kTwoBands);
  {
    FusionParam param = row.Param();
    param.m_nPanBand = 1;
    Prepared fusion(&param);
    fusion.Process();
    EXPECT_EQ(fusion.GetLastErrorType(), 2);
    EXPECT_EQ(fusion.GetLastErrorMessage(), L"读取全色影像数据失败！");
    EXPECT_EQ(fusion.answer, 4);
  }
  class LosesSecond : public Prepared {
   public:
    using Prepared::ConfigDstRaster;
    using Prepared::Prepared;
    bool ConfigDstRaster(FusionParam* param, CRasterSource* pan, CRasterSource* second, CRasterSource* ms,
                         CRasterSource* dst, std::vector<int>* bands, CRect* rect, CRasterAOI** aoi) override {
      const bool configured = Prepared::ConfigDstRaster(param, pan, second, ms, dst, bands, rect, aoi);
      second->Close();
      return configured;
    }
  };
  HpfFusionParam param = RecordOf(row, Detail(2.0));
  RecordingProgress progress;
  LosesSecond fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 4);
  EXPECT_EQ(progress.Calls().back(), L"Error 4 打开二次滤波影像失败！");
  EXPECT_EQ(fusion.answer, 4);
}

TEST(HpfEdges, CancelledStatisticsReadNoMoreOfTheImage) {
  test_support::SceneOptions options;
  options.panWidth = 1024;
  options.panHeight = 4096;
  options.ratio = 64.0;
  const Scene scene(13, options);
  FusionParam param = scene.Param();
  RecordingProgress progress;
  std::int64_t read = 0;
  platform::SetRasterFault([&](platform::RasterOperation operation, const std::wstring& path, int, const CRect& rect) {
    if (operation == platform::RasterOperation::kRead && path == scene.panFile) {
      read += rect.Area();
      progress.RequestCancel();
    }
    return false;
  });
  Prepared fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  platform::SetRasterFault({});
  EXPECT_EQ(fusion.GetLastErrorType(), 1);
  EXPECT_GT(read, 0);
  EXPECT_LT(read, 1024 * 4096);
}

TEST(HpfEdges, ImagesAreOpenedInTheirOrder) {
  const OneRow row(Detail(2.0), kTwoBands);
  HpfFusionParam param = RecordOf(row, Detail(2.0));
  const auto message = [&] {
    Prepared fusion(&param);
    fusion.Process();
    EXPECT_EQ(fusion.GetLastErrorType(), 4);
    return fusion.GetLastErrorMessage();
  };
  param.m_strSecondHpfFile = L"/vsimem/no_second.tif";
  EXPECT_EQ(message(), L"打开文件（/vsimem/no_second.tif）失败！");
  param.m_strMSFile = L"/vsimem/no_ms.tif";
  EXPECT_EQ(message(), L"打开文件（/vsimem/no_ms.tif）失败！");
  param.m_strPanFile = L"/vsimem/no_pan.tif";
  EXPECT_EQ(message(), L"打开文件（/vsimem/no_pan.tif）失败！");
}

TEST(HpfEdges, WithoutSecondFilteringThereIsOneDetailTermWhateverBlockIsHandedIn) {
  const Scene scene(12);
  FusionParam param = scene.Param();
  class Handed : public Prepared {
   public:
    using Prepared::AlgorithmProcess;
    using Prepared::Prepared;
    GISError Preproccess() override {
      const GISError result = Prepared::Preproccess();
      CRect one(0, 0, 1, 1);
      double pan[] = {0.0};
      double second[] = {std::numeric_limits<double>::infinity()};
      double sample[] = {3.0, 0.0, 0.0, 0.0};
      double* samples[] = {sample, sample, sample};
      void** out = AlgorithmProcess(pan, &one, second, samples, 3, &one, PDT_FLOAT64, 3, &one, nullptr);
      EXPECT_EQ(*static_cast<double*>(out[0]), 3.0);
      fusion::FreeBlock(PDT_FLOAT64, 3, out);
      return result;
    }
  } fusion(&param);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
}

class Sharpening : public WithSecond<CSimplePanSharpeningFusion> {
 public:
  using WithSecond::WithSecond;
};

class Detailed : public CHpfFusion {
 public:
  explicit Detailed(FusionParam* param) : CHpfFusion(param) { SetMulStdvValue(g_deviations); }
};

/// Any model of three bands.
class Bayesian : public BayesPanSharpeningFusion {
 public:
  explicit Bayesian(FusionParam* param) : BayesPanSharpeningFusion(param) {
    BayesianModel model;
    model.weight = 0.5;
    model.panVariance = 2.0;
    model.panCovariance = {1.0, 1.0, 1.0};
    model.transform = {1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
    SetModel(model);
  }
};

TEST(HighPassSteps, LeaveTheValueConversionToTheCaller) {
  test_support::ExpectConversionKept<Detailed>();
  test_support::ExpectConversionKept<Sharpening>();
  test_support::ExpectConversionKept<Bayesian>();
}

TEST(HighPassSteps, SharpeningAloneSharesTheRowsOfABlockOut) {
  using test_support::KernelThreads;
  EXPECT_GE(KernelThreads<test_support::WatchedDetailKernel<Sharpening>>(), 2);
  EXPECT_EQ(KernelThreads<test_support::WatchedDetailKernel<Detailed>>(), 1);
  EXPECT_EQ(KernelThreads<test_support::WatchedKernel<Bayesian>>(), 1);
}

}  // namespace
