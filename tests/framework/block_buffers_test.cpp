#include "framework/run/block_buffers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <vector>

#include "platform/raster/raster_fault.h"
#include "tests/support/test_raster.h"

namespace {

using fusion::BandBuffers;
using fusion::BlockGrid;

TEST(BlockGrid, CoversTheLargestRasters) {
  constexpr int kMost = std::numeric_limits<int>::max();
  const BlockGrid grid{kMost, 5, 1024, 4};
  EXPECT_EQ(grid.Across(), 2097152);
  EXPECT_EQ(grid.Count(), 2 * 2097152);
  EXPECT_EQ(grid.Block(2097151, 1), CRect(kMost - 1023, 4, kMost, 5));
  EXPECT_EQ((BlockGrid{3, kMost, 8, 2}.Down()), 1073741824);
  EXPECT_EQ((BlockGrid{0, -3, 8, 2}.Count()), 0);
}

TEST(BlockGrid, BlocksFollowEachOtherRowByRow) {
  const BlockGrid grid{10, 7, 4, 3};
  std::vector<CRect> walked;
  grid.ForEach([&](const CRect& block) {
    walked.push_back(block);
    return true;
  });
  ASSERT_EQ(walked.size(), 9u);
  for (std::size_t i = 0; i + 1 < walked.size(); ++i) EXPECT_EQ(grid.After(walked[i]), walked[i + 1]) << i;
  EXPECT_EQ(grid.After(walked.back()).Area(), 0);
}

TEST(BlockGrid, MayTakeSomeRowsOfSoMany) {
  BlockGrid grid{10, 31, 6, 3, 100, 200};
  grid.apart = 10;
  std::vector<CRect> walked;
  grid.ForEach([&](const CRect& block) {
    walked.push_back(block);
    return true;
  });
  // In the first, second, first and third place of three, by 0, 0.618, 0.236 and 0.854; the last one lies off the grid.
  const std::vector<CRect> expected = {{100, 200, 106, 203}, {106, 200, 110, 203}, {100, 213, 106, 216},
                                       {106, 213, 110, 216}, {100, 220, 106, 223}, {106, 220, 110, 223},
                                       {100, 230, 106, 231}, {106, 230, 110, 231}};
  EXPECT_EQ(walked, expected);
  EXPECT_EQ(grid.Count(), 8);
  for (std::size_t i = 0; i + 1 < walked.size(); ++i) EXPECT_EQ(grid.After(walked[i]), walked[i + 1]) << i;
  EXPECT_EQ(grid.After(walked.back()).Area(), 0);
}

class BandBuffersTest : public testing::Test {
 protected:
  BandBuffersTest() {
    const std::wstring path = test_support::MemoryPath();
    EXPECT_TRUE(test_support::WriteRaster(
        test_support::MakeRaster(20, 30, [](int x, int y) { return static_cast<double>(100 * y + x); }), path));
    EXPECT_TRUE(source.OpenSimple(path));
    band = source.GetRasterBand(0);
  }
  ~BandBuffersTest() override { platform::SetRasterFault({}); }

  static void ExpectHolds(const double* values, const CRect& rect) {
    const double* v = values;
    for (int y = rect.top; y < rect.bottom; ++y) {
      for (int x = rect.left; x < rect.right; ++x) ASSERT_EQ(*v++, 100 * y + x);
    }
    for (int i = 0; i < rect.Width() + 2; ++i) ASSERT_EQ(*v++, 0.0) << "behind the rectangle";
  }

  /// The same where the rectangle reaches beyond the image, which repeats its edges there.
  static void ExpectHoldsRepeated(const double* values, const CRect& rect) {
    const double* v = values;
    for (int y = rect.top; y < rect.bottom; ++y) {
      for (int x = rect.left; x < rect.right; ++x) {
        ASSERT_EQ(*v++, 100 * std::clamp(y, 0, 29) + std::clamp(x, 0, 19)) << x << ' ' << y;
      }
    }
  }

