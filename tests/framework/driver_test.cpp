// The block loop: stages, blocks, failures, cancellation, clean-up.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <thread>

#include "framework/fusion.h"
#include "platform/raster/raster_fault.h"
#include "platform/utility/log.h"
#include "tests/support/message_window.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"

namespace {

using platform::RasterOperation;
using test_support::FileExists;
using test_support::FilesNamedLike;
using test_support::ReadImage;
using test_support::RecordingProgress;
using test_support::Scene;
using test_support::SceneOptions;

constexpr wchar_t kReadFailed[] = L"读取数据失败！";
constexpr wchar_t kWriteFailed[] = L"写数据失败！";

/// Writes the pan value plus the band number, and records what the driver does.
class DriverProbe : public CFusion {
 public:
  explicit DriverProbe(FusionParam* param) : CFusion(param) {}

  GISError Preproccess() override {
    calls.push_back("Preproccess");
    const GISError base = CFusion::Preproccess();
    return preprocessResult != GIS_SUCCESS ? preprocessResult : base;
  }
  void GetBlockSize(int& width, int& height) override {
    CFusion::GetBlockSize(width, height);
    if (blockWidth) width = blockWidth;
    if (blockHeight) height = blockHeight;
    blockSize = {width, height};
  }
  bool GetReadBufferRect(CRect* dstBlock, CRect* msRect) override {
    if (blocksSeen++ == skipBlock) return false;
    const bool result = CFusion::GetReadBufferRect(dstBlock, msRect);
    if (msRectGiven.Area() > 0) *msRect = msRectGiven;
    return result;
  }
  GISError StartBolckProcess() override {
    calls.push_back("Start");
    return startResult;
  }
  void** AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect,
                          PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI* aoi) override {
    calls.push_back("Process");
    blocks.push_back(*dstBlock);
    panRects.push_back(*panRect);
    msRects.push_back(*msRect);
    masked.push_back(aoi != nullptr);
    for (int b = 0; b < msBandCount; ++b) {
      for (int i = 0; i < msRect->Width() + 2; ++i) slackIsZero &= ms[b][msRect->Area() + i] == 0.0;
    }
    if (inProcess) inProcess();
    if (answerNull) return nullptr;
    void** result = FuseRows({pan, panRect, nullptr, ms, msBandCount, msRect, outType, outBandCount, dstBlock, aoi}, {},
                             [](const fusion::FusionRow& row) {
                               for (int b = 0; b < row.outBandCount; ++b) {
                                 for (int i = 0; i < row.width; ++i) row.out[b][i] = row.pan[i] + b;
                               }
                             });
    if (nullBand >= 0) {
      delete[] static_cast<double*>(result[nullBand]);
      result[nullBand] = nullptr;
    }
    return result;
  }
  void EndBolckProcess() override { calls.push_back("End"); }
  void EndProccess() override {
    calls.push_back("EndProccess");
    outputClosed = !m_pDstSrc->IsOpen() && !m_pPanSrc->IsOpen() && !m_pMSSrc->IsOpen();
    CFusion::EndProccess();
  }
  const FusionParam& Param() const { return m_param; }
  int Count(const std::string& call) const { return static_cast<int>(std::count(calls.begin(), calls.end(), call)); }

  int blockWidth = 0;
  int blockHeight = 0;
  int skipBlock = -1;
  int nullBand = -1;
  bool answerNull = false;
  CRect msRectGiven;
  GISError preprocessResult = GIS_SUCCESS;
  GISError startResult = GIS_SUCCESS;
  std::function<void()> inProcess;

  int blocksSeen = 0;
  bool slackIsZero = true;
  bool outputClosed = false;
  std::pair<int, int> blockSize;
  std::vector<CRect> blocks;
  std::vector<CRect> panRects;
  std::vector<CRect> msRects;
  std::vector<bool> masked;
  std::vector<std::string> calls;
};

