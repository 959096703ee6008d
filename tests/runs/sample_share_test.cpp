// Shares of samples, of all rows and of some.
#include "runs/sample_share.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/command.h"
#include "tests/support/scene.h"

namespace {

TEST(SampleShareTest, IsThatOfAllSamplesOrOfRowsFromEverywhere) {
  // Two bands of 4000 rows: the last quarter of the first one counts, and one sample of the second.
  constexpr int kWidth = 5;
  constexpr int kHeight = 4000;
  reference::Image image;
  image.width = kWidth;
  image.height = kHeight;
  image.bands.assign(2, std::vector<double>(std::size_t{kWidth} * kHeight, 1.0));
  std::fill(image.bands[0].begin() + std::ptrdiff_t{kWidth} * 3000, image.bands[0].end(), 9.0);
  image.bands[1].back() = 9.0;
  const test_support::TemporaryFolder folder;
  test_support::WriteImage(image, folder.WidePath("a.tif"), PDT_UINT8);
  CRasterSource source;
  ASSERT_TRUE(source.OpenSimple(folder.WidePath("a.tif")));
  std::int64_t looked = 0;
  const auto nines = [&looked](const double* values, std::int64_t n) {
    looked += n;
    return std::int64_t{std::count(values, values + n, 9.0)};
  };
  EXPECT_DOUBLE_EQ(fusion::SampleShare(source, 1, nines), 0.25);
  EXPECT_DOUBLE_EQ(fusion::SampleShare(source, 2, nines), 5001.0 / 40000.0);
  looked = 0;
  // 31 pieces of 32 rows: one of them more or less.
  EXPECT_NEAR(fusion::SampleShare(source, 1, nines, 1000), 0.25, 1.0 / 31.0);
  EXPECT_LE(looked, 1000 * kWidth);
  EXPECT_GE(looked, 900 * kWidth);
  EXPECT_DOUBLE_EQ(fusion::SampleShare(source, 1, nines, 1), 0.0) << "at least some rows, the first ones";
}

}  // namespace