  CRasterSource source;
  CRasterBand* band = nullptr;
  platform::TaskQueue reader{4};
};

TEST_F(BandBuffersTest, RepeatsTheImagesEdgesAllAroundARectangle) {
  BandBuffers buffers(1, 1000);
  buffers.RepeatEdges(true);
  for (const CRect& rect : {CRect(0, 0, 20, 30), CRect(0, 4, 20, 9), CRect(3, 0, 7, 5), CRect(16, 25, 20, 30)}) {
    const CRect larger = fusion::BeyondEdges(rect, 20, 30);
    EXPECT_EQ(larger.Width(), rect.Width() + (rect.left == 0 ? 3 : 0) + (rect.right == 20 ? 3 : 0));
    ASSERT_TRUE(buffers.Read(0, band, larger));
    ExpectHoldsRepeated(buffers[0], larger);
  }
}

TEST_F(BandBuffersTest, AnExpectedReadIsDoneOnceAndAnswersTheSame) {
  std::atomic<int> reads = 0;
  platform::SetRasterFault([&](platform::RasterOperation, const std::wstring&, int, const CRect&) {
    ++reads;
    return false;
  });
  BandBuffers buffers(1, 100);
  const CRect first(0, 0, 20, 5);
  const CRect second(3, 5, 17, 12);
  ASSERT_TRUE(buffers.Read(0, band, first));
  buffers.Expect(0, band, second, reader);
  ExpectHolds(buffers[0], first);
  ASSERT_TRUE(buffers.Read(0, band, second));
  EXPECT_EQ(buffers.Pointers()[0], buffers[0]);
  ExpectHolds(buffers[0], second);
  EXPECT_EQ(reads, 2);
}

TEST_F(BandBuffersTest, SomethingElseThanExpectedIsReadAllTheSame) {
  BandBuffers buffers(2, 200);
  const CRect expected(0, 0, 20, 5);
  const CRect other(0, 1, 20, 6);
  buffers.Expect(0, band, expected, reader);
  buffers.Expect(1, band, expected, reader);
  buffers.Expect(1, band, other, reader);
  ASSERT_TRUE(buffers.Read(0, band, other));
  ExpectHolds(buffers[0], other);
  ASSERT_TRUE(buffers.Read(1, band, other));
  ExpectHolds(buffers[1], other);
}

TEST_F(BandBuffersTest, AnotherBandThanExpectedIsReadAllTheSame) {
  const std::wstring path = test_support::MemoryPath();
  ASSERT_TRUE(test_support::WriteRaster(test_support::MakeRaster(20, 30, [](int, int) { return -1.0; }), path));
  CRasterSource another;
  ASSERT_TRUE(another.OpenSimple(path));
  BandBuffers buffers(1, 200);
  const CRect rect(0, 0, 20, 5);
  buffers.Expect(0, another.GetRasterBand(0), rect, reader);
  ASSERT_TRUE(buffers.Read(0, band, rect));
  ExpectHolds(buffers[0], rect);
  reader.Wait();
}

TEST_F(BandBuffersTest, ReadingOnKeepsRowsOfTheSameColumnsOnly) {
  BandBuffers buffers(1, 400);
  for (const CRect& rect : {CRect(2, 0, 12, 10), CRect(2, 4, 12, 14), CRect(2, 6, 13, 15), CRect(3, 7, 13, 16),
                            CRect(3, 7, 13, 16), CRect(3, 2, 13, 12), CRect(3, 20, 13, 30)}) {
    ASSERT_TRUE(buffers.ReadOn(0, band, rect));
    ExpectHolds(buffers[0], rect);
  }
}

TEST_F(BandBuffersTest, BuffersThatGrowForgetWhatWasExpected) {
  BandBuffers buffers(1, 50);
  const CRect small(0, 0, 5, 5);
  const CRect large(0, 0, 20, 30);
  buffers.Expect(0, band, small, reader);
  buffers.Expect(0, band, large, reader);  // does not fit yet: read when it is asked for
  ASSERT_TRUE(buffers.Read(0, band, large));
  ExpectHolds(buffers[0], large);
  ASSERT_TRUE(buffers.Read(0, band, small));
  ExpectHolds(buffers[0], small);
}

TEST_F(BandBuffersTest, AFailureShowsWhenTheBlockIsAskedFor) {
  const CRect rect(0, 0, 20, 5);
  BandBuffers buffers(1, 200);
  platform::SetRasterFault([](platform::RasterOperation, const std::wstring&, int, const CRect&) { return true; });
  buffers.Expect(0, band, rect, reader);
  reader.Wait();
  platform::SetRasterFault({});
  EXPECT_FALSE(buffers.Read(0, band, rect));
  ASSERT_TRUE(buffers.Read(0, band, rect));
  ExpectHolds(buffers[0], rect);
}

TEST_F(BandBuffersTest, WhatCannotBeReadIsNotExpected) {
  BandBuffers buffers(1, 100);
  buffers.Expect(0, nullptr, CRect(0, 0, 5, 5), reader);
  buffers.Expect(0, band, CRect(), reader);
  EXPECT_FALSE(buffers.Read(0, nullptr, CRect(0, 0, 5, 5)));
  EXPECT_FALSE(buffers.Read(0, band, CRect()));
}

}  // namespace
