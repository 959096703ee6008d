// Which names a pattern stands for, and files of one band each as one image.
#include "platform/raster/file_pattern.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <stdexcept>

#include "platform/raster/band_stack.h"
#include "platform/raster/raster_source.h"
#include "tests/support/command.h"
#include "tests/support/scene.h"

namespace {

using platform::ComesBefore;
using platform::MatchesPattern;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(FilePattern, MatchesAsShellsDo) {
  EXPECT_TRUE(MatchesPattern(L"LC08_B2.TIF", L"LC08*_B[2-5].TIF"));
  EXPECT_TRUE(MatchesPattern(L"LC08_x_B5.TIF", L"LC08*_B[2-5].TIF"));
  EXPECT_FALSE(MatchesPattern(L"LC08_B6.TIF", L"LC08*_B[2-5].TIF"));
  EXPECT_FALSE(MatchesPattern(L"LC08_B2.TIF.aux", L"LC08*_B[2-5].TIF"));
  EXPECT_TRUE(MatchesPattern(L"aab", L"*a?"));
  EXPECT_TRUE(MatchesPattern(L"a_ab_b", L"a*b"));
  EXPECT_TRUE(MatchesPattern(L"", L"*"));
  EXPECT_FALSE(MatchesPattern(L"", L"?"));
  EXPECT_TRUE(MatchesPattern(L"B7", L"B[!2-5]"));
  EXPECT_FALSE(MatchesPattern(L"B3", L"B[^2-5]"));
  EXPECT_TRUE(MatchesPattern(L"B]", L"B[]]"));
  EXPECT_TRUE(MatchesPattern(L"B-", L"B[a-]"));
  EXPECT_TRUE(MatchesPattern(L"B[2", L"B[2")) << "a bracket that nothing closes";
}

TEST(FilePattern, NumbersCountAsNumbers) {
  std::vector<std::wstring> names = {L"B10", L"B2", L"B8A", L"B8", L"B1", L"B02"};
  std::sort(names.begin(), names.end(), ComesBefore);
  EXPECT_THAT(names, ElementsAre(L"B1", L"B02", L"B2", L"B8", L"B8A", L"B10"));
}

TEST(FilePattern, ANameThatIsAFileIsThatFile) {
  const test_support::TemporaryFolder folder;
  for (const std::string name : {"a[1].tif", "a1.tif", "b10.tif", "b9.tif"}) {
    CRasterSource file;
    const double grid[6] = {0, 1, 0, 0, 0, -1};
    ASSERT_TRUE(file.CreateRaster(kFormatGeoTiff, folder.WidePath(name), 2, 2, 1, PDT_UINT8, grid, L"",
                                  std::vector<std::string>{}));
  }
  EXPECT_THAT(platform::FilesMatching(folder.WidePath("a[1].tif")), ElementsAre(folder.WidePath("a[1].tif")));
  EXPECT_THAT(platform::FilesMatching(folder.WidePath("b*.tif")),
              ElementsAre(folder.WidePath("b9.tif"), folder.WidePath("b10.tif")));
  EXPECT_THAT(platform::FilesMatching(folder.WidePath("c*.tif")), ElementsAre());
  EXPECT_THAT(platform::FilesMatching(L"nowhere.tif"), ElementsAre(L"nowhere.tif"));
}

class BandStackTest : public testing::Test {
 protected:
  /// A file whose samples tell where they are; the upper left corner is always the same.
  std::wstring Make(const std::string& name, int size, double pixel, int bands = 1, const std::wstring& wkt = L"") {
    const double grid[6] = {100.0, pixel, 0.0, 200.0, 0.0, -pixel};
    CRasterSource file;
    EXPECT_TRUE(file.CreateRaster(kFormatGeoTiff, m_folder.WidePath(name), size, size, bands, PDT_UINT16, grid, wkt,
                                  std::vector<std::string>{}));
    std::vector<std::uint16_t> samples(static_cast<std::size_t>(size) * static_cast<std::size_t>(size));
    for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<std::uint16_t>(i);
    for (int b = 0; b < bands; ++b) {
      EXPECT_EQ(file.GetRasterBand(b)->WriteBlock(0, 0, size, size, samples.data(), size, size, PDT_UINT16), 0);
    }
    return m_folder.WidePath(name);
  }
  static std::string Refusal(const std::vector<std::wstring>& files) {
    try {
      const platform::BandStack stack(files);
    } catch (const std::runtime_error& e) {
      return e.what();
    }
    return "";
  }

  test_support::TemporaryFolder m_folder;
};

TEST_F(BandStackTest, HasTheSmallestPixelsAndTheNearestSamples) {
  const std::vector<std::wstring> files = {Make("B2.tif", 4, 10.0), Make("B5.tif", 2, 20.0)};
  const platform::BandStack stack(files);
  const reference::Image image = test_support::ReadImage(stack.Path());
  ASSERT_EQ(image.width, 4);
  ASSERT_EQ(image.height, 4);
  ASSERT_EQ(image.bands.size(), 2U);
  for (std::size_t y = 0; y < 4; ++y) {
    for (std::size_t x = 0; x < 4; ++x) {
      EXPECT_EQ(image.bands[0][y * 4 + x], static_cast<double>(y * 4 + x));
      EXPECT_EQ(image.bands[1][y * 4 + x], static_cast<double>(y / 2 * 2 + x / 2));
    }
  }
  CRasterSource file;
  ASSERT_TRUE(file.OpenSimple(stack.Path()));
  EXPECT_EQ(file.GetRasterBand(1)->GetDescription(), L"B5");
}

TEST_F(BandStackTest, RefusesWhatCannotBeLaidTogether) {
  const std::wstring metres = L"LOCAL_CS[\"plan\",UNIT[\"metre\",1]]";
  const std::wstring plain = Make("plain.tif", 4, 10.0);
  EXPECT_THAT(Refusal({plain, Make("two.tif", 4, 10.0, 2)}), HasSubstr("two.tif has 2 bands"));
  EXPECT_THAT(Refusal({plain, Make("plan.tif", 4, 10.0, 1, metres)}), HasSubstr("another coordinate system than"));
  EXPECT_THAT(Refusal({plain, m_folder.WidePath("nix.tif")}), HasSubstr("nix.tif"));
}

}  // namespace
