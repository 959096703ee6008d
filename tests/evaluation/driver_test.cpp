// The passes of an evaluation: blocks, reads, failures, cancellation.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <new>

#include "evaluation/entropy_evaluate.h"
#include "evaluation/evaluate_factory.h"
#include "evaluation/fusion_evaluate.h"
#include "evaluation/grad_evaluate.h"
#include "evaluation/snr_evaluate.h"
#include "evaluation/statistic_evaluate.h"
#include "platform/raster/raster_fault.h"
#include "platform/utility/log.h"
#include "tests/evaluation/evaluation_fixture.h"

namespace {

using test_support::Band;
using test_support::MakeImage;
using Calls = std::vector<std::string>;

constexpr wchar_t kReadFailed[] = L"读取数据失败！";

/// Records what the driver does over one pass, or as many as asked.
class Probe : public CFusionEvaluate {
 public:
  explicit Probe(FusionEvaluateParam* param) : CFusionEvaluate(param) {}

  GISError Preproccess() override {
    calls.emplace_back("Preproccess");
    m_pMulMax = m_pMulMin = m_pFusionMax = m_pFusionMin = SharedArray(1);
    return preprocessResult;
  }
  void GetBlockSize(int& width, int& height) override {
    CFusionEvaluate::GetBlockSize(width, height);
    blockSize = {width, height};
    if (blockWidth) width = blockWidth;
    if (blockHeight) height = blockHeight;
  }
  bool GetReadBufferRect(CRect* block, CRect* read) override {
    const bool found = CFusionEvaluate::GetReadBufferRect(block, read);
    return found && seen++ != skipBlock;
  }
  GISError StartBolckProcess() override {
    calls.emplace_back("Start");
    return startResult;
  }
  void FusionEvaluate(double* panBuf, CRect* panRect, double** mulBufs, int mulCount, CRect* mulRect,
                      double** fusionBufs, int fusionCount, CRect* blockRect) override {
    calls.emplace_back("Evaluate");
    blocks.push_back(*blockRect);
    panRects.push_back(*panRect);
    readRects.push_back(*mulRect);
    steps.push_back(m_nProcessStep);
    counts = {mulCount, fusionCount};
    firstPan.push_back(panBuf[0]);
    for (int b = 0; b < mulCount; ++b) mul.push_back(Band(mulBufs[b], mulBufs[b] + mulRect->Area()));
    for (int b = 0; b < fusionCount; ++b) fused.push_back(Band(fusionBufs[b], fusionBufs[b] + blockRect->Area()));
    if (inEvaluate) inEvaluate();
  }
  void EndBolckProcess() override { calls.emplace_back("End"); }
  bool IsFinished(int step) override { return step >= passes; }
  void EndProccess() override {
    calls.emplace_back("EndProccess");
    stillOpen = m_pPanSource->IsOpen() && m_pMulSource->IsOpen() && m_pFusionSource->IsOpen();
    CFusionEvaluate::EndProccess();
    freed = !m_pMulMax && !m_pMulMin && !m_pFusionMax && !m_pFusionMin;
  }
  std::ptrdiff_t Count(const std::string& call) const { return std::count(calls.begin(), calls.end(), call); }
  bool HasSources() const { return m_pPanSource || m_pMulSource || m_pFusionSource || m_pReproject; }

  int passes = 1;
  int blockWidth = 0;
  int blockHeight = 0;
  int skipBlock = -1;
  GISError preprocessResult = GIS_SUCCESS;
  GISError startResult = GIS_SUCCESS;
  std::function<void()> inEvaluate;

  int seen = 0;
  bool stillOpen = false;
  bool freed = false;
  std::pair<int, int> blockSize;
  std::pair<int, int> counts;
  std::vector<int> steps;
  std::vector<CRect> blocks;
  std::vector<CRect> panRects;
  std::vector<CRect> readRects;
  std::vector<double> firstPan;
  std::vector<Band> mul;
  std::vector<Band> fused;
  Calls calls;
};

/// Values that tell their place: 100 y + x.
Band Places(int width, int height) {
  Band band;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) band.push_back(100.0 * y + x);
  }
  return band;
}

