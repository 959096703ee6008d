// Band statistics of tiny images, worked out by hand.
#include "evaluation/statistic_evaluate.h"

#include <cmath>

#include "tests/evaluation/evaluation_fixture.h"

namespace {

using test_support::MakeImage;

struct Statistic : CStatisticEvaluate {
  using CStatisticEvaluate::CStatisticEvaluate;
  using CStatisticEvaluate::m_pCovSum;
  using CStatisticEvaluate::m_pFusionCount;
  using CStatisticEvaluate::m_pFusionSquareSum;
  using CStatisticEvaluate::m_pFusionSum;
  using CStatisticEvaluate::m_pMulCount;
  using CStatisticEvaluate::m_pMulSum;
  using CStatisticEvaluate::m_pNonZeroCount;
  using CStatisticEvaluate::m_pPairCount;
};

class StatisticEvaluate : public test_support::EvaluationTest {};

TEST_F(StatisticEvaluate, SevenFiguresOfAPair) {
  // Deviations m: -1 -1 1 1, f: -2 0 0 2; the coefficient is 1 / sqrt(2), its square root is kept.
  WritePair(2, 2, {0, 0, 2, 2}, {0, 2, 2, 4});
  const auto metric = Run<Statistic>();
  EXPECT_DOUBLE_EQ(metric->m_pMulMean[0], 1.0);
  EXPECT_DOUBLE_EQ(metric->m_pFusionMean[0], 2.0);
  EXPECT_DOUBLE_EQ(metric->m_pMulStdDev[0], 1.0);
  EXPECT_DOUBLE_EQ(metric->m_pFusionStdDev[0], std::sqrt(2.0));
  EXPECT_DOUBLE_EQ(metric->m_pCorrelation[0], std::pow(2.0, -0.25));
  EXPECT_DOUBLE_EQ(metric->m_pRelativeDeviation[0], 0.5) << "multispectral zeros are left out";
  EXPECT_DOUBLE_EQ(metric->m_pRelativeError[0], 1.0 / 3.0);
}

TEST_F(StatisticEvaluate, BandsArePairedByTheListsAndNotByTheirNumbers) {
  Write(MakeImage(2, 1, 1, {{0, 0}}), MakeImage(2, 1, 1, {{1, 3}, {5, 9}}),
        MakeImage(2, 1, 1, {{10, 30}, {7, 7}, {50, 90}}));
  param.m_vecMulBands = {1, 0};
  param.m_vecFusionBands = {2, 0};
  const auto metric = Run<Statistic>();
  EXPECT_DOUBLE_EQ(metric->m_pMulMean[0], 7.0);
  EXPECT_DOUBLE_EQ(metric->m_pFusionMean[0], 70.0);
  EXPECT_DOUBLE_EQ(metric->m_pMulMean[1], 2.0);
  EXPECT_DOUBLE_EQ(metric->m_pFusionMean[1], 20.0);
  EXPECT_DOUBLE_EQ(metric->m_pRelativeDeviation[0], 9.0);
}

TEST_F(StatisticEvaluate, EqualImagesCorrelateFullyWithoutError) {
  WritePair(3, 1, {-4, 1, 9}, {-4, 1, 9});
  const auto metric = Run<Statistic>();
  EXPECT_DOUBLE_EQ(metric->m_pCorrelation[0], 1.0);
  EXPECT_EQ(metric->m_pRelativeDeviation[0], 0.0);
  EXPECT_EQ(metric->m_pRelativeError[0], 0.0);
  EXPECT_DOUBLE_EQ(metric->m_pMulMean[0], 2.0);
}

TEST_F(StatisticEvaluate, NegativeCorrelationIsNotANumber) {
  WritePair(2, 1, {1, 2}, {2, 1});
  const auto metric = Run<Statistic>();
  EXPECT_TRUE(std::isnan(metric->m_pCorrelation[0]));
  EXPECT_DOUBLE_EQ(metric->m_pRelativeError[0], 0.4);
}

TEST_F(StatisticEvaluate, ConstantBandHasNoCorrelation) {
  WritePair(2, 1, {3, 3}, {2, 1});
  const auto metric = Run<Statistic>();
  EXPECT_EQ(metric->m_pMulStdDev[0], 0.0);
  EXPECT_TRUE(std::isnan(metric->m_pCorrelation[0]));
}

TEST_F(StatisticEvaluate, MultispectralBandOfZerosHasNoRelativeDeviation) {
  WritePair(2, 1, {0, 0}, {2, 1});
  const auto metric = Run<Statistic>();
  EXPECT_TRUE(std::isnan(metric->m_pRelativeDeviation[0]));
  EXPECT_DOUBLE_EQ(metric->m_pRelativeError[0], 1.0);
}

TEST_F(StatisticEvaluate, EachBandsNoDataCountsForItselfAndThePairNeedsBoth) {
  msStorage.noData = -1.0;
  fusedStorage.noData = -9.0;
  // m over 2 4 6, f over 1 7 4, both over 2/1 and 4/7. A -9 in m and a -1 in f would be plain values.
  WritePair(4, 1, {2, 4, 6, -1}, {1, 7, -9, 4});
  const auto metric = Run<Statistic>();
  EXPECT_DOUBLE_EQ(metric->m_pMulMean[0], 4.0);
  EXPECT_DOUBLE_EQ(metric->m_pFusionMean[0], 4.0);
  EXPECT_DOUBLE_EQ(metric->m_pMulStdDev[0], std::sqrt(8.0 / 3.0));
  EXPECT_DOUBLE_EQ(metric->m_pFusionStdDev[0], std::sqrt(6.0));
  // Products: (-2)(-3) + 0 = 6 over two pairs; the deviations' product is 4.
  EXPECT_DOUBLE_EQ(metric->m_pCorrelation[0], std::sqrt(0.75));
  EXPECT_DOUBLE_EQ(metric->m_pRelativeDeviation[0], (0.5 + 0.75) / 2.0);
  EXPECT_DOUBLE_EQ(metric->m_pRelativeError[0], 10.0 / 50.0);
}

TEST_F(StatisticEvaluate, FloatNoDataComparesInFloat) {
  fusedStorage.type = PDT_FLOAT32;
  fusedStorage.noData = 0.1;
  const double inFloat = static_cast<double>(0.1f);
  Write(MakeImage(2, 1, 1, {{0, 0}}), MakeImage(2, 1, 1, {{3, 5}}), MakeImage(2, 1, 1, {{8, inFloat}}));
  EXPECT_DOUBLE_EQ(Run<Statistic>()->m_pFusionMean[0], 8.0);
}

TEST_F(StatisticEvaluate, CoarserMultispectralPixelsServeAllPixelsOnThem) {
  // Each multispectral pixel lies under 2 x 2 fused ones.
  Write(MakeImage(4, 2, 1, {test_support::Band(8, 1.0)}), MakeImage(2, 1, 2, {{10, 20}}),
        MakeImage(4, 2, 1, {{10, 11, 21, 22, 12, 13, 23, 24}}));
  const auto metric = Run<Statistic>();
  EXPECT_DOUBLE_EQ(metric->m_pMulMean[0], 15.0);
  EXPECT_DOUBLE_EQ(metric->m_pMulStdDev[0], 5.0);
  // Squares of the differences: 0 1 4 9 and 1 4 9 16.
  EXPECT_DOUBLE_EQ(metric->m_pRelativeError[0], 44.0 / 2564.0);
}

TEST_F(StatisticEvaluate, PartlyCoveredImageTakesTheEdgePixelOutside) {
  // The multispectral image covers columns 2 and 3 only; farther out the edge of what was read stands in.
  Write(MakeImage(6, 1, 1, {test_support::Band(6, 1.0)}), MakeImage(2, 1, 1, {{10, 40}}, 2.0),
        MakeImage(6, 1, 1, {test_support::Band(6, 1.0)}));
  EXPECT_DOUBLE_EQ(Run<Statistic>()->m_pMulMean[0], 25.0);
}

TEST_F(StatisticEvaluate, ReprojectionLooksOneColumnToTheRight) {
  msStorage.wkt = fusedStorage.wkt = test_support::UtmWkt();
  param.m_bReproject = 1;
  const double x = 440000.0;
  const double y = 4470000.0;
  Write(MakeImage(3, 1, 10, {{1, 1, 1}}, x, y), MakeImage(4, 1, 10, {{1000, 1, 2, 6}}, x - 5, y + 5),
        MakeImage(3, 1, 10, {{1, 1, 1}}, x, y));
  EXPECT_DOUBLE_EQ(Run<Statistic>()->m_pMulMean[0], 3.0);
}

TEST_F(StatisticEvaluate, WorkingSumsAreFreed) {
  WritePair(2, 1, {1, 2}, {1, 2});
  const auto metric = Run<Statistic>();
  EXPECT_EQ(metric->m_pMulSum, nullptr);
  EXPECT_EQ(metric->m_pFusionSum, nullptr);
  EXPECT_EQ(metric->m_pCovSum, nullptr);
  EXPECT_EQ(metric->m_pFusionSquareSum, nullptr);
  EXPECT_EQ(metric->m_pMulCount, nullptr);
  EXPECT_EQ(metric->m_pFusionCount, nullptr);
  EXPECT_EQ(metric->m_pPairCount, nullptr);
  EXPECT_EQ(metric->m_pNonZeroCount, nullptr);
}

TEST_F(StatisticEvaluate, FinishesAfterItsSecondPassAndNoOther) {
  Statistic metric(&param);
  EXPECT_FALSE(metric.IsFinished(1));
  EXPECT_TRUE(metric.IsFinished(2));
  for (const int step : {-1, 0, 3, 4}) EXPECT_FALSE(metric.IsFinished(step)) << step;
}

}  // namespace
