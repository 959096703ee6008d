// Entropies of tiny images, worked out by hand. On these images pixel (x, y) of all three is the same ground.
#include "evaluation/entropy_evaluate.h"

#include <cmath>
#include <limits>

#include "tests/evaluation/evaluation_fixture.h"

namespace {

using test_support::MakeImage;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
const double kLn2 = std::log(2.0);

struct Entropy : CEntropyEvaluate {
  using CEntropyEvaluate::CEntropyEvaluate;
  using CEntropyEvaluate::m_dPanMax;
  using CEntropyEvaluate::m_dPanMin;
  using CEntropyEvaluate::m_pFusionHist;
  using CEntropyEvaluate::m_pFusionMax;
  using CEntropyEvaluate::m_pFusionMin;
  using CEntropyEvaluate::m_pMulHist;
  using CEntropyEvaluate::m_pMulMax;
  using CEntropyEvaluate::m_pMulMin;
  using CEntropyEvaluate::m_pPanHist;
};

class EntropyEvaluate : public test_support::EvaluationTest {};

TEST_F(EntropyEvaluate, FourFormulasOverHistogramsOf256Bins) {
  // The range is 0 to 255, so that a value is its own bin; 300 counts in the last.
  // m: 1/4 at 0, 1/4 at 10, 1/2 at 255; f and q: 1/2 at 0, 1/2 at 255.
  WritePair(4, 1, {0, 10, 255, 300}, {0, 255, 255, 0});
  const auto metric = Run<Entropy>();
  EXPECT_NEAR(metric->m_pEntropy[0], 1.5 * kLn2, 1e-12);
  EXPECT_NEAR(metric->m_pEntropy[1], kLn2, 1e-12);
  EXPECT_NEAR(metric->m_pRelativeEntropy[0], 0.5 * kLn2, 1e-12);
  EXPECT_NEAR(metric->m_pDeviationEntropy[0], 0.5 * std::log(16.0 / 15.0), 1e-12);
  EXPECT_NEAR(metric->m_pJointEntropy[0], 7.0 * kLn2, 1e-12);
}

TEST_F(EntropyEvaluate, LastTwoBinsAreNotTheSame) {
  // m: 1/4 at 0, 1/4 at 254, 1/2 at 255.
  WritePair(4, 1, {0, 254, 255, 300}, {0, 255, 255, 0});
  EXPECT_NEAR(Run<Entropy>()->m_pEntropy[0], 1.5 * kLn2, 1e-12);
}

TEST_F(EntropyEvaluate, BinsAreWorkedOutFromLeftToRight) {
  // In doubles (0.1 x 255) / (3 x 0.1) is just below 85, where 0.1 / (3 x 0.1) x 255 is 85: the bands share two bins.
  const double top = 3 * 0.1;
  WritePair(3, 1, {0, 0.1, top}, {0, 0.1003, top});
  EXPECT_NEAR(Run<Entropy>()->m_pJointEntropy[0], 2.0 * 3.0 * std::log(3.0), 1e-12);
}

TEST_F(EntropyEvaluate, MultispectralRangeComesFromTheLastFusedBand) {
  // With the last fused band's range, 0 to 510, the multispectral 255 falls into bin 127 and meets no fused bin.
  const test_support::Band first = {0, 255};
  Write(MakeImage(2, 1, 1, {first}), MakeImage(2, 1, 1, {first, first}), MakeImage(2, 1, 1, {first, {0, 510}}));
  const auto metric = Run<Entropy>();
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(metric->m_pMulMin[i], 0.0);
    EXPECT_EQ(metric->m_pMulMax[i], 510.0);
    EXPECT_NEAR(metric->m_pEntropy[i], kLn2, 1e-12);
    EXPECT_NEAR(metric->m_pEntropy[2 + i], kLn2, 1e-12);
    EXPECT_NEAR(metric->m_pJointEntropy[i], 3.0 * kLn2, 1e-12);
  }
  EXPECT_EQ(metric->m_pFusionMax[0], 255.0);
  EXPECT_EQ(metric->m_pFusionMax[1], 510.0);
}

TEST_F(EntropyEvaluate, FusedNoDataStillWidensTheMultispectralRange) {
  fusedStorage.noData = 510.0;
  WritePair(3, 1, {0, 255, 510}, {0, 100, 510});
  const auto metric = Run<Entropy>();
  EXPECT_EQ(metric->m_pFusionMax[0], 100.0);
  EXPECT_EQ(metric->m_pMulMax[0], 510.0);
  // m: 1/3 at 0, 127 and 255; f: 1/2 at 0 and 255.
  EXPECT_NEAR(metric->m_pEntropy[0], std::log(3.0), 1e-12);
  EXPECT_NEAR(metric->m_pEntropy[1], kLn2, 1e-12);
  EXPECT_NEAR(metric->m_pRelativeEntropy[0], std::log(1.5), 1e-12);
}

