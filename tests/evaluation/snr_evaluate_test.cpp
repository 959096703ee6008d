// Signal-to-noise figures of tiny images, worked out by hand.
#include "evaluation/snr_evaluate.h"

#include <cmath>
#include <limits>

#include "tests/evaluation/evaluation_fixture.h"

namespace {

using test_support::MakeImage;

constexpr double kLargest = std::numeric_limits<double>::max();
constexpr double kSmallest = std::numeric_limits<double>::min();

struct Snr : CSNREvaluate {
  using CSNREvaluate::CSNREvaluate;
  using CSNREvaluate::m_pMulMax;
  using CSNREvaluate::m_pMulMin;
  using CSNREvaluate::m_pNoiseSum;
  using CSNREvaluate::m_pPairCount;
  using CSNREvaluate::m_pSignalSum;
};

class SnrEvaluate : public test_support::EvaluationTest {
 protected:
  /// A row of multispectral pixels, the first unseen, whose others lie under the fused row by way of a reprojection.
  void WriteReprojected(const test_support::Band& ms, const test_support::Band& fused) {
    msStorage.wkt = fusedStorage.wkt = test_support::UtmWkt();
    param.m_bReproject = 1;
    const double x = 440000.0;
    const double y = 4470000.0;
    const int width = static_cast<int>(fused.size());
    Write(MakeImage(width, 1, 10, {fused}, x, y), MakeImage(width + 1, 1, 10, {ms}, x - 5, y + 5),
          MakeImage(width, 1, 10, {fused}, x, y));
  }
};

TEST_F(SnrEvaluate, EqualImagesGiveTheExtremes) {
  WritePair(3, 1, {1, 5, 9}, {1, 5, 9});
  const auto metric = Run<Snr>();
  EXPECT_EQ(metric->m_pSNR[0], kLargest);
  EXPECT_EQ(metric->m_pPSNR[0], kSmallest);
}

TEST_F(SnrEvaluate, SumsHoldTheLastPixel) {
  // Signal 100 and noise 4 of the last pixel; the range 5 and the count 3 of all.
  WritePair(3, 1, {5, 8, 10}, {1, 2, 8});
  const auto metric = Run<Snr>();
  EXPECT_DOUBLE_EQ(metric->m_pSNR[0], 10.0 * std::log(25.0));
  EXPECT_DOUBLE_EQ(metric->m_pPSNR[0], 10.0 * std::log(3.75));
}

TEST_F(SnrEvaluate, ImagesThatAgreeInTheLastPixelHaveNoNoise) {
  WritePair(3, 1, {5, 8, 10}, {1, 2, 10});
  EXPECT_EQ(Run<Snr>()->m_pSNR[0], kLargest);
}

TEST_F(SnrEvaluate, LastPixelIsTheLastValidOne) {
  msStorage.noData = 0.0;
  fusedStorage.noData = 99.0;
  WritePair(2, 2, {5, 10, 7, 0}, {1, 8, 99, 3});
  const auto metric = Run<Snr>();
  EXPECT_DOUBLE_EQ(metric->m_pSNR[0], 10.0 * std::log(25.0));
  EXPECT_DOUBLE_EQ(metric->m_pPSNR[0], 10.0 * std::log(5.0 * 2.0 / 4.0)) << "range and count leave no-data out";
}

TEST_F(SnrEvaluate, NegativeSignalKeepsTheTinyMaximum) {
  WritePair(3, 1, {-5, -8, -10}, {0, 0, -5});
  EXPECT_DOUBLE_EQ(Run<Snr>()->m_pPSNR[0], 10.0 * std::log(10.0 * 3.0 / 25.0));
}

TEST_F(SnrEvaluate, RangeStartsAtTheEndsOfTheDoubles) {
  struct Watched : Snr {
    using Snr::Snr;
    void EndProccess() override {
      if (m_pMulMin) range = {m_pMulMin[0], m_pMulMax[0]};
      Snr::EndProccess();
    }
    std::pair<double, double> range;
  };
  msStorage.noData = 5.0;
  WritePair(2, 1, {5, 5}, {1, 2});
  EXPECT_EQ(Run<Watched>()->range, std::make_pair(1.7976931348623157e+308, 2.2250738585072014e-308));
  WritePair(2, 1, {2e12, 3e12}, {0, 0});
  EXPECT_EQ(Run<Watched>()->range, std::make_pair(2e12, 3e12));
}

TEST_F(SnrEvaluate, ConstantSignalHasNoPeak) {
  WritePair(2, 1, {4, 4}, {2, 2});
  const auto metric = Run<Snr>();
  EXPECT_DOUBLE_EQ(metric->m_pSNR[0], 10.0 * std::log(4.0));
  EXPECT_EQ(metric->m_pPSNR[0], -std::numeric_limits<double>::infinity());
}

TEST_F(SnrEvaluate, WithoutAValidPairThereIsNoNoise) {
  msStorage.noData = 4.0;
  WritePair(2, 1, {4, 4}, {2, 2});
  EXPECT_EQ(Run<Snr>()->m_pSNR[0], kLargest);
}

TEST_F(SnrEvaluate, ReprojectionSumsAllPixelsOneColumnToTheRight) {
  // Pairs 5/1 8/2 10/8: signal 25 + 64 + 100, noise 16 + 36 + 4.
  WriteReprojected({1000, 5, 8, 10}, {1, 2, 8});
  const auto metric = Run<Snr>();
  EXPECT_DOUBLE_EQ(metric->m_pSNR[0], 10.0 * std::log(189.0 / 56.0));
  EXPECT_DOUBLE_EQ(metric->m_pPSNR[0], 10.0 * std::log(5.0 * 3.0 / 56.0));
}

TEST_F(SnrEvaluate, ReprojectionLeavesNoDataOut) {
  msStorage.noData = 8.0;
  WriteReprojected({1000, 5, 8, 10}, {1, 2, 8});
  EXPECT_DOUBLE_EQ(Run<Snr>()->m_pSNR[0], 10.0 * std::log(125.0 / 20.0));
}

TEST_F(SnrEvaluate, WorkingArraysAreFreed) {
  WritePair(2, 1, {1, 2}, {1, 2});
  const auto metric = Run<Snr>();
  EXPECT_EQ(metric->m_pMulMax, nullptr);
  EXPECT_EQ(metric->m_pMulMin, nullptr);
  EXPECT_EQ(metric->m_pNoiseSum, nullptr);
  EXPECT_EQ(metric->m_pSignalSum, nullptr);
  EXPECT_EQ(metric->m_pPairCount[0], 2);
}

TEST_F(SnrEvaluate, FinishesAfterOnePass) { EXPECT_TRUE(Snr(&param).IsFinished(1)); }

}  // namespace
