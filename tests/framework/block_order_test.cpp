// What the block loop does in which order, and on which thread.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <new>
#include <thread>

#include "framework/fusion.h"
#include "platform/raster/raster_fault.h"
#include "tests/support/all_methods.h"
#include "tests/support/command.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"

namespace {

using platform::RasterOperation;
using test_support::ReadImage;
using test_support::Scene;
using test_support::SceneOptions;
using CallList = std::vector<std::string>;

/// Adds every step to the list of calls.
class SteppingProgress : public test_support::RecordingProgress {
 public:
  explicit SteppingProgress(CallList& calls) : m_calls(calls) {}
  bool Step(int position, const std::wstring& text) override {
    if (position > 0) m_calls.push_back("step");
    return RecordingProgress::Step(position, text);
  }

 private:
  CallList& m_calls;
};

/// Writes pan plus the band's number and notes every published call.
class Noting : public CFusion {
 public:
  Noting(FusionParam* param, CallList& calls) : CFusion(param), m_calls(calls) {}

  void GetBlockSize(int& width, int& height) override {
    CFusion::GetBlockSize(width, height);
    height = 10;
  }
  bool GetReadBufferRect(CRect* dstBlock, CRect* msRect) override {
    m_calls.push_back("rect");
    return dstBlock->top != unwantedTop && CFusion::GetReadBufferRect(dstBlock, msRect);
  }
  GISError StartBolckProcess() override {
    m_calls.push_back("start");
    return startResult;
  }
  void** AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect,
                          PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI* aoi) override {
    m_calls.push_back("fuse");
    if (beforeFusing) beforeFusing();
    return FuseRows({pan, panRect, nullptr, ms, msBandCount, msRect, outType, outBandCount, dstBlock, aoi}, {},
                    [](const fusion::FusionRow& row) {
                      for (int b = 0; b < row.outBandCount; ++b) {
                        for (int i = 0; i < row.width; ++i) row.out[b][i] = row.pan[i] + b;
                      }
                    });
  }
  void EndBolckProcess() override { m_calls.push_back("end"); }
  void EndProccess() override { m_calls.push_back("end of run"); }

  GISError startResult = GIS_SUCCESS;
  int unwantedTop = -1;
  std::function<void()> beforeFusing;

 private:
  CallList& m_calls;
};

class BlockOrder : public testing::Test {
 protected:
  BlockOrder() : scene(1, Options()), param(scene.Param()) {}
  ~BlockOrder() override { platform::SetRasterFault({}); }

  static SceneOptions Options() {
    SceneOptions options;
    options.panWidth = 16;
    options.panHeight = 20;
    options.msBands = 2;
    return options;
  }
  /// Notes the blocks read and written, those of the run alone.
  void NoteTransfers(const std::function<bool(RasterOperation, int band, const CRect&)>& fails = {}) {
    platform::SetRasterFault([=, this](RasterOperation operation, const std::wstring& path, int band, const CRect& r) {
      if (operation == RasterOperation::kWrite) calls.push_back("write " + std::to_string(band));
      if (operation == RasterOperation::kRead) {
        calls.push_back(path == scene.panFile ? "read pan" : "read ms " + std::to_string(band));
      }
      return fails && fails(operation, band, r);
    });
  }

  Scene scene;
  FusionParam param;
  CallList calls;
};

const CallList kBlock = {"rect", "start",   "read ms 0", "read ms 1", "read pan",
                         "fuse", "write 0", "write 1",   "end",       "step"};

CallList operator+(CallList first, const CallList& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

TEST_F(BlockOrder, EachBlockIsReadFusedWrittenAndEndedBeforeTheNextOneBegins) {
  NoteTransfers();
  SteppingProgress progress(calls);
  Noting fusion(&param, calls);
  fusion.SetProgress(&progress);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  EXPECT_EQ(calls, kBlock + kBlock + CallList{"end of run"});
}

TEST_F(BlockOrder, AFailedWriteEndsTheRunAtItsBlock) {
  NoteTransfers([](RasterOperation operation, int band, const CRect&) {
    return operation == RasterOperation::kWrite && band == 1;
  });
  SteppingProgress progress(calls);
  Noting fusion(&param, calls);
  fusion.SetProgress(&progress);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 3);
  EXPECT_EQ(calls, (CallList{"rect", "start", "read ms 0", "read ms 1", "read pan", "fuse", "write 0", "write 1",
                             "end of run"}));
}

TEST_F(BlockOrder, ABlockWithoutReadRectangleIsNotReadEvenAhead) {
  NoteTransfers();
  SteppingProgress progress(calls);
  Noting fusion(&param, calls);
  fusion.unwantedTop = 10;
  fusion.SetProgress(&progress);
  fusion.Process();
  EXPECT_EQ(calls, kBlock + CallList({"rect", "end of run"}));
}

