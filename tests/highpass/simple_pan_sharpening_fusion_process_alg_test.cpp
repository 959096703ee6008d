#include "highpass/simple_pan_sharpening_fusion_process_alg.h"

#include <cmath>

#include "tests/highpass/pipeline_fixture.h"
#include "tests/support/method_sweep.h"

namespace {

using highpass_test::ForEachFailingOperation;
using highpass_test::ImpatientProgress;
using highpass_test::RecordingLog;
using platform::RasterOperation;
using test_support::ReadImage;
using test_support::RecordingProgress;

class SharpenPipeline : public highpass_test::PipelineFiles {
 protected:
  /// Smoothing, green mix and fusion written out.
  std::vector<std::vector<double>> Expected(const HpfFusionParam& param) const {
    reference::Image ms = m_ms;
    if (param.m_bMakeGreen) highpass_test::MixGreen(ms);
    FilterDescription mean;
    mean.m_dScale = 1.0 / 49.0;
    mean.m_vecCoefficients.assign(49, 1.0);
    mean.m_nWidth = mean.m_nHeight = 7;
    mean.m_nCenterX = mean.m_nCenterY = 3;
    reference::Image smooth = m_pan;
    smooth.bands[0] = highpass_test::Convolve(m_pan, 0, mean);
    reference::Run run;
    run.pan = &m_pan;
    run.ms = &ms;
    run.detail = &smooth;
    run.process = {0, 0, m_pan.width, m_pan.height};
    run.msBands.assign(param.m_vecMSBands.begin(), param.m_vecMSBands.end());
    if (run.msBands.empty()) run.msBands = {0, 1, 2, 3};
    run.outBandCount = static_cast<int>(run.msBands.size());
    run.conversion.type = param.m_eOutDataType;
    run.arithmetic = [](const reference::Pixel& pixel) {
      const double k = std::fabs(pixel.detail) > 1e-8 ? pixel.pan / pixel.detail : 1.0;
      std::vector<double> out;
      for (const double v : pixel.ms) out.push_back(k * v + pixel.pan);
      return out;
    };
    return reference::Fuse(run);
  }

  void RunWell(HpfFusionParam param) const {
    CSimplePanSharpeningFusionProcessAlg pipeline(&param);
    pipeline.Process();
    EXPECT_EQ(pipeline.GetLastErrorType(), 0);
    EXPECT_TRUE(pipeline.GetLastErrorMessage().empty());
    EXPECT_EQ(NewFiles(), (std::vector<std::wstring>{L"融合.tif"}));
  }

