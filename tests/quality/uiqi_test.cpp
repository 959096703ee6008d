// The universal image quality index in windows of 8 x 8 and in blocks.
#include "quality/uiqi.h"

#include "quality/block_index.h"
#include "tests/quality/random_image.h"

namespace {

using quality::Image;
using test_support::PlainMoments;
using test_support::RandomImage;

/// The mean of all windows by the definition.
double PlainUiqi(const Image& truth, const Image& fused) {
  double sum = 0.0;
  int n = 0;
  for (std::size_t b = 0; b < truth.bands.size(); ++b) {
    for (int top = 0; top + 8 <= truth.height; ++top) {
      for (int left = 0; left + 8 <= truth.width; ++left, ++n) {
        sum += PlainMoments(test_support::Part(truth, left, top, 8, 8).bands[b],
                            test_support::Part(fused, left, top, 8, 8).bands[b])
                   .Index();
      }
    }
  }
  return sum / n;
}

Image Even(int width, int height, double value) {
  return test_support::MakeImage(
      width, height, {std::vector<double>(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), value)});
}

TEST(Uiqi, OfAnImageAndItselfIsOne) {
  const Image image = RandomImage(1, 13, 11, 2);
  EXPECT_NEAR(quality::Uiqi(image, image), 1.0, 1e-12);
  EXPECT_EQ(quality::Uiqi(Even(8, 8, 5.0), Even(8, 8, 5.0)), 1.0);
  EXPECT_EQ(quality::Uiqi(Even(8, 8, 0.0), Even(8, 8, 0.0)), 1.0);
}

TEST(Uiqi, OfTinyImagesIsThatWorkedOutByHand) {
  // All even, 10 against 20: 2 x 200 / 500.
  EXPECT_DOUBLE_EQ(quality::Uiqi(Even(8, 8, 10.0), Even(8, 8, 20.0)), 0.8);
  // Half 1 and half 3 against the opposite: means 2, covariance -1, variances 1.
  Image truth = Even(8, 8, 1.0);
  Image fused = Even(8, 8, 3.0);
  for (std::size_t i = 0; i < 32; ++i) std::swap(truth.bands[0][i], fused.bands[0][i]);
  EXPECT_NEAR(quality::Uiqi(truth, fused), -1.0, 1e-12);
  // The second window is the first one moved: the truth alone varies, so its covariance is 0.
  Image wide = Even(9, 8, 10.0);
  for (std::size_t y = 0; y < 8; ++y) wide.bands[0][y * 9 + 8] = 26.0;
  EXPECT_NEAR(quality::Uiqi(wide, Even(9, 8, 20.0)), (0.8 + 0.0) / 2.0, 1e-12);
}

TEST(Uiqi, IsTheMeanOfAllWindowsByTheDefinition) {
  const Image truth = RandomImage(2, 19, 14, 3);
  const Image fused = test_support::Like(truth, 3, 200.0);
  EXPECT_NEAR(quality::Uiqi(truth, fused), PlainUiqi(truth, fused), 1e-10);
  // Small differences on large values lose no digits.
  const Image high = test_support::Mapped(truth, [](double v) { return 1e6 + v; });
  const Image other = test_support::Mapped(fused, [](double v) { return 1e6 + v; });
  EXPECT_NEAR(quality::Uiqi(high, other), PlainUiqi(high, other), 1e-8);
}

TEST(Uiqi, CountsWindowsThatCountWholly) {
  Image truth = RandomImage(4, 18, 8, 1);
  const Image fused = test_support::Like(truth, 5, 100.0);
  // Windows from column 10 on do not touch column 9.
  test_support::LeaveOut(truth, 3 * 18 + 9);
  const double expected =
      (PlainMoments(test_support::Part(truth, 0, 0, 8, 8).bands[0], test_support::Part(fused, 0, 0, 8, 8).bands[0])
           .Index() +
       PlainMoments(test_support::Part(truth, 1, 0, 8, 8).bands[0], test_support::Part(fused, 1, 0, 8, 8).bands[0])
           .Index() +
       PlainMoments(test_support::Part(truth, 10, 0, 8, 8).bands[0], test_support::Part(fused, 10, 0, 8, 8).bands[0])
           .Index()) /
      3.0;
  EXPECT_NEAR(quality::Uiqi(truth, fused), expected, 1e-12);
  EXPECT_NEAR(quality::Uiqi(fused, truth), expected, 1e-12);
  EXPECT_TRUE(std::isnan(quality::Uiqi(RandomImage(1, 7, 9, 1), RandomImage(2, 7, 9, 1))));
}

TEST(Uiqi, OfImagesThatDoNotFitIsRefused) {
  test_support::ExpectRefusals([](const Image& t, const Image& f) { return quality::Uiqi(t, f); });
}

TEST(BlockIndex, IsTheMeanOverThePixelsOfTheirBlocks) {
  Image first = RandomImage(6, 11, 6, 2);
  const Image second = RandomImage(7, 11, 6, 3);
  test_support::LeaveOut(first, 0);
  // Blocks of 4: 4, 4 and 3 wide, 4 and 2 high.
  double sum = 0.0;
  double weight = 0.0;
  for (const int top : {0, 4}) {
    for (const int left : {0, 4, 8}) {
      std::vector<double> a;
      std::vector<double> b;
      for (int y = top; y < std::min(top + 4, 6); ++y) {
        for (int x = left; x < std::min(left + 4, 11); ++x) {
          const auto i = static_cast<std::size_t>(y * 11 + x);
          if (i == 0) continue;
          a.push_back(first.bands[1][i]);
          b.push_back(second.bands[2][i]);
        }
      }
      sum += static_cast<double>(a.size()) * PlainMoments(a, b).Index();
      weight += static_cast<double>(a.size());
    }
  }
  EXPECT_EQ(weight, 65.0);
  quality::BlockIndexSums sums(4);
  sums.Add(first, 1, second, 2);
  EXPECT_NEAR(sums.Value(), sum / weight, 1e-12);
  EXPECT_THROW(sums.Add(first, 2, second, 2), std::invalid_argument);
  EXPECT_TRUE(std::isnan(quality::BlockIndexSums(4).Value()));
}

}  // namespace
