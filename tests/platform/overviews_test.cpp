#include <gdal.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/algorithm/build_raster_overviews.h"
#include "platform/raster/raster_fault.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"
#include "tests/support/test_raster.h"

namespace {

namespace fs = std::filesystem;

/// A folder with one raster, removed afterwards.
class Overviews : public testing::Test {
 protected:
  ~Overviews() override {
    platform::SetRasterFault({});
    CBuildRasterOverviews::SetEnabled(true);
  }

  /// A raster whose pixel (x, y) is 4 x + y modulo 199.
  std::string Make(const std::string& name, int width, int height, const char* driver = "GTiff") const {
    GDALAllRegister();
    std::string path = (m_folder / name).string();
    GDALDatasetH memory = GDALCreate(GDALGetDriverByName("MEM"), "", width, height, 1, GDT_Byte, nullptr);
    std::vector<unsigned char> row(static_cast<std::size_t>(width));
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) row[static_cast<std::size_t>(x)] = static_cast<unsigned char>((4 * x + y) % 199);
      EXPECT_EQ(
          GDALRasterIO(GDALGetRasterBand(memory, 1), GF_Write, 0, y, width, 1, row.data(), width, 1, GDT_Byte, 0, 0),
          CE_None);
    }
    GDALDatasetH file =
        GDALCreateCopy(GDALGetDriverByName(driver), path.c_str(), memory, FALSE, nullptr, nullptr, nullptr);
    EXPECT_NE(file, nullptr);
    GDALClose(file);
    GDALClose(memory);
    fs::remove(path + ".aux.xml");
    return path;
  }
  static CRasterSource& Open(CRasterSource& source, const std::string& path, GISDataAccess access = GDA_READ) {
    EXPECT_TRUE(source.Open(std::wstring(path.begin(), path.end()), access, false));
    return source;
  }
  static int Build(const std::string& path, const char* resampling = "AVERAGE", std::vector<int> levels = {},
                   CBaseProgress* progress = nullptr, GISDataAccess access = GDA_READ) {
    CRasterSource source;
    CBuildRasterOverviews build(&Open(source, path, access), resampling, static_cast<int>(levels.size()),
                                levels.empty() ? nullptr : levels.data(), progress, L"", false);
    build.Process();
    EXPECT_EQ(build.GetLastErrorType() == 0, build.GetLastErrorMessage().empty());
    return build.GetLastErrorType();
  }
  static std::vector<int> WidthsOf(const std::string& path) {
    std::vector<int> widths;
    GDALDatasetH file = GDALOpen(path.c_str(), GA_ReadOnly);
    GDALRasterBandH band = GDALGetRasterBand(file, 1);
    widths.reserve(static_cast<std::size_t>(GDALGetOverviewCount(band)));
    for (int i = 0; i < GDALGetOverviewCount(band); ++i)
      widths.push_back(GDALGetRasterBandXSize(GDALGetOverview(band, i)));
    GDALClose(file);
    return widths;
  }
  std::vector<std::string> Files() const {
    std::vector<std::string> files;
    for (const auto& entry : fs::directory_iterator(m_folder)) files.push_back(entry.path().filename().string());
    std::sort(files.begin(), files.end());
    return files;
  }
  static std::string Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  test_support::TempFolder m_temporary;
  fs::path m_folder = m_temporary.Root();
};

using Names = std::vector<std::string>;

TEST_F(Overviews, AreExternalPowersOfTwoUntilTheSmallerSideIsBelow256) {
  const std::string path = Make("a.tif", 1500, 1030);
  const std::string before = Content(path);
  EXPECT_EQ(Build(path), 0);
  // 515, 258, 129 rows.
  EXPECT_EQ(WidthsOf(path), (std::vector<int>{750, 375, 188}));
  EXPECT_EQ(Files(), (Names{"a.tif", "a.tif.ovr"})) << "no other companion";
  EXPECT_EQ(Content(path), before) << "the raster itself is untouched";
}

TEST_F(Overviews, AverageIsTheMeanOfTheFourPixels) {
  const std::string path = Make("a.tif", 600, 300);
  EXPECT_EQ(Build(path), 0);
  GDALDatasetH file = GDALOpen(path.c_str(), GA_ReadOnly);
  unsigned char value = 0;
  ASSERT_EQ(
      GDALRasterIO(GDALGetOverview(GDALGetRasterBand(file, 1), 0), GF_Read, 5, 7, 1, 1, &value, 1, 1, GDT_Byte, 0, 0),
      CE_None);
  GDALClose(file);
  // (54 + 58 + 55 + 59) / 4 = 56.5, of which the builder may round either way.
  EXPECT_GE(value, 56);
  EXPECT_LE(value, 57);
}

TEST_F(Overviews, OfASmallImageAreNone) {
  for (const auto& [width, height] : {std::pair{255, 3000}, {3000, 255}, {1, 1}}) {
    const std::string path = Make("a.tif", width, height);
    EXPECT_EQ(Build(path), 0);
    EXPECT_EQ(Files(), (Names{"a.tif"}));
  }
  const std::string path = Make("a.tif", 256, 256);
  EXPECT_EQ(Build(path), 0);
  EXPECT_EQ(WidthsOf(path), (std::vector<int>{128}));
}