class EvaluationDriver : public test_support::EvaluationTest {
 protected:
  /// A fused image of 20 x 12 pixels, its multispectral image of 10 x 6, the pan image 3 columns and 2 rows larger.
  void WriteSmall() {
    Write(MakeImage(23, 14, 1.0, {Places(23, 14)}, -3.0, 2.0), MakeImage(10, 6, 2.0, {Places(10, 6)}),
          MakeImage(20, 12, 1.0, {Places(20, 12)}));
    param.m_rcPanOffset = {3, 2, 0, 0};
  }
  std::unique_ptr<Probe> RunProbe(const std::function<void(Probe&)>& prepare = {}) {
    auto probe = std::make_unique<Probe>(&param);
    if (prepare) prepare(*probe);
    probe->SetProgress(&progress);
    probe->Process();
    EXPECT_FALSE(probe->HasSources()) << "sources outlive the run";
    return probe;
  }
  static void FourBlocks(Probe& probe) { probe.blockWidth = probe.blockHeight = 10; }
};

TEST_F(EvaluationDriver, RunsItsPassesOverAllBlocksAndEndsOnce) {
  WriteSmall();
  const auto probe = RunProbe([](Probe& p) {
    FourBlocks(p);
    p.passes = 2;
  });
  EXPECT_EQ(probe->GetLastErrorType(), 0);
  EXPECT_EQ(sleeps, std::vector<unsigned int>{1000});
  EXPECT_EQ(probe->steps, (std::vector<int>{1, 1, 1, 1, 2, 2, 2, 2}));
  EXPECT_EQ(probe->Count("Start"), 8);
  EXPECT_EQ(probe->Count("End"), 8);
  EXPECT_EQ(probe->Count("EndProccess"), 1);
  EXPECT_EQ(probe->calls.front(), "Preproccess");
  EXPECT_EQ(probe->calls.back(), "EndProccess");
  EXPECT_TRUE(probe->stillOpen);
  EXPECT_TRUE(probe->freed);
  const std::vector<std::wstring> expected = {
      L"Start 正在进行test... 3", L"Step 0 配置参数...", L"Start 正在进行test... 4", L"Step 1 处理中...",
      L"Step 2 处理中...",        L"Step 3 处理中...",   L"Step 4 处理中...",        L"Step 1 处理中...",
      L"Step 2 处理中...",        L"Step 3 处理中...",   L"Step 4 处理中...",        L"Finish"};
  EXPECT_EQ(progress.Calls(), expected);
}

TEST_F(EvaluationDriver, WorksWithoutAReporter) {
  WriteSmall();
  Probe probe(&param);
  probe.Process();
  EXPECT_EQ(probe.GetLastErrorType(), 0);
  EXPECT_EQ(probe.Count("EndProccess"), 1);
}

TEST_F(EvaluationDriver, EachBlockComesWithThePixelsUnderIt) {
  WriteSmall();
  const auto probe = RunProbe(FourBlocks);
  EXPECT_EQ(probe->blocks, (std::vector<CRect>{{0, 0, 10, 10}, {10, 0, 20, 10}, {0, 10, 10, 12}, {10, 10, 20, 12}}));
  EXPECT_EQ(probe->panRects[3], CRect(13, 12, 23, 14));
  EXPECT_EQ(probe->firstPan[3], 1213.0);
  EXPECT_EQ(probe->fused[3].front(), 1010.0);
  EXPECT_EQ(probe->fused[3].back(), 1119.0);
  EXPECT_EQ(probe->counts, std::make_pair(1, 1));
  // Five pixels of margin, as far as the multispectral image goes.
  EXPECT_EQ(probe->readRects, (std::vector<CRect>{{0, 0, 10, 6}, {0, 0, 10, 6}, {0, 0, 10, 6}, {0, 0, 10, 6}}));
  EXPECT_EQ(probe->mul[3], Places(10, 6));
}

