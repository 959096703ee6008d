#include "highpass/hpf_fusion.h"

#include <gtest/gtest.h>

#include "tests/highpass/highpass_methods.h"
#include "tests/highpass/pipeline_fixture.h"

namespace {

using highpass_test::SecondImage;
using test_support::OneRow;
using test_support::ReadImage;
using test_support::RecordingProgress;
using test_support::Scene;
using test_support::WriteImage;

double g_deviations[] = {3.0, 40.0, 0.5, 7.25, 11.0};

template <typename Method>
class WithDeviations : public Method {
 public:
  explicit WithDeviations(FusionParam* param) : Method(param) { this->SetMulStdvValue(g_deviations); }
};

using OneDetail = WithDeviations<CHpfFusion>;
using TwoDetails = WithDeviations<highpass_test::WithSecond<CHpfFusion>>;

/// The deviation as the platform computes it, so that the gains agree to the last bit.
double PlatformDeviation(const std::wstring& file) {
  CRasterSource source;
  EXPECT_TRUE(source.OpenSimple(file));
  double minimum, maximum, mean, deviation;
  EXPECT_TRUE(source.GetRasterBand(0)->ComputeStatics(&minimum, &maximum, &mean, &deviation, true, nullptr));
  return deviation;
}

reference::Run OneDetailReference(const Scene& scene, const FusionParam& param) {
  reference::Run run = scene.Reference(param);
  run.reprojectedOffset = 0.5;
  run.arithmetic = [deviation = PlatformDeviation(scene.panFile)](const reference::Pixel& pixel) {
    std::vector<double> out;
    for (std::size_t b = 0; b < pixel.ms.size(); ++b) {
      const double gain = g_deviations[b] / deviation * 0.5;
      out.push_back(gain * pixel.pan + 0.0 + pixel.ms[b]);
    }
    return out;
  };
  return run;
}

reference::Run TwoDetailsReference(const Scene& scene, const FusionParam& param) {
  static reference::Image second;
  second = SecondImage(scene.pan);
  WriteImage(second, L"/vsimem/hpf_second_figures.tif", PDT_INT16);
  reference::Run run = scene.Reference(param);
  run.reprojectedOffset = 0.5;
  run.detail = &second;
  run.arithmetic = [first = PlatformDeviation(scene.panFile),
                    other = PlatformDeviation(L"/vsimem/hpf_second_figures.tif")](const reference::Pixel& pixel) {
    std::vector<double> out;
    for (std::size_t b = 0; b < pixel.ms.size(); ++b) {
      const double gain1 = g_deviations[b] / first * 0.5;
      const double gain2 = g_deviations[b] / other * 0.35;
      out.push_back(gain1 * pixel.pan + gain2 * pixel.detail + pixel.ms[b]);
    }
    return out;
  };
  return run;
}

class HpfDefinition : public test_support::MethodSweep {};

TEST_P(HpfDefinition, HoldsForOneDetailImage) { Sweep<OneDetail>(OneDetailReference); }
TEST_P(HpfDefinition, HoldsForTwoDetailImages) { Sweep<TwoDetails>(TwoDetailsReference); }

INSTANTIATE_TEST_SUITE_P(AllTypes, HpfDefinition, test_support::AllTypesAndResamplings(), test_support::SweepCaseName);

/// A detail image of deviation 2 under two bands.
class HpfOneRow : public testing::Test {
 protected:
  /// A record with a second detail image of one or more rows, weights 1.
  HpfFusionParam WithSecond(const std::vector<double>& values, int height = 1) const {
    HpfFusionParam param;
    static_cast<FusionParam&>(param) = m_row.Param();
    param.m_eOutDataType = PDT_FLOAT64;
    param.m_bSecondFilter = true;
    param.m_strSecondHpfFile = L"/vsimem/hpf_second.tif";
    param.m_dDetailWeight1 = param.m_dDetailWeight2 = 1.0;
    reference::Image second;
    second.width = static_cast<int>(values.size()) / height;
    second.height = height;
    second.bands = {values};
    WriteImage(second, param.m_strSecondHpfFile, PDT_FLOAT64);
    return param;
  }