TEST_F(Overviews, AnOddSideIsRoundedUp) {
  // 511 rows become 256, which are not below it yet.
  const std::string path = Make("a.tif", 600, 511);
  EXPECT_EQ(Build(path), 0);
  EXPECT_EQ(WidthsOf(path), (std::vector<int>{300, 150}));
}

TEST_F(Overviews, LevelsMayBeGiven) {
  const std::string path = Make("a.tif", 400, 300);
  EXPECT_EQ(Build(path, "NEAREST", {4, 16}), 0);
  EXPECT_EQ(WidthsOf(path), (std::vector<int>{100, 25}));
}

TEST_F(Overviews, AreExternalForARasterOpenForUpdatingToo) {
  const std::string path = Make("a.tif", 600, 300);
  EXPECT_EQ(Build(path, "AVERAGE", {}, nullptr, GDA_UPDATE), 0);
  EXPECT_EQ(Files(), (Names{"a.tif", "a.tif.ovr"}));
}

TEST_F(Overviews, SwitchedOffDoNothing) {
  const std::string path = Make("a.tif", 600, 300);
  EXPECT_TRUE(CBuildRasterOverviews::IsEnabled());
  CBuildRasterOverviews::SetEnabled(false);
  EXPECT_EQ(Build(path), 0);
  EXPECT_EQ(Files(), (Names{"a.tif"}));
}

TEST_F(Overviews, OneRunMayGoWithout) {
  const std::string path = Make("a.tif", 600, 300);
  CRasterSource source;
  CBuildRasterOverviews build(&Open(source, path), "AVERAGE", 0, nullptr, nullptr, L"", false);
  build.SetBuildsOverviews(false);
  build.Process();
  EXPECT_EQ(build.GetLastErrorType(), 0);
  source.Close();
  EXPECT_EQ(Files(), (Names{"a.tif"}));
}

TEST_F(Overviews, CancelledOnesAreRemoved) {
  const std::string path = Make("a.tif", 3000, 3000);
  test_support::RecordingProgress progress;
  progress.RequestCancel();
  CRasterSource source;
  CBuildRasterOverviews build(&Open(source, path), "AVERAGE", 0, nullptr, &progress, L"", false);
  build.Process();
  EXPECT_EQ(build.GetLastErrorType(), 1);
  EXPECT_EQ(progress.Errors(), 0);
  EXPECT_TRUE(progress.Calls().empty()) << "only asked whether to go on";
  source.Close();
  EXPECT_EQ(Files(), (Names{"a.tif"}));
}

TEST_F(Overviews, FailureIsAnErrorStateAndLeavesTheRasterWhole) {
  const std::string path = Make("a.tif", 600, 300);
  const std::string before = Content(path);
  platform::SetRasterFault([](platform::RasterOperation operation, const std::wstring& file, int, const CRect&) {
    return operation == platform::RasterOperation::kWrite && file.ends_with(L".ovr");
  });
  EXPECT_EQ(Build(path), 3);
  platform::SetRasterFault({});
  // A folder stands where the overviews should go.
  fs::create_directory(path + ".ovr");
  EXPECT_EQ(Build(path), 3);
  fs::remove(path + ".ovr");
  EXPECT_EQ(Build(path, "NO SUCH RESAMPLING"), 3);
  EXPECT_EQ(Build(path, nullptr), 3);
  EXPECT_EQ(Content(path), before);
  EXPECT_EQ(Files(), (Names{"a.tif"}));
}

TEST_F(Overviews, ClosedOrMissingRasterIsAnErrorState) {
  CRasterSource closed;
  for (CRasterSource* source : {&closed, static_cast<CRasterSource*>(nullptr)}) {
    CBuildRasterOverviews build(source, "AVERAGE", 0, nullptr, nullptr, L"", false);
    build.Process();
    EXPECT_EQ(build.GetLastErrorType(), 4);
  }
}

TEST_F(Overviews, OtherFormatsStayWhole) {
  for (const char* driver : {"HFA", "ENVI", "PNG", "JPEG", "COG"}) {
    GDALAllRegister();
    if (!GDALGetDriverByName(driver)) continue;
    const std::string name = std::string("a_") + driver;
    const std::string path = Make(name, 700, 600, driver);
    const std::string before = Content(path);
    const Names files = Files();
    EXPECT_EQ(Build(path), 0) << driver;
    EXPECT_EQ(Content(path), before) << driver;
    EXPECT_FALSE(WidthsOf(path).empty()) << driver;
    Names expected = files;
    // Two of them bring overviews of their own.
    if (std::string(driver) != "COG" && std::string(driver) != "JPEG") expected.push_back(name + ".ovr");
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(Files(), expected) << driver;
  }
}

}  // namespace
