// The mean gradient over pan's.
#include "quality/sharpness.h"

#include "tests/quality/random_image.h"

namespace {

using quality::Image;
using test_support::MakeImage;
using test_support::RandomImage;

TEST(Sharpness, OfTinyImagesIsThatWorkedOutByHand) {
  // Pan's one gradient has differences 3 and 4: sqrt(25 / 2); the bands' have 6 and 8, and 1 and 7: sqrt(50), sqrt(25).
  const Image pan = MakeImage(2, 2, {{10, 13, 14, 99}});
  const Image fused = MakeImage(2, 2, {{10, 4, 18, 99}, {10, 11, 3, 99}});
  EXPECT_NEAR(quality::Sharpness(pan, fused), (std::sqrt(50.0) + 5.0) / 2.0 / std::sqrt(12.5), 1e-12);
}

TEST(Sharpness, OfPanIsOneAndGrowsWithContrast) {
  const Image pan = RandomImage(1, 9, 7, 1);
  EXPECT_DOUBLE_EQ(quality::Sharpness(pan, pan), 1.0);
  EXPECT_NEAR(quality::Sharpness(pan, test_support::Mapped(pan, [](double v) { return 5.0 - 2.0 * v; })), 2.0, 1e-12);
  EXPECT_EQ(quality::Sharpness(pan, test_support::Mapped(pan, [](double) { return 4.0; })), 0.0);
}

TEST(Sharpness, CountsGradientsOfPixelsThatCountInBoth) {
  // One row of steps 1, 2, 4, 8 over flat rows; without the pixel in the middle the steps 1 and 8 are left.
  Image pan = MakeImage(5, 2, {{0, 1, 3, 7, 15, 0, 1, 3, 7, 15}});
  Image fused = MakeImage(5, 2, {{0, 2, 3, 7, 10, 0, 2, 3, 7, 10}});
  EXPECT_NEAR(quality::Sharpness(pan, fused), 10.0 / 15.0, 1e-12);
  test_support::LeaveOut(fused, 2);
  EXPECT_NEAR(quality::Sharpness(pan, fused), (2.0 + 3.0) / (1.0 + 8.0), 1e-12);
  test_support::LeaveOut(pan, 5);
  EXPECT_NEAR(quality::Sharpness(pan, fused), 3.0 / 8.0, 1e-12);
}

TEST(Sharpness, NeedsOneBandOfPanAndImagesOfOneSize) {
  EXPECT_THROW(quality::Sharpness(RandomImage(1, 5, 5, 2), RandomImage(1, 5, 5, 2)), std::invalid_argument);
  EXPECT_THROW(quality::Sharpness(RandomImage(1, 5, 5, 1), RandomImage(1, 5, 6, 2)), std::invalid_argument);
}

}  // namespace
