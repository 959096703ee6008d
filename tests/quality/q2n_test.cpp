// The hypercomplex quality index.
#include "quality/q2n.h"

#include <numeric>

#include "tests/quality/random_image.h"

namespace {

using quality::Image;
using test_support::RandomImage;
using Number = std::vector<double>;

Number Plus(Number a, const Number& b, double factor = 1.0) {
  for (std::size_t i = 0; i < a.size(); ++i) a[i] += factor * b[i];
  return a;
}

Number Conjugate(Number a) {
  for (std::size_t i = 1; i < a.size(); ++i) a[i] = -a[i];
  return a;
}

/// Cayley and Dickson's product, half by half.
Number Product(const Number& x, const Number& y) {
  if (x.size() == 1) return {x[0] * y[0]};
  const auto half = static_cast<std::ptrdiff_t>(x.size() / 2);
  const Number a(x.begin(), x.begin() + half);
  const Number b(x.begin() + half, x.end());
  const Number c(y.begin(), y.begin() + half);
  const Number d(y.begin() + half, y.end());
  Number product = Plus(Product(a, c), Product(Conjugate(d), b), -1.0);
  const Number second = Plus(Product(d, a), Product(b, Conjugate(c)));
  product.insert(product.end(), second.begin(), second.end());
  return product;
}

double Square(const Number& a) { return std::inner_product(a.begin(), a.end(), a.begin(), 0.0); }

/// One block by the definition, over numbers of a given length.
double PlainBlock(const Image& truth, const Image& fused, std::size_t parts) {
  const std::size_t n = truth.PixelCount();
  const auto at = [&](const Image& image, std::size_t i) {
    Number number(parts, 0.0);
    for (std::size_t b = 0; b < image.bands.size(); ++b) number[b] = image.bands[b][i];
    return number;
  };
  Number t(parts, 0.0);
  Number f(parts, 0.0);
  Number product(parts, 0.0);
  double squareT = 0.0;
  double squareF = 0.0;
  const double share = 1.0 / static_cast<double>(n);
  for (std::size_t i = 0; i < n; ++i) {
    t = Plus(t, at(truth, i), share);
    f = Plus(f, at(fused, i), share);
    product = Plus(product, Product(at(truth, i), Conjugate(at(fused, i))), share);
    squareT += Square(at(truth, i)) * share;
    squareF += Square(at(fused, i)) * share;
  }
  const double covariance = std::sqrt(Square(Plus(product, Product(t, Conjugate(f)), -1.0)));
  const double varianceT = squareT - Square(t);
  const double varianceF = squareF - Square(f);
  return 4.0 * covariance * std::sqrt(Square(t) * Square(f)) / ((varianceT + varianceF) * (Square(t) + Square(f)));
}

TEST(Q2n, OfAnImageAndItselfIsOne) {
  for (const int bands : {1, 3, 4, 8}) {
    const Image image = RandomImage(static_cast<unsigned>(bands), 40, 33, bands);
    EXPECT_NEAR(quality::Q2n(image, image), 1.0, 1e-12) << bands;
  }
}

TEST(Q2n, OfOneBandIsTheUniversalIndexWithoutItsSign) {
  const Image truth = RandomImage(1, 20, 20, 1);
  const Image fused = test_support::Mapped(test_support::Like(truth, 2, 200.0), [](double v) { return 1200.0 - v; });
  const double index = test_support::PlainMoments(truth.bands[0], fused.bands[0]).Index();
  EXPECT_LT(index, 0.0);
  EXPECT_NEAR(quality::Q2n(truth, fused), -index, 1e-12);
}

TEST(Q2n, OfTwoBandsIsThatOfComplexNumbersWorkedOutByHand) {
  // Truth 2 and 2 + 2i, fused 2 and 4: means 2 + i and 3, variances 1 and 1.
  // E[T F*] = (4 + 8 + 8i) / 2 = 6 + 4i, less (2 + i) 3 = 6 + 3i, leaves i: 1.
  // 2 x 1 / (1 + 1) x 2 sqrt(5) 3 / (5 + 9).
  const Image truth = test_support::MakeImage(2, 1, {{2, 2}, {0, 2}});
  const Image fused = test_support::MakeImage(2, 1, {{2, 4}, {0, 0}});
  EXPECT_NEAR(quality::Q2n(truth, fused), 6.0 * std::sqrt(5.0) / 14.0, 1e-12);
}

TEST(Q2n, IsThatOfHypercomplexNumbersByTheDefinition) {
  for (const auto& [bands, parts] : {std::pair{2, 2U}, {3, 4U}, {4, 4U}, {5, 8U}, {8, 8U}, {9, 16U}}) {
    const Image truth = RandomImage(static_cast<unsigned>(bands), 15, 12, bands);
    // Bands that change places turn the numbers.
    Image fused = test_support::Like(truth, 7, 300.0);
    std::swap(fused.bands[0], fused.bands[1]);
    EXPECT_NEAR(quality::Q2n(truth, fused), PlainBlock(truth, fused, parts), 1e-10) << bands;
  }
}

TEST(Q2n, OfAScaledImageIsKnown) {
  // Covariance c, variances 1 and c^2, means likewise: (2 c / (1 + c^2))^2.
  const Image truth = RandomImage(5, 32, 32, 4);
  const Image scaled = test_support::Mapped(truth, [](double v) { return 2.0 * v; });
  EXPECT_NEAR(quality::Q2n(truth, scaled), 0.64, 1e-12);
  // Even images have no structure to lose.
  const Image ten = test_support::MakeImage(2, 2, {{10, 10, 10, 10}});
  const Image twenty = test_support::MakeImage(2, 2, {{20, 20, 20, 20}});
  EXPECT_DOUBLE_EQ(quality::Q2n(ten, twenty), 0.8);
  EXPECT_DOUBLE_EQ(quality::Q2n(test_support::MakeImage(1, 1, {{0}}), test_support::MakeImage(1, 1, {{0}})), 1.0);
}

TEST(Q2n, IsTheMeanOverThePixelsOfTheirBlocks) {
  Image truth = RandomImage(8, 41, 34, 3);
  const Image fused = test_support::Like(truth, 9, 150.0);
  const auto block = [&](int left, int top, int width, int height) {
    return PlainBlock(test_support::Part(truth, left, top, width, height),
                      test_support::Part(fused, left, top, width, height), 4);
  };
  const double whole = (1024.0 * block(0, 0, 32, 32) + 288.0 * block(32, 0, 9, 32) + 64.0 * block(0, 32, 32, 2) +
                        18.0 * block(32, 32, 9, 2)) /
                       1394.0;
  EXPECT_NEAR(quality::Q2n(truth, fused), whole, 1e-10);
  // Of the last block nothing counts but its first two pixels.
  for (std::size_t y = 32; y < 34; ++y) {
    for (std::size_t x = 34; x < 41; ++x) test_support::LeaveOut(truth, y * 41 + x);
  }
  const double rest = (1024.0 * block(0, 0, 32, 32) + 288.0 * block(32, 0, 9, 32) + 64.0 * block(0, 32, 32, 2) +
                       4.0 * block(32, 32, 2, 2)) /
                      1380.0;
  EXPECT_NEAR(quality::Q2n(truth, fused), rest, 1e-10);
}

TEST(Q2n, OfPartsIsThatOfTheWhole) {
  const Image truth = RandomImage(10, 64, 32, 3);
  const Image fused = test_support::Like(truth, 11, 150.0);
  quality::Q2nSums sums;
  EXPECT_TRUE(std::isnan(sums.Value()));
  for (const int left : {0, 32}) {
    sums.Add(test_support::Part(truth, left, 0, 32, 32), test_support::Part(fused, left, 0, 32, 32));
  }
  EXPECT_NEAR(sums.Value(), quality::Q2n(truth, fused), 1e-12);
}

TEST(Q2n, OfImagesThatDoNotFitIsRefused) {
  test_support::ExpectRefusals([](const Image& t, const Image& f) { return quality::Q2n(t, f); });
}

}  // namespace