TEST_F(BlockOrder, ABlockOutsideTheAreaIsNotReadEvenAhead) {
  // A triangle over the upper block, and a pixel's worth of another one that keeps the covering rectangle whole.
  param.m_strAoiFile = L"/vsimem/order_area.csv";
  const auto ground = [&](int column, int row) {
    const auto& t = scene.pan.geoTransform;
    return reference::Position{t[0] + column * t[1], t[3] + row * t[5]};
  };
  test_support::WriteTriangle(param.m_strAoiFile, ground(0, 0), ground(16, 0), ground(0, 10));
  param.m_rcProcess = {0, 0, 16, 20};
  NoteTransfers();
  SteppingProgress progress(calls);
  /// Keeps the rectangle that the area would cut.
  class Uncut : public Noting {
   public:
    using Noting::Noting;
    bool ConfigRasterAOI(AlgorithmParam* record, CRasterSource* source, CRasterAOI** aoi) override {
      const CRect whole = record->m_rcProcess;
      const bool ok = Noting::ConfigRasterAOI(record, source, aoi);
      record->m_rcProcess = whole;
      return ok;
    }
  } fusion(&param, calls);
  fusion.SetProgress(&progress);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  EXPECT_EQ(calls, kBlock + CallList({"rect", "start", "end", "step", "end of run"}));
}

TEST_F(BlockOrder, ARefusedBlockGivesTheTypeThatItsRefusalReturns) {
  for (const GISError refusal : {GIS_OPEN_FAILED, GIS_FAILED, static_cast<GISError>(7)}) {
    CallList ignored;
    Noting fusion(&param, ignored);
    fusion.startResult = refusal;
    fusion.Process();
    EXPECT_EQ(fusion.GetLastErrorType(), refusal);
  }
}

TEST_F(BlockOrder, ARefusedBlockKeepsTheTypeThatWasSet) {
  class Setting : public Noting {
   public:
    using Noting::Noting;
    GISError StartBolckProcess() override {
      SetError(7, L"mine");
      return GIS_FAILED;
    }
  } fusion(&param, calls);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 7);
  EXPECT_EQ(fusion.GetLastErrorMessage(), L"mine");
}

/// The threads on which rasters were read and written.
class Transfers {
 public:
  Transfers() {
    platform::SetRasterFault([this](RasterOperation operation, const std::wstring&, int, const CRect&) {
      const bool transfers = operation == RasterOperation::kRead || operation == RasterOperation::kWrite;
      if (transfers && std::this_thread::get_id() != m_caller) m_elsewhere = true;
      return false;
    });
  }
  ~Transfers() { platform::SetRasterFault({}); }
  Transfers(const Transfers&) = delete;
  Transfers& operator=(const Transfers&) = delete;
  bool WereElsewhere() const { return m_elsewhere; }

 private:
  std::thread::id m_caller = std::this_thread::get_id();
  std::atomic<bool> m_elsewhere = false;
};

TEST(OverlappedIo, IsOnRequestAndGivesTheSameBytesWithEveryMethod) {
  SceneOptions options;
  options.panWidth = 24;
  options.panHeight = 1090;  // three blocks
  const Scene scene(5, options);
  const FusionParam param = scene.Param(PDT_FLOAT32);
  for (const auto& method : test_support::AllMethods()) {
    SCOPED_TRACE(method.name);
    {
      const Transfers transfers;
      method.runWith(param, {});
      EXPECT_FALSE(transfers.WereElsewhere()) << "a run that nobody asked to start threads";
    }
    const auto expected = ReadImage(scene.outFile).bands;
    const Transfers transfers;
    method.runWith(param, {.overlapped = true});
    EXPECT_TRUE(transfers.WereElsewhere());
    test_support::ExpectEqual(ReadImage(scene.outFile), expected);
  }
}

TEST(OverlappedIo, AnExceptionWaitsForTheWriteUnderWay) {
  SceneOptions options;
  options.panWidth = 16;
  options.panHeight = 40;
  const Scene scene(6, options);
  FusionParam param = scene.Param(PDT_UINT16);
  std::atomic<int> writing = 0;
  std::atomic<bool> finishedLate = false;
  std::atomic<bool> ended = false;
  platform::SetRasterFault([&](RasterOperation operation, const std::wstring&, int, const CRect&) {
    if (operation != RasterOperation::kWrite) return false;
    ++writing;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    if (ended) finishedLate = true;
    return false;
  });
  CallList calls;
  Noting fusion(&param, calls);
  // The second pass of a matched run: four blocks are counted, the first one is on its way to the output.
  fusion.MatchBlocks({{10.0, 10.0, 10.0}, {1.0, 1.0, 1.0}});
  int fused = 0;
  fusion.beforeFusing = [&] {
    if (++fused < 6) return;
    while (writing == 0) std::this_thread::yield();
    throw std::bad_alloc();
  };
  fusion.SetOverlappedIo(true);
  fusion.Process();
  ended = true;
  const int before = writing;
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  platform::SetRasterFault({});
  EXPECT_EQ(fusion.GetLastErrorType(), 6);
  EXPECT_EQ(fusion.GetLastErrorMessage(), L"内存不足！");
  EXPECT_EQ(writing, before) << "a thread wrote after the run";
  EXPECT_FALSE(finishedLate);
}

}  // namespace
