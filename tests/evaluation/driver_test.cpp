// The passes of an evaluation: blocks and what is read for them.
#include <gdal.h>

#include <cmath>

#include "evaluation/statistic_evaluate.h"
#include "tests/evaluation/evaluation_probe.h"

namespace {

using test_support::Band;
using test_support::EvaluationDriver;
using test_support::MakeImage;
using test_support::Places;
using test_support::Probe;

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

TEST_F(EvaluationDriver, OneStripIsTakenInPiecesWhereTheRecordBoundsThem) {
  const int width = 1100;
  const int height = 20;
  Band values;
  for (int i = 0; i < width * height; ++i) values.push_back(i * 7919 % 1009);
  Band others = values;
  std::reverse(others.begin(), others.end());
  for (const char* compression : {"COMPRESS=NONE", "COMPRESS=DEFLATE"}) {
    // A strip a band: a lone uncompressed strip would be seen as one strip a row.
    fusedStorage.options = {"BLOCKYSIZE=20", "INTERLEAVE=BAND", compression};
    Write(MakeImage(width, height, 1.0, {values}), MakeImage(width, height, 1.0, {others, values}),
          MakeImage(width, height, 1.0, {values, others}));
    param.m_nMostBlockPixels = 0;
    EXPECT_EQ(RunProbe()->blocks, (std::vector<CRect>{{0, 0, width, height}}));
    const auto whole = Run<CStatisticEvaluate>();
    param.m_nMostBlockPixels = 8 * width + 1;
    EXPECT_EQ(RunProbe()->blocks, (std::vector<CRect>{{0, 0, width, 8}, {0, 8, width, 16}, {0, 16, width, height}}));
    const auto pieces = Run<CStatisticEvaluate>();
    EXPECT_EQ(pieces->m_pMulMean[0], whole->m_pMulMean[0]);
    EXPECT_EQ(pieces->m_pFusionStdDev[0], whole->m_pFusionStdDev[0]);
    EXPECT_EQ(pieces->m_pRelativeDeviation[0], whole->m_pRelativeDeviation[0]);
  }
  // Without room for the decoded strip each piece would decode it again.
  const GIntBig before = GDALGetCacheMax64();
  GDALSetCacheMax64(1000);
  EXPECT_EQ(RunProbe()->blocks.size(), 1U);
  GDALSetCacheMax64(before);
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

}  // namespace
