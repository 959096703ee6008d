// Compressed files that are decoded and encoded on several threads, where the library is all of its process.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "platform/raster/raster_source.h"
#include "platform/system/process.h"
#include "platform/utility/common_fun.h"
#include "tests/support/command.h"
#include "tests/support/scene.h"

namespace {

constexpr int kSize = 640;

class Decoding : public testing::Test {
 protected:
  void SetUp() override {
    platform::OwnProcess();
    reference::Image image;
    image.width = image.height = kSize;
    image.geoTransform[1] = image.geoTransform[5] = 1.0;
    image.bands.emplace_back();
    unsigned state = 5;
    for (int i = 0; i < kSize * kSize; ++i) {
      state = state * 1664525U + 1013904223U;
      image.bands[0].push_back(static_cast<double>(state >> 20));
    }
    expected = image.bands[0];
    test_support::WriteImage(image, folder.WidePath("tiles.tif"), PDT_UINT16, "", std::nullopt,
                             {"COMPRESS=DEFLATE", "TILED=YES"});
  }
  void TearDown() override {
    platform::SetCodecThreads(1);
    platform::OwnProcess(false);
  }

  /// Reads the whole band; empty where that fails.
  std::vector<double> Read() const {
    CRasterSource source;
    EXPECT_TRUE(source.OpenSimple(folder.WidePath("tiles.tif")));
    std::vector<double> values(expected.size());
    const bool read =
        source.GetRasterBand(0)->ReadBlock(0, 0, kSize, kSize, values.data(), kSize, kSize, PDT_FLOAT64) == 0;
    return read ? values : std::vector<double>();
  }

  test_support::TemporaryFolder folder;
  std::vector<double> expected;
};

#ifdef __linux__
std::ptrdiff_t ThreadsOfProcess() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), std::filesystem::directory_iterator());
}

TEST_F(Decoding, TakesTheThreadsThatItMay) {
  const std::ptrdiff_t before = ThreadsOfProcess();
  EXPECT_EQ(Read(), expected);
  EXPECT_EQ(ThreadsOfProcess(), before);
  platform::SetCodecThreads(3);
  platform::OwnProcess(false);
  EXPECT_EQ(Read(), expected);
  EXPECT_EQ(ThreadsOfProcess(), before) << "another program's process stays as it is";
  platform::OwnProcess();
  EXPECT_EQ(Read(), expected);
  EXPECT_GT(ThreadsOfProcess(), before);
}

TEST_F(Decoding, EncodingTakesThemTooAndWritesTheSameFile) {
  const auto write = [&](const std::string& name, const std::vector<std::string>& options) {
    const double transform[] = {0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
    const std::ptrdiff_t before = ThreadsOfProcess();
    CRasterSource created;
    EXPECT_TRUE(created.CreateRaster(kFormatGeoTiff, folder.WidePath(name), kSize, kSize, 1, PDT_UINT16, transform, L"",
                                     options));
    EXPECT_EQ(created.GetRasterBand(0)->WriteBlock(0, 0, kSize, kSize, expected.data(), kSize, kSize, PDT_FLOAT64), 0);
    EXPECT_TRUE(created.Close());
    return ThreadsOfProcess() - before;
  };
  const std::vector<std::string> packed = {"COMPRESS=DEFLATE", "TILED=YES"};
  EXPECT_EQ(write("one.tif", packed), 0);
  // More than any test before may have asked for, since they stay.
  platform::SetCodecThreads(6);
  EXPECT_EQ(write("plain.tif", {}), 0) << "nothing is encoded";
  EXPECT_EQ(write("own.tif", {"COMPRESS=DEFLATE", "TILED=YES", "NUM_THREADS=1"}), 0) << "the caller's word counts";
  EXPECT_GT(write("six.tif", packed), 0);
  const auto bytes = [&](const std::string& name) { return test_support::FileBytes(folder.Path(name)); };
  EXPECT_EQ(bytes("six.tif"), bytes("one.tif"));
}
#else
TEST_F(Decoding, TakesTheThreadsThatItMay) { GTEST_SKIP() << "the threads of a process are not listed here"; }
TEST_F(Decoding, EncodingTakesThemTooAndWritesTheSameFile) {
  GTEST_SKIP() << "the threads of a process are not listed here";
}
#endif

TEST_F(Decoding, ADamagedFileFailsWithoutAWordOfItsOwn) {
  const auto path = CommonFun::ToPath(folder.WidePath("tiles.tif"));
  {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(std::filesystem::file_size(path) / 2));
    file << std::string(20000, 'U');
  }
  for (const int threads : {1, 3}) {
    platform::SetCodecThreads(threads);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(Read().empty()) << threads;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  }
}

}  // namespace
