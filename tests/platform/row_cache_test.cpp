// Room for decoded rows: how much is asked for, that it adds up and that it is given back.
#include "platform/raster/row_cache.h"

#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "platform/raster/raster_source.h"
#include "tests/support/scene.h"

namespace {

using platform::RowCache;

constexpr std::int64_t kMegabyte = std::int64_t{1} << 20;

/// An open image of 5 x 100 pixels, three bands of 16 bits, in strips of the file format's choice.
class RowCacheTest : public testing::Test {
 protected:
  RowCacheTest() : scene(1, Options()) {
    EXPECT_TRUE(source.OpenSimple(scene.msFile));
    before = GDALGetCacheMax64();
  }
  static test_support::SceneOptions Options() {
    test_support::SceneOptions options;
    options.msWidth = 5;
    options.msHeight = 100;
    return options;
  }
  static std::int64_t Limit() { return GDALGetCacheMax64(); }

  test_support::Scene scene;
  CRasterSource source;
  std::int64_t before = 0;
};

TEST_F(RowCacheTest, CountsWholeBlocksOfAllBands) {
  const std::int64_t rowBytes = 5 * 3 * 2;
  const std::int64_t block = source.GetBlockYSize();
  ASSERT_GT(block, 1);
  // Two rows may lie in two blocks and bring in both wholly.
  EXPECT_GE(RowCache::BytesOf(source, 2), std::min<std::int64_t>(2 * block, 100) * rowBytes);
  EXPECT_GE(RowCache::BytesOf(source, 100), 100 * rowBytes);
  // Never more than the image in whole blocks.
  EXPECT_LE(RowCache::BytesOf(source, 1000000), (100 + block) * rowBytes);
}

TEST_F(RowCacheTest, GivesTheRoomBack) {
  {
    RowCache cache;
    EXPECT_EQ(Limit(), before);
    cache.Reserve(3 * kMegabyte);
    EXPECT_EQ(Limit(), before + 3 * kMegabyte);
    cache.Reserve(2 * kMegabyte);
    EXPECT_EQ(Limit(), before + 3 * kMegabyte);
    cache.Reserve(5 * kMegabyte);
    EXPECT_EQ(Limit(), before + 5 * kMegabyte);
  }
  EXPECT_EQ(Limit(), before);
}

TEST_F(RowCacheTest, AddsUpWhatSeveralRunsAskFor) {
  auto first = std::make_unique<RowCache>();
  RowCache second;
  first->Reserve(3 * kMegabyte);
  second.Reserve(4 * kMegabyte);
  EXPECT_EQ(Limit(), before + 7 * kMegabyte);
  first.reset();
  EXPECT_EQ(Limit(), before + 4 * kMegabyte);
}

TEST_F(RowCacheTest, RefusesMoreThanAShareOfTheMemory) {
  RowCache cache;
  cache.Reserve((std::int64_t{1} << 30) + 1);
  cache.Reserve(-1);
  EXPECT_EQ(Limit(), before);
}

TEST_F(RowCacheTest, LeavesTheUsersChoiceAlone) {
  CPLSetConfigOption("GDAL_CACHEMAX", "64");
  RowCache cache;
  cache.Reserve(3 * kMegabyte);
  CPLSetConfigOption("GDAL_CACHEMAX", nullptr);
  EXPECT_EQ(Limit(), before);
}

}  // namespace
