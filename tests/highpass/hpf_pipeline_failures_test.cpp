// What the pipeline leaves behind when something fails or the user cancels.
#include <utility>

#include "highpass/hpf_fusion_process_alg.h"
#include "tests/highpass/pipeline_fixture.h"

namespace {

using highpass_test::ForEachFailingOperation;
using highpass_test::ImpatientProgress;
using highpass_test::RecordingLog;
using platform::RasterOperation;
using test_support::ReadImage;
using test_support::RecordingProgress;

class HpfPipelineFailures : public highpass_test::PipelineFiles {};

TEST_F(HpfPipelineFailures, FailureOfAnyOperationLeavesNoFileButWhatWasThere) {
  for (const bool older : {false, true}) {
    const int runs = ForEachFailingOperation(
        [](RasterOperation) { return true; }, false,
        [&](int n) {
          SCOPED_TRACE("failing operation " + std::to_string(n));
          CRasterSource::DeleteFileW(m_outFile);
          if (older) WriteOlderOutput();
          HpfFusionParam param = Param();
          param.m_bSecondFilter = param.m_bMakeGreen = param.m_bDataStretch = true;
          RecordingProgress progress;
          CHpfFusionProcessAlg pipeline(&param);
          pipeline.SetProgress(&progress);
          pipeline.Process();
          const auto files = NewFiles();
          if (pipeline.GetLastErrorType() == 0) {
            EXPECT_EQ(files, (std::vector<std::wstring>{L"融合.tif"}));
            EXPECT_EQ(ReadImage(m_outFile).bands.size(), 4u);
            return;
          }
          EXPECT_FALSE(pipeline.GetLastErrorMessage().empty() && pipeline.GetLastErrorType() != 2);
          if (!files.empty()) {
            EXPECT_TRUE(older);
            EXPECT_EQ(files, (std::vector<std::wstring>{L"融合.tif"}));
            EXPECT_TRUE(OlderOutputIsIntact());
          }
        });
    EXPECT_GT(runs, 50) << "every stage opens, creates, reads, writes and closes";
  }
}

TEST_F(HpfPipelineFailures, ExceptionFromBelowAnyStageIsErrorSixAndLeavesNoFile) {
  const auto reads = [](RasterOperation op) { return op == RasterOperation::kRead || op == RasterOperation::kWrite; };
  const int runs = ForEachFailingOperation(reads, true, [&](int n) {
    SCOPED_TRACE("throwing operation " + std::to_string(n));
    CRasterSource::DeleteFileW(m_outFile);
    HpfFusionParam param = Param();
    param.m_bSecondFilter = param.m_bMakeGreen = param.m_bDataStretch = true;
    CHpfFusionProcessAlg pipeline(&param);
    pipeline.Process();
    if (pipeline.GetLastErrorType() == 0) return;
    EXPECT_EQ(pipeline.GetLastErrorType(), 6);
    EXPECT_EQ(pipeline.GetLastErrorMessage(), L"内存不足！");
    EXPECT_TRUE(NewFiles().empty());
  });
  EXPECT_GT(runs, 30);
}

TEST_F(HpfPipelineFailures, EachStageFailsWithItsOwnErrorTakenOver) {
  // The n-th file that is created: HP1, HP2, G, F, S, output.
  const std::wstring stages[] = {L"卷积处理(1/4)",    L"二次卷积(1/4)", L"加绿处理(2/4)",
                                 L"HPF融合处理(3/4)", L"光谱校正(4/4)", L"数据拉伸处理(4/4)"};
  for (int n = 0; n < 6; ++n) {
    for (const auto& [operation, type] :
         {std::pair(RasterOperation::kCreate, 5), std::pair(RasterOperation::kWrite, 3)}) {
      int created = 0;
      std::wstring failing;
      platform::SetRasterFault([&](RasterOperation op, const std::wstring& path, int, const CRect&) {
        if (op == RasterOperation::kCreate && created++ == n) failing = path;
        return op == operation && path == failing;
      });
      HpfFusionParam param = Param();
      param.m_bSecondFilter = param.m_bMakeGreen = param.m_bDataStretch = true;
      RecordingProgress progress;
      RecordingLog log;
      CHpfFusionProcessAlg pipeline(&param);
      pipeline.SetProgress(&progress);
      pipeline.Process();
      platform::SetRasterFault({});
      EXPECT_EQ(pipeline.GetLastErrorType(), type);
      EXPECT_EQ(pipeline.GetLastErrorMessage(), type == 3 ? L"写数据失败！" : L"创建文件（" + failing + L"）失败！");
      EXPECT_EQ(progress.Errors(), 1) << "reported by the stage alone";
      std::wstring last;
      for (const auto& call : progress.Calls()) {
        if (call.starts_with(L"Start ")) last = call;
      }
      EXPECT_NE(last.find(stages[n]), std::wstring::npos);
      EXPECT_EQ(log.Entries().size(), 1u) << "the end is not logged";
      EXPECT_TRUE(NewFiles().empty());
    }
  }
}

TEST_F(HpfPipelineFailures, CancellingAtAnyStepIsErrorOneAndLeavesNoFile) {
  HpfFusionParam param = Param();
  param.m_bSecondFilter = param.m_bMakeGreen = param.m_bDataStretch = true;
  RecordingProgress all;
  {
    CHpfFusionProcessAlg pipeline(&param);
    pipeline.SetProgress(&all);
    pipeline.Process();
  }
  ASSERT_GT(all.Steps(), 15);
  for (int step = 1; step <= all.Steps(); ++step) {
    SCOPED_TRACE("step " + std::to_string(step));
    CRasterSource::DeleteFileW(m_outFile);
    ImpatientProgress progress(step);
    CHpfFusionProcessAlg pipeline(&param);
    pipeline.SetProgress(&progress);
    pipeline.Process();
    if (step == all.Steps()) {
      // All that is left then are the pyramids.
      EXPECT_EQ(pipeline.GetLastErrorType(), 0);
      EXPECT_EQ(NewFiles(), (std::vector<std::wstring>{L"融合.tif"}));
      continue;
    }
    EXPECT_EQ(pipeline.GetLastErrorType(), 1);
    EXPECT_TRUE(NewFiles().empty());
  }
}

TEST_F(HpfPipelineFailures, ImagesWithoutCommonGroundLeaveTheFusionsMessage) {
  m_ms.geoTransform[0] += 1e6;
  WriteInputs();
  HpfFusionParam param = Param();
  CHpfFusionProcessAlg pipeline(&param);
  pipeline.Process();
  EXPECT_EQ(pipeline.GetLastErrorMessage(), L"设置的影像范围有误！");
  EXPECT_TRUE(NewFiles().empty());
}

TEST_F(HpfPipelineFailures, InputAsOutputIsErrorFiveAndStaysWhole) {
  HpfFusionParam param = Param();
  for (const auto& input : {m_panFile, m_msFile}) {
    const auto before = ReadImage(input).bands;
    param.m_strOutFile = input;
    RecordingProgress progress;
    CHpfFusionProcessAlg pipeline(&param);
    pipeline.SetProgress(&progress);
    pipeline.Process();
    EXPECT_EQ(pipeline.GetLastErrorType(), 5);
    EXPECT_EQ(progress.Errors(), 1);
    EXPECT_EQ(ReadImage(input).bands, before);
    EXPECT_TRUE(NewFiles().empty());
  }
}

TEST_F(HpfPipelineFailures, OutputFolderThatDoesNotExistIsErrorFive) {
  HpfFusionParam param = Param();
  param.m_strOutFile = L"/nowhere/at/all/out.tif";
  RecordingProgress progress;
  CHpfFusionProcessAlg pipeline(&param);
  pipeline.SetProgress(&progress);
  pipeline.Process();
  EXPECT_EQ(pipeline.GetLastErrorType(), 5);
  EXPECT_EQ(pipeline.GetLastErrorMessage(), L"创建文件（/nowhere/at/all/out.tif）失败！");
  EXPECT_EQ(progress.Errors(), 1);
}

TEST_F(HpfPipelineFailures, MissingFilesAndEmptyKernelsFailInTheirStage) {
  HpfFusionParam param = Param();
  const auto error = [&] {
    CHpfFusionProcessAlg pipeline(&param);
    pipeline.Process();
    EXPECT_TRUE(NewFiles().empty());
    return std::pair(pipeline.GetLastErrorType(), pipeline.GetLastErrorMessage());
  };
  param.m_strMSFile = m_folder + L"没有.tif";
  EXPECT_EQ(error(), std::pair(4, std::wstring(L"打开多光谱影像失败！")));
  param.m_strPanFile = m_folder + L"也没有.tif";
  EXPECT_EQ(error(), std::pair(4, L"打开文件（" + param.m_strPanFile + L"）失败！"));
  param = Param();
  param.m_filter1 = {};
  EXPECT_NE(error().first, 0);
  param = Param();
  param.m_nPanBand = 3;
  EXPECT_NE(error().first, 0);
}

TEST_F(HpfPipelineFailures, CancellationOfTheStatisticsIsLoggedAndNotReported) {
  HpfFusionParam param = Param();
  RecordingProgress progress;
  RecordingLog log;
  platform::SetRasterFault([&](RasterOperation operation, const std::wstring& path, int, const CRect&) {
    if (operation == RasterOperation::kRead && path == m_msFile) progress.RequestCancel();
    return false;
  });
  CHpfFusionProcessAlg pipeline(&param);
  pipeline.SetProgress(&progress);
  pipeline.Process();
  EXPECT_EQ(pipeline.GetLastErrorType(), 1);
  EXPECT_EQ(progress.Errors(), 0);
  ASSERT_EQ(log.Entries().size(), 2u);
  EXPECT_EQ(log.Entries()[1], (RecordingLog::Entry{2, "HpfFusionProcessAlg", "CHpfFusionProcessAlg::Process",
                                                   L"  WARNING: 用户取消了处理进程，处理失败！ ..."}));
  EXPECT_TRUE(NewFiles().empty());
}

TEST_F(HpfPipelineFailures, StatisticsThatFailAreErrorSeven) {
  HpfFusionParam param = Param();
  RecordingProgress progress;
  bool opened = false;
  // The first reading of the multispectral file is that of the statistics.
  platform::SetRasterFault([&](RasterOperation operation, const std::wstring& path, int band, const CRect&) {
    return operation == RasterOperation::kRead && path == m_msFile && band == 2 && !std::exchange(opened, true);
  });
  CHpfFusionProcessAlg pipeline(&param);
  pipeline.SetProgress(&progress);
  pipeline.Process();
  EXPECT_EQ(pipeline.GetLastErrorType(), 7);
  EXPECT_EQ(pipeline.GetLastErrorMessage(), L"计算多光谱影像统计值出错！");
  EXPECT_EQ(progress.Calls().back(), L"Error 7 计算多光谱影像统计值出错！");
  EXPECT_TRUE(NewFiles().empty());
}

}  // namespace