  OneRow m_row{{2.0, -2.0, 2.0, -2.0}, {{10.0, 20.0, 30.0, 40.0}, {5.0, 6.0, 7.0, 8.0}}};
  double m_deviations[2] = {4.0, 12.0};
};

TEST_F(HpfOneRow, DetailIsScaledToTheSpreadOfEachBandTimesTheWeight) {
  const auto out = m_row.Fuse<CHpfFusion>(PDT_FLOAT64, [&](CHpfFusion& f) { f.SetMulStdvValue(m_deviations); });
  // Gains 4 / 2 x 0.5 = 1 and 12 / 2 x 0.5 = 3.
  EXPECT_EQ(out[0], (std::vector<double>{12.0, 18.0, 32.0, 38.0}));
  EXPECT_EQ(out[1], (std::vector<double>{11.0, 0.0, 13.0, 2.0}));
}

TEST_F(HpfOneRow, SecondDetailHasAGainOfItsOwn) {
  HpfFusionParam param = WithSecond({8.0, 8.0, -8.0, -8.0});
  param.m_dDetailWeight2 = 0.25;
  CHpfFusion fusion(&param);
  fusion.SetMulStdvValue(m_deviations);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  // Gains 4 / 2 = 2 and 4 / 8 x 0.25 = 0.125 for the first band, 6 and 0.375 for the second.
  const auto out = ReadImage(param.m_strOutFile).bands;
  EXPECT_EQ(out[0], (std::vector<double>{15.0, 17.0, 33.0, 35.0}));
  EXPECT_EQ(out[1], (std::vector<double>{20.0, -3.0, 16.0, -7.0}));
}

TEST_F(HpfOneRow, DetailImageWithoutSpreadIsErrorTen) {
  const OneRow flat({5.0, 5.0, 5.0, 5.0}, {{1.0, 2.0, 3.0, 4.0}, {1.0, 2.0, 3.0, 4.0}});
  FusionParam param = flat.Param();
  RecordingProgress progress;
  CHpfFusion fusion(&param);
  fusion.SetProgress(&progress);
  fusion.SetMulStdvValue(m_deviations);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 10);
  EXPECT_EQ(fusion.GetLastErrorMessage(), L"出错了，全色影像数据标准差为零！");
  EXPECT_EQ(progress.Calls().back(), L"Error 10 出错了，全色影像数据标准差为零！");
}

TEST_F(HpfOneRow, SecondDetailImageWithoutSpreadIsErrorTen) {
  HpfFusionParam param = WithSecond({8.0, 8.0, 8.0, 8.0});
  CHpfFusion fusion(&param);
  fusion.SetMulStdvValue(m_deviations);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 10);
  EXPECT_EQ(fusion.GetLastErrorMessage(), L"出错了，二次滤波后全色影像数据标准差为零！");
}

TEST_F(HpfOneRow, SecondImageOfAnotherSizeIsRefused) {
  for (const auto& [width, height] : {std::pair(5, 1), std::pair(4, 2)}) {
    HpfFusionParam param = WithSecond(std::vector<double>(static_cast<std::size_t>(width * height), 1.0), height);
    param.m_strOutFile = L"/vsimem/hpf_refused.tif";
    CHpfFusion fusion(&param);
    fusion.SetMulStdvValue(m_deviations);
    fusion.Process();
    EXPECT_NE(fusion.GetLastErrorType(), 0);
    EXPECT_EQ(fusion.GetLastErrorMessage(), L"二次滤波处理影像与第一次处理影像不匹配！");
    EXPECT_FALSE(test_support::FileExists(param.m_strOutFile));
  }
}

