// The spectral angle.
#include "quality/sam.h"

#include <numbers>

#include "tests/quality/random_image.h"

namespace {

using quality::Image;
using test_support::MakeImage;
using test_support::RandomImage;

TEST(Sam, OfTinyImagesIsTheAngleWorkedOutByHand) {
  // A right angle, 45 degrees, none (twice as bright), and a pixel that is 0 and has no direction.
  const Image truth = MakeImage(4, 1, {{1, 1, 3, 0}, {0, 0, 4, 0}});
  const Image fused = MakeImage(4, 1, {{0, 2, 6, 1}, {5, 2, 8, 1}});
  EXPECT_NEAR(quality::Sam(truth, fused), (90.0 + 45.0 + 0.0) / 3.0, 1e-6);
  EXPECT_NEAR(quality::Sam(fused, truth), 45.0, 1e-6);
}

TEST(Sam, OfARotatedSpectrumIsTheRotation) {
  // Every pixel turned by 20 degrees in the plane of two of its bands, where its whole spectrum lies.
  constexpr double kAngle = 20.0 / 180.0 * std::numbers::pi;
  Image truth = RandomImage(1, 8, 8, 3);
  truth.bands[1].assign(64, 0.0);
  Image turned = truth;
  for (std::size_t i = 0; i < 64; ++i) {
    turned.bands[0][i] = std::cos(kAngle) * truth.bands[0][i] - std::sin(kAngle) * truth.bands[2][i];
    turned.bands[2][i] = std::sin(kAngle) * truth.bands[0][i] + std::cos(kAngle) * truth.bands[2][i];
  }
  EXPECT_NEAR(quality::Sam(truth, turned), 20.0, 1e-9);
}

TEST(Sam, DoesNotSeeBrightness) {
  const Image truth = RandomImage(2, 8, 9, 4);
  const Image fused = test_support::Like(truth, 3, 50.0);
  EXPECT_NEAR(quality::Sam(truth, truth), 0.0, 2e-6);
  const Image brighter = test_support::Mapped(fused, [](double v) { return 3.0 * v; });
  EXPECT_NEAR(quality::Sam(truth, brighter), quality::Sam(truth, fused), 1e-9);
}

TEST(Sam, LeavesOutWhatEitherImageLeavesOutAndPoolsParts) {
  Image truth = RandomImage(4, 6, 5, 3);
  const Image fused = test_support::Like(truth, 5, 80.0);
  quality::AngleSums sums;
  for (const int top : {0, 2}) {
    const int height = top == 0 ? 2 : 3;
    sums.Add(test_support::Part(truth, 0, top, 6, height), test_support::Part(fused, 0, top, 6, height));
  }
  EXPECT_NEAR(sums.Degrees(), quality::Sam(truth, fused), 1e-10);
  const double rest = quality::Sam(test_support::Part(truth, 0, 1, 6, 4), test_support::Part(fused, 0, 1, 6, 4));
  for (std::size_t i = 0; i < 6; ++i) test_support::LeaveOut(truth, i);
  EXPECT_NEAR(quality::Sam(truth, fused), rest, 1e-10);
  EXPECT_TRUE(std::isnan(quality::Sam(MakeImage(1, 1, {{0}}), MakeImage(1, 1, {{1}}))));
}

TEST(Sam, OfImagesThatDoNotFitIsRefused) {
  test_support::ExpectRefusals([](const Image& t, const Image& f) { return quality::Sam(t, f); });
}

}  // namespace