class Driver : public testing::Test {
 protected:
  Driver() : scene(1, Options()), param(scene.Param()) {}
  ~Driver() override {
    platform::SetRasterFault({});
    CLog::m_pLogger = nullptr;
  }
  static SceneOptions Options() {
    SceneOptions options;
    options.panWidth = 16;
    options.panHeight = 40;
    return options;
  }
  /// Runs a probe with four blocks of 10 lines and the recording reporter.
  std::unique_ptr<DriverProbe> Run(const std::function<void(DriverProbe&)>& prepare = {}) {
    auto probe = std::make_unique<DriverProbe>(&param);
    probe->blockHeight = 10;
    if (prepare) prepare(*probe);
    probe->SetProgress(&progress);
    probe->Process();
    return probe;
  }
  /// Makes the n-th (from 0) operation of a kind on a file fail.
  static void FailAt(RasterOperation operation, const std::wstring& path, int nth = 0) {
    platform::SetRasterFault([=, count = 0](RasterOperation op, const std::wstring& file, int, const CRect&) mutable {
      return op == operation && file == path && count++ == nth;
    });
  }

  Scene scene;
  FusionParam param;
  RecordingProgress progress;
};

TEST_F(Driver, RunsBothProgressStagesAndStepsOncePerBlock) {
  const auto probe = Run();
  EXPECT_EQ(probe->GetLastErrorType(), 0);
  const std::vector<std::wstring> expected = {
      L"Start 正在进行test... 100", L"Step 0 配置参数...", L"Start 正在进行test... 4", L"Step 1 处理中...",
      L"Step 2 处理中...",          L"Step 3 处理中...",   L"Step 4 处理中...",        L"Finish"};
  EXPECT_EQ(progress.Calls(), expected);
  EXPECT_EQ(probe->calls,
            (std::vector<std::string>{"Preproccess", "Start", "Process", "End", "Start", "Process", "End", "Start",
                                      "Process", "End", "Start", "Process", "End", "EndProccess"}));
  EXPECT_TRUE(probe->outputClosed);
  EXPECT_TRUE(probe->slackIsZero);
}

TEST_F(Driver, WorksWithoutAReporter) {
  DriverProbe probe(&param);
  probe.Process();
  EXPECT_EQ(probe.GetLastErrorType(), 0);
  EXPECT_EQ(ReadImage(scene.outFile).bands[1][5], scene.pan.bands[0][5] + 1);
}

TEST_F(Driver, BlocksAreWholePanRows512LinesAtATime) {
  SceneOptions options;
  options.panWidth = 1000;
  options.panHeight = 1300;
  options.msBands = 2;
  const Scene large(2, options);
  FusionParam largeParam = large.Param();
  DriverProbe probe(&largeParam);
  probe.Process();
  EXPECT_EQ(probe.blockSize, std::make_pair(1000, 512));
  ASSERT_EQ(probe.blocks.size(), 3u);
  EXPECT_EQ(probe.blocks[0], CRect(0, 0, 1000, 512));
  EXPECT_EQ(probe.blocks[2], CRect(0, 1024, 1000, 1300));
  // 10 pixels of margin only where the image has them.
  EXPECT_EQ(probe.msRects[0], CRect(0, 0, 500, 266));
  EXPECT_EQ(probe.msRects[1], CRect(0, 246, 500, 522));
  EXPECT_EQ(probe.msRects[2], CRect(0, 502, 500, 650));
}

TEST_F(Driver, BlocksGoRowByRowAndShiftByTheProcessingArea) {
  param.m_rcProcess = {3, 5, 16, 25};
  const auto probe = Run([](DriverProbe& p) { p.blockWidth = 8; });
  ASSERT_EQ(probe->blocks.size(), 4u);
  EXPECT_EQ(probe->blocks[1], CRect(8, 0, 13, 10));
  EXPECT_EQ(probe->panRects[1], CRect(11, 5, 16, 15));
  EXPECT_EQ(probe->blocks[2], CRect(0, 10, 8, 20));
  const auto out = ReadImage(scene.outFile);
  EXPECT_EQ(out.width, 13);
  EXPECT_EQ(out.bands[0][0], scene.pan.bands[0][5 * 16 + 3]);
  EXPECT_EQ(out.geoTransform[0], scene.pan.geoTransform[0] + 30.0);
  EXPECT_EQ(out.geoTransform[3], scene.pan.geoTransform[3] - 50.0);
}