TEST_F(EvaluationDriver, OverlappingReadsGiveTheSamePixelsAsFreshOnes) {
  // One fused row a block: each reads all but the first or last row of what the block before had.
  const Band rows = Places(4, 40);
  Write(MakeImage(4, 40, 1.0, {rows}), MakeImage(4, 40, 1.0, {rows}), MakeImage(4, 40, 1.0, {rows}));
  const auto probe = RunProbe([](Probe& p) {
    p.blockWidth = 4;
    p.blockHeight = 1;
    p.passes = 2;
  });
  ASSERT_EQ(probe->mul.size(), 80u);
  for (std::size_t i = 0; i < probe->mul.size(); ++i) {
    const CRect& read = probe->readRects[i];
    const int y = static_cast<int>(i % 40);
    EXPECT_EQ(read, CRect(0, std::max(y - 5, 0), 4, std::min(y + 6, 40)));
    EXPECT_EQ(probe->mul[i], Band(rows.begin() + 4 * read.top, rows.begin() + 4 * read.bottom)) << i;
  }
}

TEST_F(EvaluationDriver, ReadIsCutToAMultispectralImageThatCoversOnlyPart) {
  Write(MakeImage(40, 40, 1.0, {Band(1600, 0.0)}), MakeImage(8, 8, 1.0, {Places(8, 8)}, 30.0, -2.0),
        MakeImage(40, 40, 1.0, {Band(1600, 0.0)}));
  const auto probe = RunProbe([](Probe& p) { p.blockWidth = p.blockHeight = 20; });
  // The first block ends 10 columns before the multispectral image: nothing can be read for it.
  EXPECT_EQ(probe->GetLastErrorType(), 2);
  EXPECT_TRUE(probe->blocks.empty());
  const auto whole = RunProbe();
  EXPECT_EQ(whole->GetLastErrorType(), 0);
  EXPECT_EQ(whole->readRects[0], CRect(0, 0, 8, 8));
}

TEST_F(EvaluationDriver, SmallNativeBlocksBecome1024AndLargeOnesAreKept) {
  const auto sizeOf = [&](int width, int height, std::vector<std::string> options) {
    fusedStorage.type = PDT_UINT8;
    fusedStorage.options = std::move(options);
    Write(MakeImage(4, 4, 1.0, {Band(16, 0.0)}), MakeImage(4, 4, 1.0, {Band(16, 0.0)}),
          MakeImage(width, height, 1.0, {Band(static_cast<std::size_t>(width * height), 0.0)}));
    return RunProbe([](Probe& p) { p.preprocessResult = GIS_FAILED; })->blockSize;
  };
  EXPECT_EQ(sizeOf(600, 600, {"TILED=YES", "BLOCKXSIZE=512", "BLOCKYSIZE=512"}), std::make_pair(1024, 1024));
  EXPECT_EQ(sizeOf(3000, 20, {"TILED=YES", "BLOCKXSIZE=2048", "BLOCKYSIZE=512"}), std::make_pair(2048, 512));
  EXPECT_EQ(sizeOf(20, 20, {"TILED=YES", "BLOCKXSIZE=256", "BLOCKYSIZE=1024"}), std::make_pair(256, 1024));
  EXPECT_EQ(sizeOf(1024, 20, {"BLOCKYSIZE=1"}), std::make_pair(1024, 1));
  EXPECT_EQ(sizeOf(1023, 20, {"BLOCKYSIZE=1"}), std::make_pair(1024, 1024));
}

TEST_F(EvaluationDriver, ColumnsAdvanceByTheBlocksHeight) {
  const Band zeros(60 * 6, 0.0);
  Write(MakeImage(60, 6, 1.0, {zeros}), MakeImage(60, 6, 1.0, {zeros}), MakeImage(60, 6, 1.0, {zeros}));
  const auto probe = RunProbe([](Probe& p) {
    p.blockWidth = 20;
    p.blockHeight = 5;
  });
  EXPECT_EQ(
      probe->blocks,
      (std::vector<CRect>{{0, 0, 20, 5}, {5, 0, 25, 5}, {10, 0, 30, 5}, {0, 5, 20, 6}, {5, 5, 25, 6}, {10, 5, 30, 6}}));
}

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

