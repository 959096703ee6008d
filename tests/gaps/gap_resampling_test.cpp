#include "framework/resampling/gap_resampling.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "framework/resampling/kernels.h"
#include "framework/resampling/resample_point.h"
#include "tests/support/numbers.h"

namespace {

using fusion::ListTaps;
using fusion::ResampleValid;
using fusion::Tap;

using test_support::kNaN;

/// A rectangle of 6 x 5 samples at (3, 2) with the value 10 x column + row, counted in the image.
class GapResampling : public testing::Test {
 protected:
  GapResampling() {
    for (int y = m_rect.top; y < m_rect.bottom; ++y) {
      for (int x = m_rect.left; x < m_rect.right; ++x) m_band.push_back(10.0 * x + y);
    }
  }
  double& At(int x, int y) {
    return m_band[static_cast<std::size_t>((y - m_rect.top) * m_rect.Width() + x - m_rect.left)];
  }
  double Value(ResampleType type, double x, double y) const { return ResampleValid(type, x, y, m_band.data(), m_rect); }

  CRect m_rect{3, 2, 9, 7};
  std::vector<double> m_band;
};

TEST(TapLists, AreTheKernelsOwn) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> value(-1000.0, 1000.0);
  for (int round = 0; round < 3000; ++round) {
    const int left = static_cast<int>(random() % 4);
    const int top = static_cast<int>(random() % 4);
    const CRect rect(left, top, left + 1 + static_cast<int>(random() % 9), top + 1 + static_cast<int>(random() % 9));
    std::vector<double> band(static_cast<std::size_t>(rect.Area() + rect.Width() + 2), 0.0);
    for (std::int64_t i = 0; i < rect.Area(); ++i) band[static_cast<std::size_t>(i)] = value(random);
    // Positions on the rectangle, whole ones among them, as an image's clamp leaves them; a rectangle that begins
    // inside an image has a margin there.
    const auto position = [&](int first, int size) {
      const double from = first > 0 ? std::min(1, size - 1) : 0.0;
      const double p = first + from + (size - 1 - from) * (static_cast<double>(random()) / 4294967296.0);
      return random() % 4 == 0 ? std::floor(p) : p;
    };
    const double x = position(rect.left, rect.Width());
    const double y = position(rect.top, rect.Height());
    for (const ResampleType type : fusion::kResampleTypes) {
      const double* bands[] = {band.data()};
      double expected = 0.0;
      fusion::ResamplePoint(type, x, y, bands, 1, rect, &expected);
      std::vector<Tap> taps;
      ListTaps(type, x, y, rect, taps);
      double sum = 0.0;
      double scale = 0.0;
      for (const Tap& tap : taps) {
        const double term = tap.weight * band[static_cast<std::size_t>(tap.row * rect.Width() + tap.column)];
        sum += term;
        scale += std::fabs(term);
      }
      ASSERT_NEAR(sum, expected, 1e-12 * scale) << type << " at " << x << ' ' << y;
    }
  }
  std::vector<Tap> taps(3);
  ListTaps(static_cast<ResampleType>(7), 1.0, 1.0, CRect(0, 0, 4, 4), taps);
  EXPECT_TRUE(taps.empty());
}

TEST_F(GapResampling, BilinearWeighsWhatIsLeft) {
  // Weights 0.75 and 0.25 along the row, 0.5 and 0.5 down.
  At(5, 3) = kNaN;
  const double expected = (0.375 * 43.0 + 0.375 * 44.0 + 0.125 * 54.0) / 0.875;
  EXPECT_NEAR(Value(RT_BILINEAR, 4.25, 3.5), expected, 1e-12);
}

TEST_F(GapResampling, AGapWithoutWeightChangesNothing) {
  At(5, 3) = kNaN;
  EXPECT_EQ(Value(RT_BILINEAR, 4.0, 3.0), 43.0);
  EXPECT_EQ(Value(RT_BICUBIC, 6.0, 4.0), 64.0);
}

TEST_F(GapResampling, BicubicWeighsWhatIsLeft) {
  // Half way between columns the weights are -1/8, 5/8, 5/8, -1/8; on a row they are that row's alone.
  At(6, 4) = kNaN;
  EXPECT_NEAR(Value(RT_BICUBIC, 5.5, 4.0), (-44.0 + 5 * 54.0 - 74.0) / 3.0, 1e-10);
}

TEST_F(GapResampling, WeightsThatCancelLeaveTheNearestSample) {
  // Without both inner taps only negative weights are left.
  At(5, 4) = At(6, 4) = kNaN;
  EXPECT_EQ(Value(RT_BICUBIC, 5.6, 4.0), 63.0);
  At(6, 3) = kNaN;
  EXPECT_EQ(Value(RT_BICUBIC, 5.6, 4.0), 65.0);
}

TEST_F(GapResampling, WithoutATapTheNearestSampleCountsFirstInRowOrder) {
  At(6, 4) = kNaN;
  // Four samples lie at a distance of 1.
  EXPECT_EQ(Value(RT_NEAREST, 6.0, 4.0), 63.0);
  EXPECT_EQ(Value(RT_NEAREST, 6.2, 4.1), 74.0);
}

TEST(NearestWithData, LiesAtMostEightSamplesAway) {
  const CRect rect(0, 0, 20, 1);
  std::vector<double> band(20, kNaN);
  band[18] = 5.0;
  EXPECT_EQ(ResampleValid(RT_NEAREST, 10.0, 0.0, band.data(), rect), 5.0);
  EXPECT_EQ(ResampleValid(RT_NEAREST, 9.9, 0.0, band.data(), rect), 0.0);
  band[2] = 6.0;
  EXPECT_EQ(ResampleValid(RT_NEAREST, 10.0, 0.0, band.data(), rect), 6.0);
}

}  // namespace