TEST_F(Driver, BlockWithoutReadRectangleIsPassedOverSilently) {
  const auto probe = Run([](DriverProbe& p) { p.skipBlock = 1; });
  EXPECT_EQ(probe->GetLastErrorType(), 0);
  EXPECT_EQ(probe->Count("Process"), 3);
  EXPECT_EQ(probe->Count("End"), 3);
  EXPECT_EQ(progress.Steps(), 1 + 3);
}

TEST_F(Driver, BuffersGrowWhenARectangleNeedsMore) {
  const auto probe = Run([](DriverProbe& p) {
    p.blockWidth = 2;
    p.blockHeight = 2;
    p.msRectGiven = {0, 0, 8, 20};
  });
  EXPECT_EQ(probe->GetLastErrorType(), 0);
  EXPECT_EQ(probe->msRects.size(), 8u * 20u);
  EXPECT_TRUE(probe->slackIsZero);
}

TEST_F(Driver, NullResultWritesNothingAndTheRunGoesOn) {
  const auto probe = Run([](DriverProbe& p) { p.answerNull = true; });
  EXPECT_EQ(probe->GetLastErrorType(), 0);
  EXPECT_EQ(probe->Count("Process"), 4);
  const auto out = ReadImage(scene.outFile);
  for (const double v : out.bands[0]) ASSERT_EQ(v, 0.0);
}

TEST_F(Driver, NullBandIsLeftOut) {
  const auto probe = Run([](DriverProbe& p) { p.nullBand = 1; });
  EXPECT_EQ(probe->GetLastErrorType(), 0);
  const auto out = ReadImage(scene.outFile);
  EXPECT_EQ(out.bands[1][0], 0.0);
  EXPECT_EQ(out.bands[2][0], scene.pan.bands[0][0] + 2);
}

TEST_F(Driver, FailedPreparationIsReportedAndEndsTheRunWithoutEndProccess) {
  const auto probe = Run([](DriverProbe& p) { p.preprocessResult = GIS_FAILED; });
  EXPECT_EQ(probe->GetLastErrorType(), 4);
  EXPECT_EQ(probe->Count("EndProccess"), 0);
  EXPECT_EQ(progress.Calls().back(), L"Error 4 ");
  EXPECT_FALSE(progress.Finished());
}

TEST_F(Driver, RefusedBlockIsReportedAndCleanedUp) {
  const auto probe = Run([](DriverProbe& p) { p.startResult = GIS_FAILED; });
  EXPECT_NE(probe->GetLastErrorType(), 0);
  EXPECT_EQ(probe->Count("EndProccess"), 1);
  EXPECT_EQ(progress.Errors(), 1);
  EXPECT_FALSE(progress.Finished());
}

TEST_F(Driver, FailedMultispectralReadIsNeitherWordedNorReported) {
  FailAt(RasterOperation::kRead, scene.msFile, 4);
  const auto probe = Run();
  EXPECT_EQ(probe->GetLastErrorType(), 2);
  EXPECT_TRUE(probe->GetLastErrorMessage().empty());
  EXPECT_EQ(progress.Errors(), 0);
  EXPECT_EQ(probe->Count("Process"), 1);
  EXPECT_EQ(probe->Count("EndProccess"), 1);
  EXPECT_FALSE(progress.Finished());
}

TEST_F(Driver, FailedPanReadIsReported) {
  FailAt(RasterOperation::kRead, scene.panFile, 1);
  const auto probe = Run();
  EXPECT_EQ(probe->GetLastErrorType(), 2);
  EXPECT_EQ(probe->GetLastErrorMessage(), kReadFailed);
  EXPECT_EQ(progress.Calls().back(), std::wstring(L"Error 2 ") + kReadFailed);
  EXPECT_EQ(probe->Count("EndProccess"), 1);
}

TEST_F(Driver, MissingPanBandFailsLikeARead) {
  param.m_nPanBand = 3;
  const auto probe = Run();
  EXPECT_EQ(probe->GetLastErrorType(), 2);
  EXPECT_EQ(probe->GetLastErrorMessage(), kReadFailed);
}