TEST_F(EntropyEvaluate, NoDataIsNeitherRangedNorCounted) {
  panStorage.noData = 1000.0;
  msStorage.noData = -1.0;
  const test_support::Band fused = {0, 255, 255, 400};
  Write(MakeImage(4, 1, 1, {{0, 10, 1000, 20}}), MakeImage(4, 1, 1, {{0, 255, 255, -1}}), MakeImage(4, 1, 1, {fused}));
  const auto metric = Run<Entropy>();
  EXPECT_EQ(metric->m_dPanMin, 0.0);
  EXPECT_EQ(metric->m_dPanMax, 20.0);
  // The multispectral band is invalid where the fused one holds 400.
  EXPECT_EQ(metric->m_pMulMax[0], 255.0);
  EXPECT_NEAR(metric->m_pEntropy[0], std::log(3.0) - 2.0 / 3.0 * kLn2, 1e-12);
}

TEST_F(EntropyEvaluate, NanNoDataMatchesNan) {
  const double nan = std::nan("");
  fusedStorage.noData = nan;
  msStorage.noData = nan;
  WritePair(3, 1, {0, 255, nan}, {0, 255, nan});
  const auto metric = Run<Entropy>();
  EXPECT_NEAR(metric->m_pEntropy[0], kLn2, 1e-12);
  EXPECT_NEAR(metric->m_pEntropy[1], kLn2, 1e-12);
}

TEST_F(EntropyEvaluate, UndeclaredNanCountsInTheFirstBin) {
  // The third value of both bands falls into bin 0: 2/3 at 0, 1/3 at 255.
  const double nan = std::nan("");
  WritePair(3, 1, {0, 255, nan}, {0, 255, nan});
  const auto metric = Run<Entropy>();
  EXPECT_NEAR(metric->m_pEntropy[1], std::log(3.0) - 2.0 / 3.0 * kLn2, 1e-12);
}

TEST_F(EntropyEvaluate, NegativeBandsKeepTheTinyMaximumTheyStartWith) {
  // f: range -10 to almost 0, so bins 0 (1/4) and 127 (3/4); pan: range -10 to -5, so bins 0 and 255.
  WritePair(4, 1, {-10, -10, -10, -5}, {-10, -5, -5, -5});
  const auto metric = Run<Entropy>();
  EXPECT_EQ(metric->m_pFusionMax[0], std::numeric_limits<double>::min());
  EXPECT_EQ(metric->m_pMulMax[0], std::numeric_limits<double>::min());
  EXPECT_EQ(metric->m_pFusionMin[0], -10.0);
  EXPECT_EQ(metric->m_dPanMax, -5.0);
  EXPECT_NEAR(metric->m_pJointEntropy[0], -std::log(0.25 * 0.75 * 0.25), 1e-12);
  EXPECT_NEAR(metric->m_pRelativeEntropy[0], 0.25 * std::log(1.0 / 3.0) + 0.75 * std::log(3.0), 1e-12);
}

TEST_F(EntropyEvaluate, RangesStartWhereTheyAreSaidTo) {
  // Values beyond 1e10 leave the minimum of pan where it starts, those below -1e10 its maximum.
  WritePair(2, 1, {2e10, 3e10}, {2e10, 3e10});
  auto metric = Run<Entropy>();
  EXPECT_EQ(metric->m_dPanMin, 1e10);
  EXPECT_EQ(metric->m_dPanMax, 3e10);
  EXPECT_EQ(metric->m_pMulMin[0], 2e10);
  EXPECT_EQ(metric->m_pFusionMin[0], 2e10);
  WritePair(2, 1, {-2e10, -3e10}, {-2e10, -3e10});
  metric = Run<Entropy>();
  EXPECT_EQ(metric->m_dPanMin, -3e10);
  EXPECT_EQ(metric->m_dPanMax, -1e10);
  // Without a value at all everything stays.
  panStorage.noData = msStorage.noData = fusedStorage.noData = 5.0;
  WritePair(2, 1, {5, 5}, {5, 5});
  metric = Run<Entropy>();
  EXPECT_EQ(metric->m_dPanMin, 1e10);
  EXPECT_EQ(metric->m_dPanMax, -1e10);
  for (const auto* minima : {&metric->m_pMulMin, &metric->m_pFusionMin})
    EXPECT_EQ((*minima)[0], 1.7976931348623157e+308);
  for (const auto* maxima : {&metric->m_pMulMax, &metric->m_pFusionMax})
    EXPECT_EQ((*maxima)[0], 2.2250738585072014e-308);
}

TEST_F(EntropyEvaluate, ConstantBandsHaveUndefinedBinsThatCountInTheFirst) {
  WritePair(4, 1, {7, 7, 7, 7}, {7, 7, 7, 7});
  const auto metric = Run<Entropy>();
  EXPECT_EQ(metric->m_pEntropy[0], 0.0);
  EXPECT_EQ(metric->m_pEntropy[1], 0.0);
  EXPECT_EQ(metric->m_pRelativeEntropy[0], 0.0);
  EXPECT_EQ(metric->m_pDeviationEntropy[0], 0.0);
  EXPECT_EQ(metric->m_pJointEntropy[0], 0.0);
}

