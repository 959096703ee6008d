// Shares of samples.
#include "runs/sample_share.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/command.h"
#include "tests/support/scene.h"

namespace {

TEST(SampleShareTest, IsThatOfAllSamplesOfTheFirstBand) {
  // Two bands of 4001 rows: the last rows of the first one count, and all of the second.
  constexpr int kWidth = 5;
  constexpr int kHeight = 4001;
  reference::Image image;
  image.width = kWidth;
  image.height = kHeight;
  image.bands.assign(2, std::vector<double>(std::size_t{kWidth} * kHeight, 9.0));
  std::fill_n(image.bands[0].begin(), kWidth * 3000, 1.0);
  const test_support::TemporaryFolder folder;
  test_support::WriteImage(image, folder.WidePath("a.tif"), PDT_UINT8);
  CRasterSource source;
  ASSERT_TRUE(source.OpenSimple(folder.WidePath("a.tif")));
  const auto nines = [](const double* values, std::int64_t n) {
    return std::int64_t{std::count(values, values + n, 9.0)};
  };
  EXPECT_DOUBLE_EQ(fusion::SampleShare(source, nines), 1001.0 / 4001.0);
}

}  // namespace