TEST_F(HpfOneRow, SecondImageThatDoesNotOpenIsErrorFourOnlyWhenItIsWanted) {
  HpfFusionParam param;
  static_cast<FusionParam&>(param) = m_row.Param();
  param.m_strSecondHpfFile = L"/vsimem/没有.tif";
  {
    CHpfFusion fusion(&param);
    fusion.SetMulStdvValue(m_deviations);
    fusion.Process();
    test_support::ExpectSuccess(fusion);
  }
  param.m_bSecondFilter = true;
  CHpfFusion fusion(&param);
  fusion.SetMulStdvValue(m_deviations);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 4);
  EXPECT_EQ(fusion.GetLastErrorMessage(), L"打开文件（/vsimem/没有.tif）失败！");
}

TEST_F(HpfOneRow, NoInputIsEverReplaced) {
  HpfFusionParam param = highpass_test::RecordWithSecond(m_row.Param());
  for (const auto& input : {param.m_strPanFile, param.m_strMSFile, param.m_strSecondHpfFile}) {
    const auto before = ReadImage(input).bands;
    param.m_strOutFile = input;
    CHpfFusion fusion(&param);
    fusion.SetMulStdvValue(m_deviations);
    fusion.Process();
    EXPECT_EQ(fusion.GetLastErrorType(), 5);
    EXPECT_EQ(ReadImage(input).bands, before);
  }
}

TEST_F(HpfOneRow, PanBandThatDoesNotExistIsErrorTwo) {
  FusionParam param = m_row.Param();
  param.m_nPanBand = 1;
  CHpfFusion fusion(&param);
  fusion.SetMulStdvValue(m_deviations);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 2);
  EXPECT_EQ(fusion.GetLastErrorMessage(), L"读取全色影像数据失败！");
}

TEST_F(HpfOneRow, SecondDetailIsReadFromThePanBandIndexButMeasuredOnItsFirstBand) {
  // Two bands in both detail images; the pan band is the second one.
  reference::Image image;
  image.width = 4;
  image.height = 1;
  image.bands = {{1.0, 1.0, 1.0, 9.0}, {2.0, -2.0, 2.0, -2.0}};
  HpfFusionParam param;
  static_cast<FusionParam&>(param) = m_row.Param();
  param.m_eOutDataType = PDT_FLOAT64;
  param.m_strPanFile = L"/vsimem/hpf_two_bands.tif";
  param.m_nPanBand = 1;
  param.m_bSecondFilter = true;
  param.m_strSecondHpfFile = L"/vsimem/hpf_second.tif";
  param.m_dDetailWeight1 = param.m_dDetailWeight2 = 1.0;
  WriteImage(image, param.m_strPanFile, PDT_FLOAT64);
  image.bands = {{4.0, 4.0, -4.0, -4.0}, {100.0, 0.0, 0.0, 0.0}};
  WriteImage(image, param.m_strSecondHpfFile, PDT_FLOAT64);
  CHpfFusion fusion(&param);
  fusion.SetMulStdvValue(m_deviations);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  // First gain 4 / 2; second gain 4 / 4 from the first band, times the second band's values.
  EXPECT_EQ(ReadImage(param.m_strOutFile).bands[0], (std::vector<double>{114.0, 16.0, 34.0, 36.0}));
}

TEST_F(HpfOneRow, RunWithoutDeviationsIsErrorSeven) {
  FusionParam param = m_row.Param();
  CHpfFusion fusion(&param);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 7);
}

TEST_F(HpfOneRow, OutputBandsBeyondTheResampledOnesAreZero) {
  FusionParam param = m_row.Param();
  param.m_nOutBandCount = 4;
  CHpfFusion fusion(&param);
  fusion.SetMulStdvValue(m_deviations);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  const auto out = ReadImage(param.m_strOutFile).bands;
  ASSERT_EQ(out.size(), 4u);
  EXPECT_EQ(out[0], (std::vector<double>{12.0, 18.0, 32.0, 38.0}));
  EXPECT_EQ(out[2], std::vector<double>(4, 0.0));
  EXPECT_EQ(out[3], std::vector<double>(4, 0.0));
}