TEST_F(EntropyEvaluate, InfiniteBinsCountAtTheirEnd) {
  // The range is 7 to 7: 9 goes to the last bin, 3 and 7 to the first. m: 3/4 and 1/4, f: 1 and 0.
  WritePair(4, 1, {7, 9, 3, 7}, {7, 7, 7, 7});
  const auto metric = Run<Entropy>();
  EXPECT_NEAR(metric->m_pEntropy[0], -0.75 * std::log(0.75) + 0.5 * kLn2, 1e-12);
  EXPECT_NEAR(metric->m_pDeviationEntropy[0], std::log(16.0 / 15.0), 1e-12);
}

TEST_F(EntropyEvaluate, BinWithADifferenceOfOneIsLeftOutOfTheDeviation) {
  // f wholly in bin 0 (difference 1, left out), m wholly in bin 255 (difference -1, -ln 0).
  WritePair(2, 1, {9, 9}, {7, 7});
  const auto metric = Run<Entropy>();
  EXPECT_EQ(metric->m_pDeviationEntropy[0], kInfinity);
  EXPECT_EQ(metric->m_pRelativeEntropy[0], 0.0);
  EXPECT_EQ(metric->m_pJointEntropy[0], 0.0);
}

TEST_F(EntropyEvaluate, EmptyHistogramIsUndefined) {
  msStorage.noData = 5.0;
  WritePair(2, 1, {5, 5}, {0, 255});
  const auto metric = Run<Entropy>();
  EXPECT_TRUE(std::isnan(metric->m_pEntropy[0]));
  EXPECT_TRUE(std::isnan(metric->m_pRelativeEntropy[0]));
  EXPECT_TRUE(std::isnan(metric->m_pDeviationEntropy[0]));
  EXPECT_TRUE(std::isnan(metric->m_pJointEntropy[0]));
  EXPECT_NEAR(metric->m_pEntropy[1], kLn2, 1e-12);
}

TEST_F(EntropyEvaluate, EmptyPanHistogramLeavesOnlyTheJointEntropyUndefined) {
  panStorage.noData = 5.0;
  Write(MakeImage(2, 1, 1, {{5, 5}}), MakeImage(2, 1, 1, {{0, 255}}), MakeImage(2, 1, 1, {{0, 255}}));
  const auto metric = Run<Entropy>();
  EXPECT_TRUE(std::isnan(metric->m_pJointEntropy[0]));
  EXPECT_NEAR(metric->m_pEntropy[0], kLn2, 1e-12);
  EXPECT_EQ(metric->m_pRelativeEntropy[0], 0.0);
}

TEST_F(EntropyEvaluate, ReprojectionLooksOneColumnToTheRight) {
  // Shifted by half a pixel, the corner of pixel (x + 1, y) is the centre of multispectral pixel (x + 1, y).
  msStorage.wkt = fusedStorage.wkt = test_support::UtmWkt();
  param.m_bReproject = 1;
  const double x = 440000.0;
  const double y = 4470000.0;
  const test_support::Band fused = {0, 0, 255, 255};
  Write(MakeImage(4, 1, 10, {fused}, x, y), MakeImage(5, 1, 10, {{255, 0, 0, 0, 255}}, x - 5, y + 5),
        MakeImage(4, 1, 10, {fused}, x, y));
  const auto metric = Run<Entropy>();
  // Seen are columns 1 to 4: 0, 0, 0, 255.
  EXPECT_NEAR(metric->m_pEntropy[0], 2.0 * kLn2 - 0.75 * std::log(3.0), 1e-12);
}

TEST_F(EntropyEvaluate, FreesHistogramsAndKeepsRanges) {
  WritePair(2, 1, {0, 1}, {0, 1});
  const auto metric = Run<Entropy>();
  EXPECT_EQ(metric->m_pPanHist, nullptr);
  EXPECT_EQ(metric->m_pMulHist, nullptr);
  EXPECT_EQ(metric->m_pFusionHist, nullptr);
  EXPECT_NE(metric->m_pMulMax, nullptr);
  metric->CFusionEvaluate::EndProccess();
  EXPECT_EQ(metric->m_pMulMax, nullptr);
  EXPECT_EQ(metric->m_pMulMin, nullptr);
  EXPECT_EQ(metric->m_pFusionMax, nullptr);
  EXPECT_EQ(metric->m_pFusionMin, nullptr);
}

TEST_F(EntropyEvaluate, CopiesShareTheResults) {
  WritePair(2, 1, {0, 255}, {0, 255});
  auto metric = Run<Entropy>();
  const Entropy copy = *metric;
  metric.reset();
  EXPECT_NEAR(copy.m_pEntropy[0], kLn2, 1e-12);
}

TEST_F(EntropyEvaluate, FinishesAfterItsSecondPassAndNoOther) {
  Entropy metric(&param);
  EXPECT_FALSE(metric.IsFinished(1));
  EXPECT_TRUE(metric.IsFinished(2));
  for (const int step : {-1, 0, 3, 4}) EXPECT_FALSE(metric.IsFinished(step)) << step;
}

}  // namespace