  PixelDataType OutputType() const {
    CRasterSource source;
    EXPECT_TRUE(source.OpenSimple(m_outFile));
    return source.GetRasterDataType();
  }
};

TEST_F(SharpenPipeline, EveryCombinationOfStagesIsTheWrittenOutOne) {
  for (const bool green : {false, true}) {
    for (const bool level : {false, true}) {
      for (const auto type : {PDT_FLOAT64, PDT_UINT16}) {
        SCOPED_TRACE(testing::Message() << "green " << green << " level " << level << " type " << type);
        HpfFusionParam param = Param();
        param.m_bMakeGreen = green;
        param.m_bDataStretch = level;
        param.m_eOutDataType = type;
        param.m_vecMSBands = {2, 1, 0};
        RunWell(param);
        EXPECT_EQ(OutputType(), type);
        auto expected = Expected(param);
        // The smoothed pan may differ in the last digit of a 32-bit float; whole values are cut there.
        double tolerance = type == PDT_FLOAT64 ? 0.01 : 1.0;
        if (level) {
          for (auto& band : expected) {
            highpass_test::Level(band, 0.01, type == PDT_FLOAT64 ? 1.0 : 65535.0);
            if (type == PDT_UINT16) {
              for (double& v : band) v = highpass_test::RoundHalfUp(v, 0.0, 65535.0);
            }
          }
          tolerance = type == PDT_FLOAT64 ? 1e-5 : 20.0;
        }
        const auto out = ReadImage(m_outFile).bands;
        ASSERT_EQ(out.size(), expected.size());
        for (std::size_t b = 0; b < out.size(); ++b) {
          for (std::size_t i = 0; i < out[b].size(); ++i) ASSERT_NEAR(out[b][i], expected[b][i], tolerance);
        }
      }
    }
  }
}

TEST_F(SharpenPipeline, UnknownTypeIsTheCallersMultispectralOneAlsoAfterTheGreenMix) {
  HpfFusionParam param = Param();
  param.m_eOutDataType = PDT_UNKNOWN;
  for (const bool green : {false, true}) {
    for (const bool level : {false, true}) {
      param.m_bMakeGreen = green;
      param.m_bDataStretch = level;
      RunWell(param);
      EXPECT_EQ(OutputType(), PDT_UINT16);
    }
  }
}

TEST_F(SharpenPipeline, ResamplingIsBicubicWhateverTheRecordSays) {
  HpfFusionParam param = Param();
  param.m_eOutDataType = PDT_FLOAT64;
  RunWell(param);
  const auto out = ReadImage(m_outFile).bands;
  param.m_eResampleType = RT_NEAREST;
  RunWell(param);
  EXPECT_EQ(ReadImage(m_outFile).bands, out);
}

TEST_F(SharpenPipeline, TextsAndCountersOfAllStages) {
  HpfFusionParam param = Param();
  param.m_bMakeGreen = param.m_bDataStretch = true;
  RecordingProgress progress;
  RecordingLog log;
  CSimplePanSharpeningFusionProcessAlg pipeline(&param);
  pipeline.SetProgress(&progress);
  pipeline.Process();
  ASSERT_EQ(pipeline.GetLastErrorType(), 0);
  const auto& calls = progress.Calls();
  EXPECT_EQ(calls[0], L"Start 正在进行融合... 100");
  EXPECT_EQ(calls[1], L"Step 0 配置参数...");
  std::vector<std::wstring> stages;
  for (const auto& call : calls) {
    if (!call.starts_with(L"Start ")) continue;
    const std::wstring title = call.substr(6, call.rfind(L' ') - 6);
    if (stages.empty() || stages.back() != title) stages.push_back(title);
  }
  EXPECT_EQ(stages,
            (std::vector<std::wstring>{L"正在进行融合...", L"正在进行卷积处理(1/3)...", L"正在进行加绿处理(2/3)...",
                                       L"正在进行PanSharpening融合(3/3)...", L"正在进行数据拉伸处理(3/3)..."}));
  EXPECT_EQ(calls.back(), L"Step 100 创建输出影像金字塔(4/4)") << "its counter is not that of the other stages";
  const char* file = "SimplePanSharpeningFusionProcessAlg";
  const char* function = "CSimplePanSharpeningFusionProcessAlg::Process";
  EXPECT_EQ(log.Entries(), (std::vector<RecordingLog::Entry>{{2, file, function, L"开始SimplePanSharpening融合处理"},
                                                             {2, file, function, L"SimplePanSharpening融合处理结束"}}));
}

TEST_F(SharpenPipeline, StagesThatAreNotWantedMakeNoFile) {
  for (const auto& [green, level, files] : {std::tuple(false, false, 2), std::tuple(true, false, 3),
                                            std::tuple(false, true, 3), std::tuple(true, true, 4)}) {
    HpfFusionParam param = Param();
    param.m_bMakeGreen = green;
    param.m_bDataStretch = level;
    int created = 0;
    platform::SetRasterFault([&](RasterOperation operation, const std::wstring&, int, const CRect&) {
      created += operation == RasterOperation::kCreate ? 1 : 0;
      return false;
    });
    RunWell(param);
    EXPECT_EQ(created, files);
  }
}

TEST_F(SharpenPipeline, FailureOfAnyOperationLeavesNoFileButWhatWasThere) {
  for (const bool level : {false, true}) {
    for (const bool older : {false, true}) {
      const int runs = ForEachFailingOperation([](RasterOperation) { return true; }, false,
                                               [&](int n) {
                                                 SCOPED_TRACE("failing operation " + std::to_string(n));
                                                 CRasterSource::DeleteFileW(m_outFile);
                                                 if (older) WriteOlderOutput();
                                                 HpfFusionParam param = Param();
                                                 param.m_bMakeGreen = true;
                                                 param.m_bDataStretch = level;
                                                 CSimplePanSharpeningFusionProcessAlg pipeline(&param);
                                                 pipeline.Process();
                                                 const auto files = NewFiles();
                                                 if (pipeline.GetLastErrorType() == 0) {
                                                   EXPECT_EQ(files, (std::vector<std::wstring>{L"融合.tif"}));
                                                   EXPECT_EQ(ReadImage(m_outFile).bands.size(), 4u);
                                                   return;
                                                 }
                                                 if (!files.empty()) {
                                                   EXPECT_TRUE(older);
                                                   EXPECT_EQ(files, (std::vector<std::wstring>{L"融合.tif"}));
                                                   EXPECT_TRUE(OlderOutputIsIntact());
                                                 }
                                               });
      EXPECT_GT(runs, 25);
    }
  }
}

TEST_F(SharpenPipeline, ExceptionFromBelowAnyStageIsErrorSixAndLeavesNoFile) {
  const auto reads = [](RasterOperation op) { return op == RasterOperation::kRead || op == RasterOperation::kWrite; };
  for (const bool level : {false, true}) {
    const int runs = ForEachFailingOperation(reads, true, [&](int n) {
      SCOPED_TRACE("throwing operation " + std::to_string(n));
      CRasterSource::DeleteFileW(m_outFile);
      HpfFusionParam param = Param();
      param.m_bMakeGreen = true;
      param.m_bDataStretch = level;
      CSimplePanSharpeningFusionProcessAlg pipeline(&param);
      pipeline.Process();
      if (pipeline.GetLastErrorType() == 0) return;
      EXPECT_EQ(pipeline.GetLastErrorType(), 6);
      EXPECT_TRUE(NewFiles().empty());
    });
    EXPECT_GT(runs, 15);
  }
}

TEST_F(SharpenPipeline, EachStageFailsWithItsOwnErrorTakenOver) {
  const std::wstring stages[] = {L"卷积处理(1/3)", L"加绿处理(2/3)", L"PanSharpening融合(3/3)", L"数据拉伸处理(3/3)"};
  for (int n = 0; n < 4; ++n) {
    int created = 0;
    std::wstring failing;
    platform::SetRasterFault([&](RasterOperation op, const std::wstring& path, int, const CRect&) {
      if (op == RasterOperation::kCreate && created++ == n) failing = path;
      return op == RasterOperation::kWrite && path == failing;
    });
    HpfFusionParam param = Param();
    param.m_bMakeGreen = param.m_bDataStretch = true;
    RecordingProgress progress;
    CSimplePanSharpeningFusionProcessAlg pipeline(&param);
    pipeline.SetProgress(&progress);
    pipeline.Process();
    EXPECT_EQ(pipeline.GetLastErrorType(), 3);
    EXPECT_EQ(pipeline.GetLastErrorMessage(), L"写数据失败！");
    EXPECT_EQ(progress.Errors(), 1);
    std::wstring last;
    for (const auto& call : progress.Calls()) {
      if (call.starts_with(L"Start ")) last = call;
    }
    EXPECT_NE(last.find(stages[n]), std::wstring::npos);
    EXPECT_TRUE(NewFiles().empty());
  }
}

TEST_F(SharpenPipeline, CancellingAtAnyStepIsErrorOneAndLeavesNoFile) {
  for (const bool level : {false, true}) {
    HpfFusionParam param = Param();
    param.m_bMakeGreen = true;
    param.m_bDataStretch = level;
    RecordingProgress all;
    {
      CSimplePanSharpeningFusionProcessAlg pipeline(&param);
      pipeline.SetProgress(&all);
      pipeline.Process();
    }
    for (int step = 1; step < all.Steps(); ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      CRasterSource::DeleteFileW(m_outFile);
      ImpatientProgress progress(step);
      CSimplePanSharpeningFusionProcessAlg pipeline(&param);
      pipeline.SetProgress(&progress);
      pipeline.Process();
      EXPECT_EQ(pipeline.GetLastErrorType(), 1);
      EXPECT_TRUE(NewFiles().empty());
    }
  }
}

TEST_F(SharpenPipeline, InputAsOutputIsErrorFiveAndStaysWhole) {
  HpfFusionParam param = Param();
  param.m_bMakeGreen = true;
  for (const auto& input : {m_panFile, m_msFile}) {
    const auto before = ReadImage(input).bands;
    param.m_strOutFile = input;
    CSimplePanSharpeningFusionProcessAlg pipeline(&param);
    pipeline.Process();
    EXPECT_EQ(pipeline.GetLastErrorType(), 5);
    EXPECT_EQ(ReadImage(input).bands, before);
    EXPECT_TRUE(NewFiles().empty());
  }
}

TEST_F(SharpenPipeline, PlainRecordIsEnough) {
  FusionParam param = Param();
  param.m_eOutDataType = PDT_FLOAT64;
  CSimplePanSharpeningFusionProcessAlg pipeline(&param);
  pipeline.Process();
  EXPECT_EQ(pipeline.GetLastErrorType(), 0);
  EXPECT_EQ(ReadImage(m_outFile).bands.size(), 4u);
}

TEST_F(SharpenPipeline, RunsAgainAndInCopiesWithTheCallersMultispectralFile) {
  HpfFusionParam param = Param();
  param.m_bMakeGreen = true;
  auto first = std::make_unique<CSimplePanSharpeningFusionProcessAlg>(&param);
  first->Process();
  const auto out = ReadImage(m_outFile).bands;
  first->Process();
  EXPECT_EQ(first->GetLastErrorType(), 0);
  CSimplePanSharpeningFusionProcessAlg copy(*first);
  CSimplePanSharpeningFusionProcessAlg assigned(&param);
  assigned = copy;
  first.reset();
  for (CSimplePanSharpeningFusionProcessAlg* pipeline : {&copy, &assigned}) {
    pipeline->Process();
    EXPECT_EQ(pipeline->GetLastErrorType(), 0);
    EXPECT_EQ(ReadImage(m_outFile).bands, out);
  }
}

}  // namespace