TEST_F(Driver, FailedWriteIsReported) {
  FailAt(RasterOperation::kWrite, scene.outFile, 2);
  const auto probe = Run();
  EXPECT_EQ(probe->GetLastErrorType(), 3);
  EXPECT_EQ(probe->GetLastErrorMessage(), kWriteFailed);
  EXPECT_EQ(progress.Errors(), 1);
  EXPECT_EQ(probe->Count("EndProccess"), 1);
}

TEST_F(Driver, FailedCloseOfTheOutputIsAWriteFailure) {
  FailAt(RasterOperation::kClose, scene.outFile);
  const auto probe = Run();
  EXPECT_EQ(probe->GetLastErrorType(), 3);
  EXPECT_EQ(probe->GetLastErrorMessage(), kWriteFailed);
  EXPECT_EQ(progress.Errors(), 1);
  EXPECT_FALSE(progress.Finished());
}

TEST_F(Driver, CancellationIsLoggedNotReported) {
  struct Log : CLog {
    void WriteLog(int level, const char* file, int line, const char* function, const wchar_t* text) override {
      entries.push_back(std::to_wstring(level) + L"|" + std::wstring(file, file + strlen(file)) + L"|" +
                        std::to_wstring(line) + L"|" + std::wstring(function, function + strlen(function)) + L"|" +
                        text);
    }
    std::vector<std::wstring> entries;
  } log;
  CLog::m_pLogger = &log;
  progress.CancelAtStep(2);
  const auto probe = Run();
  EXPECT_EQ(probe->GetLastErrorType(), 1);
  EXPECT_EQ(probe->Count("Process"), 2);
  EXPECT_EQ(probe->Count("EndProccess"), 1);
  EXPECT_EQ(progress.Errors(), 0);
  EXPECT_FALSE(progress.Finished());
  ASSERT_EQ(log.entries.size(), 1u);
  EXPECT_EQ(log.entries[0], L"2|Fusion|401|CFusion::Process|  WARNING: 用户取消了处理进程，处理失败！ ...");
}

TEST_F(Driver, AFailedRunsOutputIsNotCompleted) {
  // A format that is written as a whole, by copying, when all is there.
  param.m_eOutFormat = CStringParamParser::GetOutDataFormat(L"png");
  param.m_eOutDataType = PDT_UINT8;
  Run();
  ASSERT_TRUE(test_support::FileExists(scene.outFile));
  CRasterSource::DeleteFileW(scene.outFile);
  // A cancellation would end the copy, too.
  EXPECT_EQ(Run([](DriverProbe& p) { p.inProcess = [] { throw std::bad_alloc(); }; })->GetLastErrorType(), 6);
  EXPECT_FALSE(test_support::FileExists(scene.outFile));
}

TEST_F(Driver, CancellationWithoutALoggerIsSilent) {
  progress.CancelAtStep(1);
  EXPECT_EQ(Run()->GetLastErrorType(), 1);
}

TEST_F(Driver, NothingReadOrProcessedOutsideTheAreaOfInterest) {
  param.m_strAoiFile = L"/vsimem/driver_area.csv";
  // A sliver over the first and the last lines only: the blocks between are outside, but the area's rectangle spans
  // all.
  const double x = 440000.0;
  const double y = 4470000.0;
  test_support::WriteTriangle(param.m_strAoiFile, {x, y}, {x + 160.0, y}, {x, y - 400.0});
  const auto probe = Run([](DriverProbe& p) { p.blockWidth = 4; });
  EXPECT_EQ(probe->GetLastErrorType(), 0);
  // Blocks of 4 columns: the last column of blocks lies outside from the second block row on.
  EXPECT_LT(probe->Count("Process"), 16);
  EXPECT_EQ(probe->Count("End"), 16);
  EXPECT_EQ(progress.Steps(), 1 + 16) << "a block outside still counts one step";
  const auto out = ReadImage(scene.outFile);
  for (int row = 0; row < 40; ++row) {
    for (int column = 0; column < 16; ++column) {
      const bool inside = (column + 0.5) / 16.0 + (row + 0.5) / 40.0 < 1.0;
      const auto at = static_cast<std::size_t>(row * 16 + column);
      ASSERT_EQ(out.bands[0][at], inside ? scene.pan.bands[0][at] : 0.0) << column << ' ' << row;
    }
  }
}

