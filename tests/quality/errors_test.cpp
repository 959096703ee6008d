// Differences from a truth: ERGAS, root mean square error, bias.
#include "quality/errors.h"

#include "tests/quality/random_image.h"

namespace {

using quality::Image;
using test_support::MakeImage;
using test_support::RandomImage;

TEST(Errors, OfAnImageFromItselfAreNone) {
  const Image image = RandomImage(1, 7, 5, 3);
  EXPECT_EQ(quality::Ergas(image, image, 4.0), 0.0);
  EXPECT_EQ(quality::Rmse(image, image), std::vector<double>(3, 0.0));
  EXPECT_EQ(quality::Bias(image, image), std::vector<double>(3, 0.0));
}

TEST(Errors, OfTinyImagesAreThoseWorkedOutByHand) {
  // Errors 3 of a mean of 10, and 4 of a mean of 20: relative squares 0.09 and 0.04, whose mean is 0.065.
  const Image truth = MakeImage(2, 2, {{10, 10, 10, 10}, {10, 30, 30, 10}});
  const Image fused = MakeImage(2, 2, {{13, 7, 13, 7}, {14, 26, 34, 14}});
  EXPECT_DOUBLE_EQ(quality::Ergas(truth, fused, 4.0), 25.0 * std::sqrt(0.065));
  EXPECT_DOUBLE_EQ(quality::Ergas(truth, fused, 2.0), 50.0 * std::sqrt(0.065));
  EXPECT_DOUBLE_EQ(quality::Rmse(truth, fused)[0], 3.0);
  EXPECT_DOUBLE_EQ(quality::Rmse(truth, fused)[1], 4.0);
  // 4 - 4 + 4 + 4 over four pixels is 2, a tenth of 20.
  EXPECT_DOUBLE_EQ(quality::Bias(truth, fused)[0], 0.0);
  EXPECT_DOUBLE_EQ(quality::Bias(truth, fused)[1], 0.1);
}

TEST(Errors, OfAScaledImageAreKnown) {
  const Image truth = RandomImage(2, 11, 6, 4);
  constexpr double kScale = 1.25;
  double sum = 0.0;
  for (const auto& band : truth.bands) {
    double mean = 0.0;
    double square = 0.0;
    for (const double v : band) {
      mean += v / 66.0;
      square += v * v / 66.0;
    }
    sum += square / (mean * mean) / 4.0;
  }
  const Image scaled = test_support::Mapped(truth, [](double v) { return kScale * v; });
  EXPECT_NEAR(quality::Ergas(truth, scaled, 2.0), 50.0 * 0.25 * std::sqrt(sum), 1e-10);
  for (const double bias : quality::Bias(truth, scaled)) EXPECT_NEAR(bias, 0.25, 1e-12);
  // Both images in another unit.
  const Image other = test_support::Like(truth, 3, 40.0);
  const auto inUnits = [](const Image& image) {
    return test_support::Mapped(image, [](double v) { return v / 32.0; });
  };
  EXPECT_NEAR(quality::Ergas(inUnits(truth), inUnits(other), 2.0), quality::Ergas(truth, other, 2.0), 1e-10);
}

TEST(Errors, LeaveOutWhatEitherImageLeavesOut) {
  Image truth = MakeImage(3, 1, {{10, 20, 30}});
  Image fused = MakeImage(3, 1, {{12, 0, 0}});
  test_support::LeaveOut(truth, 1);
  test_support::LeaveOut(fused, 2);
  EXPECT_DOUBLE_EQ(quality::Rmse(truth, fused)[0], 2.0);
  EXPECT_DOUBLE_EQ(quality::Bias(truth, fused)[0], 0.2);
  EXPECT_DOUBLE_EQ(quality::Ergas(truth, fused, 1.0), 20.0);
  test_support::LeaveOut(truth, 0);
  EXPECT_TRUE(std::isnan(quality::Ergas(truth, fused, 1.0)));
}

TEST(Errors, OfPartsAreThoseOfTheWhole) {
  const Image truth = RandomImage(4, 12, 9, 3);
  const Image fused = test_support::Like(truth, 5, 60.0);
  quality::ErrorSums sums;
  for (const int left : {0, 5}) {
    const int width = left == 0 ? 5 : 7;
    sums.Add(test_support::Part(truth, left, 0, width, 9), test_support::Part(fused, left, 0, width, 9));
  }
  EXPECT_EQ(sums.Count(), 108);
  EXPECT_NEAR(sums.Ergas(2.0), quality::Ergas(truth, fused, 2.0), 1e-10);
  for (std::size_t b = 0; b < 3; ++b) {
    EXPECT_NEAR(sums.Rmse()[b], quality::Rmse(truth, fused)[b], 1e-10);
    EXPECT_NEAR(sums.Bias()[b], quality::Bias(truth, fused)[b], 1e-12);
  }
}

TEST(Errors, OfImagesThatDoNotFitAreRefused) {
  test_support::ExpectRefusals([](const Image& t, const Image& f) { return quality::Ergas(t, f, 2.0); });
}

}  // namespace