TEST_F(EvaluationDriver, BlockWithoutReadRectangleIsPassedOverSilently) {
  WriteSmall();
  const auto probe = RunProbe([](Probe& p) {
    FourBlocks(p);
    p.skipBlock = 1;
  });
  EXPECT_EQ(probe->GetLastErrorType(), 0);
  EXPECT_EQ(probe->Count("Evaluate"), 3);
  EXPECT_EQ(probe->Count("Start"), 3);
  EXPECT_EQ(progress.Steps(), 1 + 3);
}

TEST_F(EvaluationDriver, BuffersGrowForALargeReadRectangle) {
  // A block of 2 x 2 fused pixels on a multispectral image four times as fine.
  Write(MakeImage(4, 4, 8.0, {Places(4, 4)}), MakeImage(32, 32, 1.0, {Places(32, 32)}),
        MakeImage(4, 4, 8.0, {Places(4, 4)}));
  const auto probe = RunProbe([](Probe& p) { p.blockWidth = p.blockHeight = 2; });
  EXPECT_EQ(probe->GetLastErrorType(), 0);
  EXPECT_EQ(probe->readRects[3], CRect(11, 11, 32, 32));
  EXPECT_EQ(probe->mul[3].front(), 1111.0);
  EXPECT_EQ(probe->mul[3].back(), 3131.0);
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

TEST_F(EvaluationDriver, ReprojectedReadCoversTheBlockWithTenPixelsOfMargin) {
  msStorage.wkt = fusedStorage.wkt = test_support::UtmWkt();
  param.m_bReproject = 1;
  const double x = 440000.0;
  const double y = 4470000.0;
  const Band zeros(100 * 100, 0.0);
  Write(MakeImage(100, 100, 10.0, {zeros}, x, y), MakeImage(100, 100, 10.0, {zeros}, x + 4, y - 4),
        MakeImage(100, 100, 10.0, {zeros}, x, y));
  const auto probe = RunProbe([](Probe& p) { p.blockWidth = p.blockHeight = 50; });
  EXPECT_EQ(probe->GetLastErrorType(), 0);
  ASSERT_EQ(probe->readRects.size(), 4u);
  EXPECT_EQ(probe->readRects[0], CRect(0, 0, 60, 60));
  EXPECT_EQ(probe->readRects[3], CRect(39, 39, 100, 100));
}

TEST_F(EvaluationDriver, ReprojectedBlockFarFromTheMultispectralImageIsAFailedRead) {
  msStorage.wkt = fusedStorage.wkt = test_support::UtmWkt();
  param.m_bReproject = 1;
  const Band zeros(16, 0.0);
  Write(MakeImage(4, 4, 10.0, {zeros}, 440000.0, 4470000.0), MakeImage(4, 4, 10.0, {zeros}, 540000.0, 4470000.0),
        MakeImage(4, 4, 10.0, {zeros}, 440000.0, 4470000.0));
  EXPECT_EQ(RunProbe()->GetLastErrorType(), 2);
}

TEST_F(EvaluationDriver, ListsOfUnequalLengthAreRefusedByEveryMetric) {
  WriteSmall();
  param.m_vecFusionBands = {0, 0};
  for (int type = 0; type < 4; ++type) {
    progress.Clear();
    const std::unique_ptr<CFusionEvaluate> metric(
        CFusEvaluateAlgorithmFactory::CreateAlgorithm(static_cast<FusionEvaluateType>(type), &progress, &param));
    metric->Process();
    EXPECT_EQ(metric->GetLastErrorType(), 0);
    EXPECT_EQ(progress.Calls().back(), L"Error 0 ") << type;
    EXPECT_EQ(progress.Steps(), 1) << "no block is evaluated";
    metric->EndProccess();
  }
}

TEST_F(EvaluationDriver, EmptyListsAreARunWithoutResults) {
  WriteSmall();
  param.m_vecMulBands.clear();
  param.m_vecFusionBands.clear();
  for (int type = 0; type < 4; ++type) {
    const std::unique_ptr<CFusionEvaluate> metric(
        CFusEvaluateAlgorithmFactory::CreateAlgorithm(static_cast<FusionEvaluateType>(type), nullptr, &param));
    metric->Process();
    EXPECT_EQ(metric->GetLastErrorType(), 0) << type;
  }
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

TEST_F(EvaluationDriver, SecondRunOfAnObjectEnds) {
  WriteSmall();
  for (int type = 0; type < 4; ++type) {
    const std::unique_ptr<CFusionEvaluate> metric(
        CFusEvaluateAlgorithmFactory::CreateAlgorithm(static_cast<FusionEvaluateType>(type), nullptr, &param));
    metric->Process();
    metric->Process();
    EXPECT_EQ(metric->GetLastErrorType(), 0) << type;
  }
}

TEST_F(EvaluationDriver, MetricsEndSafelyWithoutARun) {
  param.m_vecMulBands = param.m_vecFusionBands = {0};
  for (int type = 0; type < 4; ++type) {
    const std::unique_ptr<CFusionEvaluate> metric(
        CFusEvaluateAlgorithmFactory::CreateAlgorithm(static_cast<FusionEvaluateType>(type), nullptr, &param));
    metric->EndProccess();
    int width = 0;
    int height = 0;
    metric->GetBlockSize(width, height);
    EXPECT_EQ(width, 1024);
    EXPECT_EQ(height, 1024);
  }
}

TEST_F(EvaluationDriver, BufferCellIsRoundedAndClamped) {
  Probe probe(&param);
  CRect rect(10, 20, 15, 23);
  const auto cell = [&](double x, double y) {
    int column = -1;
    int row = -1;
    probe.ImgXY2BufXY(x, y, &rect, column, row);
    return std::make_pair(column, row);
  };
  EXPECT_EQ(cell(12.49, 21.5), std::make_pair(2, 2));
  EXPECT_EQ(cell(12.5, 21.49), std::make_pair(3, 1));
  EXPECT_EQ(cell(9.0, 19.0), std::make_pair(0, 0));
  EXPECT_EQ(cell(15.0, 23.0), std::make_pair(4, 2));
  EXPECT_EQ(cell(-1e9, 1e9), std::make_pair(0, 2));
  EXPECT_EQ(cell(-1e300, 1e300), std::make_pair(0, 2));
  EXPECT_EQ(cell(std::nan(""), INFINITY), std::make_pair(0, 2));
  // Truncation is towards zero: -0.9 + 0.5 is cell 0 of a buffer that starts at 0, as is -1.4 + 0.5.
  rect = {0, 0, 5, 5};
  EXPECT_EQ(cell(-0.9, -1.4), std::make_pair(0, 0));
}

TEST(EvaluationParam, DefaultsAndCopies) {
  FusionEvaluateParam param;
  EXPECT_EQ(param.m_dReserved[0], 0.0);
  EXPECT_EQ(param.m_rcPanOffset, CRect(0, 0, 0, 0));
  param.m_strPanFile = L"a";
  param.m_vecMulBands = {1, 2};
  param.m_dReserved[1] = 5.0;
  const FusionEvaluateParam copy = param;
  param.m_vecMulBands[0] = 9;
  EXPECT_EQ(copy.m_vecMulBands, (std::vector<std::int32_t>{1, 2}));
  EXPECT_EQ(copy.m_strPanFile, L"a");
  EXPECT_EQ(copy.m_dReserved[1], 5.0);
}

TEST(EvaluationFactory, MakesTheFourMetricsAndNothingElse) {
  test_support::RecordingProgress progress;
  FusionEvaluateParam param;
  const auto make = [&](int type) {
    return std::unique_ptr<CFusionEvaluate>(
        CFusEvaluateAlgorithmFactory::CreateAlgorithm(static_cast<FusionEvaluateType>(type), &progress, &param));
  };
  EXPECT_NE(dynamic_cast<CEntropyEvaluate*>(make(0).get()), nullptr);
  EXPECT_NE(dynamic_cast<CStatisticEvaluate*>(make(1).get()), nullptr);
  EXPECT_NE(dynamic_cast<CSNREvaluate*>(make(2).get()), nullptr);
  EXPECT_NE(dynamic_cast<CGradEvaluate*>(make(3).get()), nullptr);
  EXPECT_EQ(make(0)->GetProgress(), &progress);
  for (const int type : {-1, 4, 1000}) EXPECT_EQ(make(type), nullptr);
}

}  // namespace
