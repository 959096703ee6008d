// Room for decoded rows: how much is asked for, that it adds up and that it is given back.
#include "platform/raster/cache_room.h"

#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "platform/raster/raster_source.h"
#include "platform/system/process.h"
#include "platform/utility/common_fun.h"
#include "tests/support/scene.h"
#include "tests/support/test_raster.h"

namespace {

using platform::CacheRoom;

constexpr std::int64_t kMegabyte = std::int64_t{1} << 20;

/// An open image of 5 x 100 pixels, three bands of 16 bits, in strips of the file format's choice.
class CacheRoomTest : public testing::Test {
 protected:
  CacheRoomTest() : scene(1, Options()) {
    platform::OwnProcess();
    EXPECT_TRUE(source.OpenSimple(scene.msFile));
    before = GDALGetCacheMax64();
  }
  static test_support::SceneOptions Options() {
    test_support::SceneOptions options;
    options.msWidth = 5;
    options.msHeight = 100;
    return options;
  }
  void TearDown() override { platform::OwnProcess(false); }
  static std::int64_t Limit() { return GDALGetCacheMax64(); }

  test_support::Scene scene;
  CRasterSource source;
  std::int64_t before = 0;
};

TEST_F(CacheRoomTest, CountsWholeBlocksOfAllBands) {
  const std::int64_t rowBytes = 5 * 3 * 2;
  const std::int64_t block = source.GetBlockYSize();
  ASSERT_GT(block, 1);
  // Two rows may lie in two blocks and bring in both wholly.
  EXPECT_GE(CacheRoom::BytesOf(source, 2), std::min<std::int64_t>(2 * block, 100) * rowBytes);
  EXPECT_GE(CacheRoom::BytesOf(source, 100), 100 * rowBytes);
  // Never more than the image in whole blocks.
  EXPECT_LE(CacheRoom::BytesOf(source, 1000000), (100 + block) * rowBytes);
}

/// 900 x 700 samples of 16 bits in two bands, each in one strip of more than a megabyte; value 5 x + 3 y + band.
test_support::TestRaster OneStripABand(std::vector<std::string> options) {
  test_support::TestRaster raster = test_support::MakeRaster(900, 700, [](int x, int y) { return 5 * x + 3 * y; });
  raster.bands.push_back(raster.bands[0]);
  for (double& v : raster.bands[1]) v += 1.0;
  raster.type = PDT_UINT16;
  raster.options = std::move(options);
  raster.options.insert(raster.options.end(), {"INTERLEAVE=BAND", "BLOCKYSIZE=700"});
  return raster;
}

TEST_F(CacheRoomTest, LargeStripsThatNeedNoDecodingAreReadPastTheCache) {
  const std::int64_t used = GDALGetCacheUsed64();
  for (const char* order : {"ENDIANNESS=LITTLE", "ENDIANNESS=BIG"}) {
    const std::wstring path = test_support::MemoryPath();
    ASSERT_TRUE(test_support::WriteRaster(OneStripABand({order}), path));
    CRasterSource image;
    ASSERT_TRUE(image.OpenSimple(path));
    ASSERT_EQ(image.GetBlockYSize(), 700);
    EXPECT_EQ(CacheRoom::BytesOf(image, 10), 0);
    EXPECT_EQ(CacheRoom::BytesToShare(image, 10), 0);
    double values[6];
    for (int b = 0; b < 2; ++b) {
      ASSERT_EQ(image.GetRasterBand(b)->ReadBlock(640, 317, 3, 2, values, 3, 2, PDT_FLOAT64), 0);
      for (int i = 0; i < 6; ++i) EXPECT_EQ(values[i], 5 * (640 + i % 3) + 3 * (317 + i / 3) + b);
    }
    EXPECT_LT(GDALGetCacheUsed64() - used, kMegabyte);
    image.Close();

    // Half a strip is a failed read, where it is missing.
    const std::string name = CommonFun::U2Utf8(path);
    VSILFILE* file = VSIFOpenL(name.c_str(), "rb+");
    ASSERT_EQ(VSIFTruncateL(file, 2000000), 0);
    VSIFCloseL(file);
    ASSERT_TRUE(image.OpenSimple(path));
    EXPECT_EQ(image.GetRasterBand(0)->ReadBlock(640, 317, 3, 2, values, 3, 2, PDT_FLOAT64), 0);
    EXPECT_NE(image.GetRasterBand(1)->ReadBlock(0, 690, 3, 2, values, 3, 2, PDT_FLOAT64), 0);
    image.Close();
    CRasterSource::DeleteFileW(path);
  }
}

TEST_F(CacheRoomTest, AStripOfTheWholeImageCountsOnce) {
  const std::wstring path = test_support::MemoryPath();
  ASSERT_TRUE(test_support::WriteRaster(OneStripABand({"COMPRESS=DEFLATE"}), path));
  CRasterSource image;
  ASSERT_TRUE(image.OpenSimple(path));
  for (const std::int64_t rows : {0, 10, 700}) EXPECT_EQ(CacheRoom::BytesOf(image, rows), 900 * 700 * 2 * 2);
  image.Close();
  CRasterSource::DeleteFileW(path);
}

TEST_F(CacheRoomTest, GivesTheRoomBack) {
  {
    CacheRoom cache;
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

TEST_F(CacheRoomTest, AddsUpWhatSeveralRunsAskFor) {
  auto first = std::make_unique<CacheRoom>();
  CacheRoom second;
  first->Reserve(3 * kMegabyte);
  second.Reserve(4 * kMegabyte);
  EXPECT_EQ(Limit(), before + 7 * kMegabyte);
  first.reset();
  EXPECT_EQ(Limit(), before + 4 * kMegabyte);
}

TEST_F(CacheRoomTest, RefusesMoreThanAShareOfTheMemory) {
  CacheRoom cache;
  EXPECT_FALSE(cache.Reserve((std::int64_t{1} << 30) + 1));
  EXPECT_TRUE(cache.Reserve(-1));
  EXPECT_EQ(Limit(), before);
}

TEST_F(CacheRoomTest, LeavesTheCacheOfAnotherProgramAlone) {
  platform::OwnProcess(false);
  GDALSetCacheMax64(100 * kMegabyte);
  {
    CRasterSource opened;
    ASSERT_TRUE(opened.OpenSimple(scene.msFile));
    CacheRoom cache;
    EXPECT_TRUE(cache.Reserve(100 * kMegabyte)) << "it has the room";
    EXPECT_FALSE(cache.Reserve(101 * kMegabyte));
    EXPECT_EQ(Limit(), 100 * kMegabyte);
  }
  EXPECT_EQ(Limit(), 100 * kMegabyte);
  GDALSetCacheMax64(before);
}

TEST_F(CacheRoomTest, LeavesTheUsersChoiceAlone) {
  CPLSetConfigOption("GDAL_CACHEMAX", "64");
  CacheRoom cache;
  EXPECT_FALSE(cache.Reserve(3 * kMegabyte));
  CPLSetConfigOption("GDAL_CACHEMAX", nullptr);
  EXPECT_EQ(Limit(), before);
}

}  // namespace
