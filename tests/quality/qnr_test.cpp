// Quality without a reference.
#include "quality/qnr.h"

#include "tests/quality/random_image.h"

namespace {

using quality::Image;
using test_support::PlainMoments;
using test_support::RandomImage;

/// Every pixel ratio x ratio times.
Image Enlarged(const Image& image, int ratio) {
  Image large;
  large.width = image.width * ratio;
  large.height = image.height * ratio;
  for (const auto& band : image.bands) {
    large.bands.emplace_back();
    for (int y = 0; y < large.height; ++y) {
      for (int x = 0; x < large.width; ++x) {
        large.bands.back().push_back(band[static_cast<std::size_t>(y / ratio * image.width + x / ratio)]);
      }
    }
  }
  return large;
}

/// The mean index of whole blocks.
double PlainIndex(const Image& a, std::size_t bandA, const Image& b, std::size_t bandB, int size) {
  double sum = 0.0;
  int n = 0;
  for (int top = 0; top < a.height; top += size) {
    for (int left = 0; left < a.width; left += size, ++n) {
      sum += PlainMoments(test_support::Part(a, left, top, size, size).bands[bandA],
                          test_support::Part(b, left, top, size, size).bands[bandB])
                 .Index();
    }
  }
  return sum / n;
}

TEST(Qnr, OfPixelsThatAreOnlyEnlargedIsOne) {
  // The moments of a block are those of its pixels, however often each of them stands there.
  for (const int ratio : {2, 4, 5, 8}) {
    const Image ms = RandomImage(1, 32, 32, 3);
    const Image low = RandomImage(2, 32, 32, 1);
    quality::NoReferenceSums sums(ratio);
    sums.Add(Enlarged(low, ratio), Enlarged(ms, ratio), low, ms);
    EXPECT_NEAR(sums.DLambda(), 0.0, 1e-12) << ratio;
    EXPECT_NEAR(sums.DS(), 0.0, 1e-12) << ratio;
    EXPECT_NEAR(sums.Qnr(), 1.0, 1e-12) << ratio;
  }
}

TEST(Qnr, IsThatOfBlocksByTheDefinition) {
  const Image ms = RandomImage(3, 32, 16, 3);
  const Image low = RandomImage(4, 32, 16, 1);
  const Image fused = test_support::Like(Enlarged(ms, 4), 5, 150.0);
  const Image pan = test_support::Like(Enlarged(low, 4), 6, 150.0);
  quality::NoReferenceSums sums(4);
  // In two parts, as tiles come.
  for (const int left : {0, 16}) {
    sums.Add(test_support::Part(pan, 4 * left, 0, 64, 64), test_support::Part(fused, 4 * left, 0, 64, 64),
             test_support::Part(low, left, 0, 16, 16), test_support::Part(ms, left, 0, 16, 16));
  }
  double spectral = 0.0;
  double spatial = 0.0;
  for (std::size_t b = 0; b < 3; ++b) {
    for (std::size_t c = 0; c < b; ++c) {
      spectral += std::fabs(PlainIndex(fused, b, fused, c, 32) - PlainIndex(ms, b, ms, c, 8)) / 3.0;
    }
    spatial += std::fabs(PlainIndex(fused, b, pan, 0, 32) - PlainIndex(ms, b, low, 0, 8)) / 3.0;
  }
  EXPECT_NEAR(sums.DLambda(), spectral, 1e-10);
  EXPECT_NEAR(sums.DS(), spatial, 1e-10);
  EXPECT_NEAR(sums.Qnr(), (1.0 - spectral) * (1.0 - spatial), 1e-10);
}

TEST(Qnr, LeavesOutWhatDoesNotCount) {
  const Image ms = RandomImage(7, 8, 8, 2);
  const Image low = RandomImage(8, 8, 8, 1);
  Image fused = test_support::Like(Enlarged(ms, 4), 9, 150.0);
  const Image pan = Enlarged(low, 4);
  for (std::size_t i = 0; i < 32; ++i) test_support::LeaveOut(fused, i);
  quality::NoReferenceSums sums(4);
  sums.Add(pan, fused, low, ms);
  const Image rest = test_support::Part(fused, 0, 1, 32, 31);
  const double expected =
      std::fabs(PlainMoments(rest.bands[0], rest.bands[1]).Index() - PlainMoments(ms.bands[0], ms.bands[1]).Index());
  EXPECT_NEAR(sums.DLambda(), expected, 1e-12);
  EXPECT_TRUE(std::isfinite(sums.DS()));
}

TEST(Qnr, OfOneBandHasNoPairs) {
  quality::NoReferenceSums sums(2);
  EXPECT_TRUE(std::isnan(sums.DLambda()));
  const Image low = RandomImage(1, 16, 16, 1);
  sums.Add(Enlarged(low, 2), Enlarged(low, 2), low, low);
  EXPECT_TRUE(std::isnan(sums.DLambda()));
  EXPECT_NEAR(sums.DS(), 0.0, 1e-12);
}

TEST(Qnr, OfImagesThatDoNotFitIsRefused) {
  EXPECT_THROW(quality::NoReferenceSums(0), std::invalid_argument);
  const Image ms = RandomImage(1, 8, 8, 2);
  const Image pan = RandomImage(1, 16, 16, 1);
  const Image low = RandomImage(1, 8, 8, 1);
  quality::NoReferenceSums sums(2);
  EXPECT_THROW(sums.Add(pan, RandomImage(1, 16, 16, 3), low, ms), std::invalid_argument);
  EXPECT_THROW(sums.Add(ms, RandomImage(1, 8, 8, 2), low, ms), std::invalid_argument);
  EXPECT_THROW(sums.Add(pan, RandomImage(1, 16, 15, 2), low, ms), std::invalid_argument);
  EXPECT_THROW(sums.Add(pan, RandomImage(1, 16, 16, 2), RandomImage(1, 7, 8, 1), ms), std::invalid_argument);
}

TEST(HybridQnr, TakesTheSpectraFromTheConsistency) {
  const Image ms = RandomImage(2, 12, 12, 3);
  EXPECT_NEAR(quality::KhanDLambda(ms, ms), 0.0, 1e-12);
  // (2 c / (1 + c^2))^2 with c = 2 is 0.64.
  const Image scaled = test_support::Mapped(ms, [](double v) { return 2.0 * v; });
  EXPECT_NEAR(quality::KhanDLambda(ms, scaled), 0.36, 1e-12);
  EXPECT_DOUBLE_EQ(quality::HybridQnr(0.36, 0.5), 0.32);
}

}  // namespace
