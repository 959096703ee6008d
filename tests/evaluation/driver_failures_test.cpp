// How an evaluation ends early: failures, refusals, cancellation.
#include <cstring>
#include <new>
#include <stdexcept>

#include "evaluation/grad_evaluate.h"
#include "platform/raster/raster_fault.h"
#include "platform/utility/log.h"
#include "tests/evaluation/evaluation_probe.h"

namespace {

using test_support::Band;
using test_support::EvaluationDriver;
using test_support::MakeImage;
using test_support::Probe;
using Calls = std::vector<std::string>;

constexpr wchar_t kReadFailed[] = L"读取数据失败！";

TEST_F(EvaluationDriver, BlockThatStartsPastTheRightEdgeIsAFailedRead) {
  const Band zeros(30 * 6, 0.0);
  Write(MakeImage(30, 6, 1.0, {zeros}), MakeImage(30, 6, 1.0, {zeros}), MakeImage(30, 6, 1.0, {zeros}));
  const auto probe = RunProbe([](Probe& p) {
    p.blockWidth = 20;
    p.blockHeight = 40;
  });
  EXPECT_EQ(probe->GetLastErrorType(), 2);
  EXPECT_EQ(probe->Count("Evaluate"), 1);
  EXPECT_EQ(probe->Count("EndProccess"), 1);
}

TEST_F(EvaluationDriver, RefusedPreparationIsReportedAsCodeZeroWithoutAMessage) {
  WriteSmall();
  const auto probe = RunProbe([](Probe& p) { p.preprocessResult = GIS_FAILED; });
  EXPECT_EQ(probe->GetLastErrorType(), 0);
  EXPECT_EQ(probe->calls, Calls{"Preproccess"});
  EXPECT_EQ(progress.Calls().back(), L"Error 0 ");
  EXPECT_FALSE(progress.Finished());
}

TEST_F(EvaluationDriver, RefusedBlockIsReportedAndEndsTheRun) {
  WriteSmall();
  const auto probe = RunProbe([](Probe& p) { p.startResult = GIS_FAILED; });
  EXPECT_NE(probe->GetLastErrorType(), 0);
  EXPECT_EQ(progress.Errors(), 1);
  EXPECT_FALSE(progress.Finished());
  EXPECT_EQ(probe->Count("Evaluate"), 0);
  EXPECT_EQ(probe->Count("EndProccess"), 1);
}

TEST_F(EvaluationDriver, RefusedBlockGivesTheTypeThatItsRefusalReturns) {
  WriteSmall();
  const auto probe = RunProbe([](Probe& p) { p.startResult = GIS_OPEN_FAILED; });
  EXPECT_EQ(probe->GetLastErrorType(), GIS_OPEN_FAILED);
  EXPECT_EQ(progress.Calls().back(), L"Error 2 ");
}

TEST_F(EvaluationDriver, InputThatDoesNotOpenIsNamed) {
  for (const int missing : {0, 1, 2}) {
    WriteSmall();
    std::wstring& path = missing == 0 ? param.m_strPanFile : missing == 1 ? param.m_strMulFile : param.m_strFusionFile;
    const std::wstring kept = path;
    path = L"/vsimem/缺.tif";
    const auto probe = RunProbe();
    path = kept;
    EXPECT_EQ(probe->GetLastErrorType(), 4);
    EXPECT_EQ(probe->GetLastErrorMessage(), L"打开文件（/vsimem/缺.tif）失败！");
    EXPECT_EQ(progress.Calls().back(), L"Error 4 打开文件（/vsimem/缺.tif）失败！");
    EXPECT_TRUE(probe->calls.empty());
  }
  EXPECT_FALSE(progress.Finished());
}

TEST_F(EvaluationDriver, InputsOpenInOrder) {
  param.m_strPanFile = param.m_strMulFile = param.m_strFusionFile = L"/vsimem/none.tif";
  std::vector<std::wstring> opened;
  platform::SetRasterFault([&](platform::RasterOperation, const std::wstring& path, int, const CRect&) {
    opened.push_back(path);
    return false;
  });
  WriteSmall();
  param.m_strPanFile = panFile;
  param.m_strMulFile = L"/vsimem/no_ms.tif";
  param.m_strFusionFile = L"/vsimem/no_fused.tif";
  const auto probe = RunProbe();
  EXPECT_EQ(probe->GetLastErrorMessage(), L"打开文件（/vsimem/no_ms.tif）失败！");
  EXPECT_EQ(opened, (std::vector<std::wstring>{panFile, L"/vsimem/no_ms.tif"}));
}

TEST_F(EvaluationDriver, FailedReadOfAnyImageEndsTheRunWithItsResults) {
  for (const auto& [file, evaluated] : {std::pair{fusedFile, 2}, std::pair{panFile, 2}, std::pair{msFile, 0}}) {
    WriteSmall();
    // All blocks need the same multispectral pixels, which are read once.
    FailRead(file, evaluated);
    progress.Clear();
    const auto probe = RunProbe(FourBlocks);
    EXPECT_EQ(probe->GetLastErrorType(), 2);
    EXPECT_EQ(probe->GetLastErrorMessage(), kReadFailed);
    EXPECT_EQ(progress.Calls().back(), std::wstring(L"Error 2 ") + kReadFailed);
    EXPECT_EQ(probe->Count("Evaluate"), evaluated);
    EXPECT_EQ(probe->Count("EndProccess"), 1);
    EXPECT_TRUE(probe->stillOpen);
    EXPECT_FALSE(progress.Finished());
    platform::SetRasterFault({});
  }
}

TEST_F(EvaluationDriver, MissingBandIsAFailedRead) {
  for (auto member : {0, 1, 2}) {
    WriteSmall();
    param.m_nPanBand = member == 0 ? 7 : 0;
    if (member == 1) param.m_vecMulBands = {7};
    if (member == 2) param.m_vecFusionBands = {-1};
    const auto probe = RunProbe();
    EXPECT_EQ(probe->GetLastErrorType(), 2) << member;
    EXPECT_EQ(probe->GetLastErrorMessage(), kReadFailed);
  }
}

TEST_F(EvaluationDriver, OffsetOffThePanImageIsAFailedRead) {
  for (const CRect& offset :
       {CRect(4, 2, 0, 0), CRect(-1, 0, 0, 0), CRect(INT32_MAX, INT32_MAX, 0, 0), CRect(INT32_MIN, INT32_MIN, 0, 0)}) {
    WriteSmall();
    param.m_rcPanOffset = offset;
    EXPECT_EQ(RunProbe()->GetLastErrorType(), 2) << offset.left;
  }
}

TEST_F(EvaluationDriver, CancellationAfterTheFirstBlockIsLoggedAndKeepsThePartialSums) {
  struct Log : CLog {
    void WriteLog(int level, const char* file, int line, const char* function, const wchar_t* text) override {
      entries.push_back(std::to_wstring(level) + L"|" + std::wstring(file, file + strlen(file)) + L"|" +
                        std::to_wstring(line) + L"|" + std::wstring(function, function + strlen(function)) + L"|" +
                        text);
    }
    std::vector<std::wstring> entries;
  } log;
  CLog::m_pLogger = &log;
  WriteSmall();
  progress.CancelAtStep(1);
  const auto probe = RunProbe([](Probe& p) {
    FourBlocks(p);
    p.passes = 2;
  });
  EXPECT_EQ(probe->GetLastErrorType(), 1);
  EXPECT_EQ(probe->calls, (Calls{"Preproccess", "Start", "Evaluate", "End", "EndProccess"}));
  EXPECT_EQ(progress.Errors(), 0);
  EXPECT_FALSE(progress.Finished());
  EXPECT_EQ(log.entries, (std::vector<std::wstring>{L"2|FusionEvaluate|294|CFusionEvaluate::Process|  WARNING: "
                                                    L"用户取消了处理进程，处理失败！ ..."}));
}

TEST_F(EvaluationDriver, CancelledMetricAnswersFromWhatItSaw) {
  // The gradient's first block is 4 x 4 of a pan image of that size; the second would be flat.
  struct Two : CGradEvaluate {
    using CGradEvaluate::CGradEvaluate;
    void GetBlockSize(int& width, int& height) override { width = height = 4; }
  };
  Band fused;
  for (int i = 0; i < 8 * 4; ++i) fused.push_back(i % 8 < 4 ? 3.0 * (i % 8) : 0.0);
  WritePair(8, 4, fused, fused);
  progress.CancelAtStep(1);
  expectedError = 1;
  EXPECT_DOUBLE_EQ(Run<Two>()->m_pFusionMeanGrad[0], 3.0);
}

TEST_F(EvaluationDriver, ReprojectionThatCannotBeBuiltIsReported) {
  WriteSmall();
  param.m_bReproject = 1;
  const auto probe = RunProbe();
  EXPECT_EQ(probe->GetLastErrorType(), 20);
  EXPECT_EQ(probe->GetLastErrorMessage(), L"重投影失败！");
  EXPECT_EQ(progress.Calls().back(), L"Error 20 重投影失败！");
  EXPECT_TRUE(probe->calls.empty());
}

TEST_F(EvaluationDriver, ReprojectedBlockFarFromTheMultispectralImageIsAFailedRead) {
  msStorage.wkt = fusedStorage.wkt = test_support::UtmWkt();
  param.m_bReproject = 1;
  const Band zeros(16, 0.0);
  Write(MakeImage(4, 4, 10.0, {zeros}, 440000.0, 4470000.0), MakeImage(4, 4, 10.0, {zeros}, 540000.0, 4470000.0),
        MakeImage(4, 4, 10.0, {zeros}, 440000.0, 4470000.0));
  EXPECT_EQ(RunProbe()->GetLastErrorType(), 2);
}

TEST_F(EvaluationDriver, FailedAllocationAndOtherExceptionsBecomeErrorStates) {
  WriteSmall();
  const auto memory = RunProbe([](Probe& p) { p.inEvaluate = [] { throw std::bad_alloc(); }; });
  EXPECT_EQ(memory->GetLastErrorType(), 6);
  EXPECT_EQ(memory->GetLastErrorMessage(), L"内存不足！");
  EXPECT_EQ(memory->Count("EndProccess"), 1);
  EXPECT_FALSE(progress.Finished());
  const auto other = RunProbe([](Probe& p) { p.inEvaluate = [] { throw std::runtime_error("broken"); }; });
  EXPECT_EQ(other->GetLastErrorMessage(), L"broken");
}

}  // namespace