TEST(HpfFusion, SpectralMatchingOfTheRecordIsNotCarriedOut) {
  // Left to the pipeline's own stage: the run writes its temporary file and stops there.
  const Scene scene(5);
  FusionParam param = scene.Param();
  param.m_bSpectralMatch = true;
  OneDetail fusion(&param);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  EXPECT_FALSE(test_support::FileExists(scene.outFile));
}

TEST(HpfFusion, BlockSizeAndStepsAreThoseOfTheCommonLoop) {
  test_support::SceneOptions options;
  options.panWidth = 24;
  options.panHeight = 1300;
  const Scene scene(6, options);
  FusionParam param = scene.Param();
  RecordingProgress progress;
  OneDetail fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  EXPECT_EQ(progress.Calls(),
            (std::vector<std::wstring>{L"Start 正在进行test... 100", L"Step 0 配置参数...", L"Start 正在进行test... 3",
                                       L"Step 1 处理中...", L"Step 2 处理中...", L"Step 3 处理中...", L"Finish"}));
}

TEST(HpfFusion, CancellationIsLoggedUnderItsOwnName) {
  const Scene scene(7);
  FusionParam param = scene.Param();
  RecordingProgress progress;
  progress.CancelAtStep(1);
  highpass_test::RecordingLog log;
  OneDetail fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 1);
  EXPECT_FALSE(progress.Finished());
  EXPECT_EQ(log.Entries(),
            (std::vector<highpass_test::RecordingLog::Entry>{
                {2, "HpfFusion", "CHpfFusion::Process", L"  WARNING: 用户取消了处理进程，处理失败！ ..."}}));
}

TEST(HpfFusion, CancellationWhileMeasuringEitherDetailIsLoggedAndNotReported) {
  const Scene scene(8);
  FusionParam param = scene.Param();
  const std::wstring second = highpass_test::RecordWithSecond(param).m_strSecondHpfFile;
  for (const auto& file : {scene.panFile, second}) {
    RecordingProgress progress;
    highpass_test::RecordingLog log;
    TwoDetails fusion(&param);
    // The user cancels while the image is read for the first time.
    platform::SetRasterFault([&](platform::RasterOperation operation, const std::wstring& path, int, const CRect&) {
      if (operation == platform::RasterOperation::kRead && path == file) progress.RequestCancel();
      return false;
    });
    fusion.SetProgress(&progress);
    fusion.Process();
    platform::SetRasterFault({});
    EXPECT_EQ(fusion.GetLastErrorType(), 1);
    EXPECT_TRUE(fusion.GetLastErrorMessage().empty());
    EXPECT_EQ(progress.Calls(), (std::vector<std::wstring>{L"Start 正在进行test... 100", L"Step 0 配置参数..."}));
    EXPECT_EQ(log.Entries(),
              (std::vector<highpass_test::RecordingLog::Entry>{
                  {2, "HpfFusion", "CHpfFusion::Process", L"  WARNING: 用户取消了处理进程，处理失败！ ..."}}));
  }
}

TEST(HpfFusion, FailuresOfEachFileHaveTheirTypeAndMessage) {
  struct Case {
    platform::RasterOperation operation;
    std::wstring file;
    int after;  ///< operations of that kind on that file that still succeed
    int type;
    std::wstring message;
  };
  const Scene scene(9);
  FusionParam param = scene.Param();
  const std::wstring second = highpass_test::RecordWithSecond(param).m_strSecondHpfFile;
  const std::vector<Case> cases = {
      {platform::RasterOperation::kOpen, scene.panFile, 1, 4, L"打开文件（" + scene.panFile + L"）失败！"},
      {platform::RasterOperation::kOpen, scene.msFile, 0, 4, L"打开文件（" + scene.msFile + L"）失败！"},
      {platform::RasterOperation::kOpen, second, 0, 4, L"打开文件（" + second + L"）失败！"},
      {platform::RasterOperation::kRead, scene.panFile, 1, 2, L"读取数据失败！"},
      {platform::RasterOperation::kRead, second, 1, 2, L"读取数据失败！"},
      {platform::RasterOperation::kRead, scene.msFile, 0, 2, L"读取数据失败！"},
      {platform::RasterOperation::kWrite, scene.outFile, 0, 3, L"写数据失败！"},
      {platform::RasterOperation::kClose, scene.outFile, 0, 3, L"写数据失败！"},
  };
  for (const Case& c : cases) {
    TwoDetails fusion(&param);
    int seen = c.operation == platform::RasterOperation::kOpen && c.file == scene.panFile ? 1 : 0;
    platform::SetRasterFault([&](platform::RasterOperation op, const std::wstring& file, int, const CRect&) {
      return op == c.operation && file == c.file && seen++ >= c.after;
    });
    RecordingProgress progress;
    fusion.SetProgress(&progress);
    fusion.Process();
    platform::SetRasterFault({});
    EXPECT_EQ(fusion.GetLastErrorType(), c.type);
    EXPECT_EQ(fusion.GetLastErrorMessage(), c.message);
    EXPECT_EQ(progress.Errors(), 1);
    EXPECT_EQ(progress.Calls().back(), L"Error " + std::to_wstring(c.type) + L" " + c.message);
  }
}