TEST_F(Driver, BlockWhollyInsideTheAreaGetsNoMask) {
  param.m_strAoiFile = L"/vsimem/driver_cover.csv";
  test_support::WriteTriangle(param.m_strAoiFile, {440000.0 - 500.0, 4470000.0 + 10.0},
                              {440000.0 + 5000.0, 4470000.0 + 10.0}, {440000.0 - 500.0, 4470000.0 - 5000.0});
  const auto probe = Run();
  EXPECT_EQ(probe->masked, (std::vector<bool>{false, false, false, false}));
}

TEST_F(Driver, FailedAllocationBecomesAnErrorState) {
  const auto probe = Run([](DriverProbe& p) { p.inProcess = [] { throw std::bad_alloc(); }; });
  EXPECT_EQ(probe->GetLastErrorType(), 6);
  EXPECT_EQ(probe->GetLastErrorMessage(), L"内存不足！");
  EXPECT_EQ(progress.Errors(), 1);
  EXPECT_EQ(probe->Count("EndProccess"), 1);
}

TEST_F(Driver, ExceptionFromBelowBecomesAnErrorState) {
  const auto probe = Run([](DriverProbe& p) { p.inProcess = [] { throw std::runtime_error("broken"); }; });
  EXPECT_EQ(probe->GetLastErrorType(), 6);
  EXPECT_EQ(probe->GetLastErrorMessage(), L"broken");
}

TEST_F(Driver, ARunClearsTheStateOfTheOneBefore) {
  DriverProbe probe(&param);
  probe.inProcess = [] { throw std::runtime_error("broken"); };
  probe.Process();
  probe.inProcess = {};
  probe.Process();
  EXPECT_EQ(probe.GetLastErrorType(), 0);
  EXPECT_TRUE(probe.GetLastErrorMessage().empty());
}

struct Window : test_support::MessageWindow {
  Window()
      : MessageWindow([this](UINT message, WPARAM first, LPARAM second) -> LRESULT {
          messages.emplace_back(message, reinterpret_cast<const wchar_t*>(first), second);
          threads.push_back(std::this_thread::get_id());
          return 0;
        }) {}
  std::vector<std::tuple<UINT, std::wstring, LPARAM>> messages;
  std::vector<std::thread::id> threads;
};

TEST_F(Driver, CompletionMessageCarriesTheOutputPath) {
  Window window;
  param.m_pNotifyWnd = &window;
  Run();
  ASSERT_EQ(window.messages.size(), 1u);
  EXPECT_EQ(window.messages[0], std::make_tuple(1124u, scene.outFile, LPARAM{1}));
  EXPECT_EQ(window.threads[0], std::this_thread::get_id());
  // With or without a reporter.
  DriverProbe probe(&param);
  probe.Process();
  EXPECT_EQ(window.messages.size(), 2u);
}

TEST_F(Driver, FailedOrCancelledRunSendsNoCompletionMessage) {
  Window window;
  param.m_pNotifyWnd = &window;
  progress.CancelAtStep(1);
  Run();
  FailAt(RasterOperation::kClose, scene.outFile);
  DriverProbe probe(&param);
  probe.Process();
  EXPECT_TRUE(window.messages.empty());
}

TEST_F(Driver, WriteBlockSkipsWhatItCannotWrite) {
  DriverProbe probe(&param);
  CRasterSource dst;
  const double geoTransform[6] = {0, 1, 0, 0, 0, -1};
  ASSERT_TRUE(
      dst.CreateRaster(kFormatGeoTiff, L"/vsimem/write_block.tif", 4, 4, 1, PDT_UINT8, geoTransform, L"", nullptr));
  std::vector<unsigned char> values(16, 7);
  void* bufs[] = {values.data(), values.data()};
  CRect rect(0, 0, 4, 4);
  EXPECT_EQ(probe.WriteBlock(&dst, 2, &rect, bufs), 0) << "a band that the output does not have";
  EXPECT_EQ(probe.WriteBlock(&dst, 0, &rect, nullptr), 0);
  EXPECT_EQ(probe.WriteBlock(&dst, -1, &rect, nullptr), 0);
  CRect outside(2, 2, 6, 6);
  EXPECT_EQ(probe.WriteBlock(&dst, 1, &outside, bufs), 4);
}

}  // namespace