TEST(HpfFusion, UnknownOutputTypesAndTheThreeSourceFormYieldNoBlock) {
  const Scene scene(10);
  FusionParam param = scene.Param();
  class Typed : public OneDetail {
   public:
    using OneDetail::OneDetail;
    GISError Preproccess() override {
      const GISError result = OneDetail::Preproccess();
      CRect one(0, 0, 1, 1);
      double value[] = {1.0};
      double sample[] = {1.0, 0.0, 0.0, 0.0};
      double* samples[] = {sample, sample, sample};
      for (const int type : {0, 8, -1}) {
        EXPECT_EQ(AlgorithmProcess(value, &one, nullptr, samples, 3, &one, static_cast<PixelDataType>(type), 3, &one,
                                   nullptr),
                  nullptr);
      }
      EXPECT_EQ(AlgorithmProcess(value, &one, samples, 3, &one, PDT_FLOAT64, 3, &one, nullptr), nullptr);
      return result;
    }
  } fusion(&param);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
}

TEST(HpfFusion, CopiesRunOnTheirOwnAndOutliveTheirSource) {
  const Scene scene(11);
  FusionParam param = scene.Param();
  auto first = std::make_unique<CHpfFusion>(&param);
  first->SetMulStdvValue(g_deviations);
  first->Process();
  const auto before = ReadImage(scene.outFile);
  CHpfFusion copy(*first);
  CHpfFusion assigned(&param);
  assigned = copy;
  first.reset();
  for (CHpfFusion* fusion : {&copy, &assigned}) {
    fusion->Process();
    test_support::ExpectSuccess(*fusion);
    test_support::ExpectEqual(ReadImage(scene.outFile), before.bands);
  }
}

TEST(HpfFusion, ChangeDataTypeMapsToTheUpperEndAndCutsAtBoth) {
  FusionParam param;
  CHpfFusion fusion(&param);
  EXPECT_EQ(fusion.ChangeDataType(50.0, 0.0, 100.0, 0.0, 10.0), 5.0);
  EXPECT_EQ(fusion.ChangeDataType(60.0, 20.0, 100.0, 4.0, 10.0), 5.0) << "the lower end does not enter the scale";
  EXPECT_EQ(fusion.ChangeDataType(30.0, 20.0, 100.0, 4.0, 10.0), 4.0);
  EXPECT_EQ(fusion.ChangeDataType(500.0, 0.0, 100.0, 0.0, 10.0), 10.0);
  EXPECT_EQ(fusion.ChangeDataType(0.0, 20.0, 100.0, 4.0, 10.0), 0.0);
  EXPECT_EQ(fusion.ChangeDataType(7.0, 0.0, 0.0, 0.0, 10.0), 7.0);
  EXPECT_EQ(fusion.ChangeDataType(7.0, -9.0, -1.0, 0.0, 10.0), 7.0);
  EXPECT_EQ(fusion.ChangeDataType(7.0, 0.0, 100.0, -5.0, 0.0), 7.0);
}

}  // namespace
