// Gradients of tiny images, worked out by hand.
#include "evaluation/grad_evaluate.h"

#include <cmath>

#include "tests/evaluation/evaluation_fixture.h"

namespace {

using test_support::Band;
using test_support::MakeImage;

struct Grad : CGradEvaluate {
  using CGradEvaluate::CGradEvaluate;
  using CGradEvaluate::m_pAbsDiffSum;
  using CGradEvaluate::m_pDiffCount;
  using CGradEvaluate::m_pFusionCount;
  using CGradEvaluate::m_pMulCount;
};

class GradEvaluate : public test_support::EvaluationTest {};

TEST_F(GradEvaluate, PlaneHasItsSlopeEverywhere) {
  // m = 3 x + 4 y: slope 5. The last column and row do not count: differences 0 3 4 7 over four pixels.
  WritePair(3, 3, {0, 3, 6, 4, 7, 10, 8, 11, 14}, Band(9, 0.0));
  const auto metric = Run<Grad>();
  EXPECT_DOUBLE_EQ(metric->m_pMulMeanGrad[0], 5.0);
  EXPECT_DOUBLE_EQ(metric->m_pMulRmsGrad[0], 5.0);
  EXPECT_EQ(metric->m_pFusionMeanGrad[0], 0.0);
  EXPECT_EQ(metric->m_pFusionRmsGrad[0], 0.0);
  EXPECT_DOUBLE_EQ(metric->m_pMeanAbsDiff[0], 3.5);
  EXPECT_DOUBLE_EQ(metric->m_pDiffNorm[0], std::sqrt(74.0) / 4.0);
}

TEST_F(GradEvaluate, MeanAndRootMeanSquareDiffer) {
  // Gradients of f: (3, 4) and (0, 0).
  WritePair(3, 2, Band(6, 1.0), {0, 3, 3, 4, 3, 9});
  const auto metric = Run<Grad>();
  EXPECT_DOUBLE_EQ(metric->m_pFusionMeanGrad[0], 2.5);
  EXPECT_DOUBLE_EQ(metric->m_pFusionRmsGrad[0], std::sqrt(12.5));
  EXPECT_DOUBLE_EQ(metric->m_pMeanAbsDiff[0], 1.5);
  EXPECT_DOUBLE_EQ(metric->m_pDiffNorm[0], std::sqrt(5.0) / 2.0);
}

TEST_F(GradEvaluate, FusedNoDataIsFirstAskedOfTheMultispectralValue) {
  fusedStorage.noData = 99.0;
  // Column 0: f0 is no-data, but m0 is not, so the fused gradient counts and the difference does not.
  // Column 1: m0 is 99, so the fused gradient does not count; multispectral 99 is a plain value for the rest.
  WritePair(3, 2, {1, 99, 3, 4, 5, 6}, {99, 5, 6, 7, 8, 9});
  const auto metric = Run<Grad>();
  EXPECT_DOUBLE_EQ(metric->m_pFusionMeanGrad[0], std::hypot(94.0, 92.0));
  EXPECT_DOUBLE_EQ(metric->m_pMulMeanGrad[0], (std::hypot(98.0, 3.0) + std::hypot(96.0, 94.0)) / 2.0);
  EXPECT_DOUBLE_EQ(metric->m_pMeanAbsDiff[0], 94.0);
  EXPECT_DOUBLE_EQ(metric->m_pDiffNorm[0], 94.0);
}

TEST_F(GradEvaluate, FusedNoDataOfAFloatBandIsAskedOfTheMultispectralValueInFloat) {
  fusedStorage.type = PDT_FLOAT32;
  fusedStorage.noData = 0.1;
  // Column 0: a 32-bit float band takes the multispectral 0.1 for its no-data value, whose digits it cannot hold.
  WritePair(3, 2, {0.1, 2, 3, 4, 5, 6}, {0, 30, 27, 40, 26, 10});
  const auto metric = Run<Grad>();
  EXPECT_DOUBLE_EQ(metric->m_pFusionMeanGrad[0], 5.0);
  // The other tests are the multispectral band's own, to which 0.1 is a value like any other.
  EXPECT_DOUBLE_EQ(metric->m_pMulMeanGrad[0], (std::hypot(1.9, 3.9) + std::hypot(1.0, 3.0)) / 2.0);
  EXPECT_DOUBLE_EQ(metric->m_pMeanAbsDiff[0], (0.1 + 28.0) / 2.0);
}

TEST_F(GradEvaluate, NoDataNeighbourTakesThePixelOut) {
  msStorage.noData = -1.0;
  fusedStorage.noData = -2.0;
  // m: the right neighbour of column 0 and the lower one of column 2 are no-data, column 1 is itself; column 3 counts.
  // f: the lower neighbour of column 1 and the right one of column 2 are no-data; columns 0 and 3 count.
  WritePair(5, 2, {1, -1, 2, 3, 5, 1, 2, -1, 4, 1}, {1, 2, 3, -2, 5, 4, -2, 1, 7, 9});
  const auto metric = Run<Grad>();
  EXPECT_DOUBLE_EQ(metric->m_pMulMeanGrad[0], std::hypot(2.0, 1.0));
  EXPECT_DOUBLE_EQ(metric->m_pFusionMeanGrad[0], (std::hypot(1.0, 3.0) + std::hypot(7.0, 9.0)) / 2.0);
  // Both valid: columns 0 and 2, differences 0 and -1.
  EXPECT_DOUBLE_EQ(metric->m_pMeanAbsDiff[0], 0.5);
  EXPECT_DOUBLE_EQ(metric->m_pDiffNorm[0], 0.5);
}

TEST_F(GradEvaluate, ImageOnePixelWideOrHighContributesNothing) {
  for (const auto& [width, height] : {std::pair{1, 5}, std::pair{5, 1}}) {
    WritePair(width, height, {1, 2, 3, 4, 5}, {5, 1, 5, 1, 5});
    const auto metric = Run<Grad>();
    for (const double* figure :
         {static_cast<double*>(metric->m_pFusionMeanGrad), static_cast<double*>(metric->m_pMulMeanGrad),
          static_cast<double*>(metric->m_pFusionRmsGrad), static_cast<double*>(metric->m_pMulRmsGrad),
          static_cast<double*>(metric->m_pMeanAbsDiff), static_cast<double*>(metric->m_pDiffNorm)}) {
      EXPECT_TRUE(std::isnan(*figure)) << width << " x " << height;
    }
  }
}

TEST_F(GradEvaluate, PairWithoutAValidPixelIsUndefined) {
  msStorage.noData = 1.0;
  WritePair(2, 2, Band(4, 1.0), {0, 3, 4, 0});
  const auto metric = Run<Grad>();
  EXPECT_TRUE(std::isnan(metric->m_pMulMeanGrad[0]));
  EXPECT_TRUE(std::isnan(metric->m_pMeanAbsDiff[0]));
  EXPECT_DOUBLE_EQ(metric->m_pFusionMeanGrad[0], 5.0);
}

TEST_F(GradEvaluate, CoarserMultispectralPixelsStepEverySecondPixel) {
  // m over columns 0 to 3: 10 10 20 20 (the second row the same).
  Write(MakeImage(4, 2, 1, {Band(8, 0.0)}), MakeImage(2, 1, 2, {{10, 20}}), MakeImage(4, 2, 1, {Band(8, 0.0)}));
  const auto metric = Run<Grad>();
  EXPECT_DOUBLE_EQ(metric->m_pMulMeanGrad[0], 10.0 / 3.0);
  EXPECT_DOUBLE_EQ(metric->m_pMulRmsGrad[0], 10.0 / std::sqrt(3.0));
}

TEST_F(GradEvaluate, ReprojectionUsesThePixelItself) {
  // Shifted by half a pixel, the corner of pixel (x, y) is the centre of multispectral pixel (x, y).
  msStorage.wkt = fusedStorage.wkt = test_support::UtmWkt();
  param.m_bReproject = 1;
  const double x = 440000.0;
  const double y = 4470000.0;
  Write(MakeImage(2, 2, 10, {Band(4, 0.0)}, x, y), MakeImage(3, 2, 10, {{1, 4, 100, 5, 50, 200}}, x - 5, y + 5),
        MakeImage(2, 2, 10, {Band(4, 0.0)}, x, y));
  const auto metric = Run<Grad>();
  EXPECT_DOUBLE_EQ(metric->m_pMulMeanGrad[0], 5.0);
  EXPECT_DOUBLE_EQ(metric->m_pMeanAbsDiff[0], 1.0);
}

TEST_F(GradEvaluate, StepOnTheSeamOfTwoBlocksIsNotSeen) {
  constexpr int kWidth = 1026;
  constexpr int kHeight = 1024;
  Band step;
  for (int i = 0; i < kWidth * kHeight; ++i) step.push_back(i % kWidth < 1024 ? 0.0 : 10.0);
  panStorage.type = msStorage.type = fusedStorage.type = PDT_UINT8;
  WritePair(kWidth, kHeight, step, step);
  const auto metric = Run<Grad>();
  EXPECT_EQ(metric->m_pFusionMeanGrad[0], 0.0);
  EXPECT_EQ(metric->m_pMulMeanGrad[0], 0.0);
}

TEST_F(GradEvaluate, RowsTakenTogetherOneAfterAnotherLeaveNoSeams) {
  // One block, of more pixels than are taken at a time: m = 3 x + 4 y has its slope everywhere.
  constexpr int kWidth = 500;
  constexpr int kHeight = 700;
  Band plane;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) plane.push_back(3.0 * x + 4.0 * y);
  }
  WritePair(kWidth, kHeight, plane, plane);
  for (const int threads : {1, 3}) {
    Grad metric(&param);
    metric.SetThreads(threads);
    metric.Process();
    EXPECT_DOUBLE_EQ(metric.m_pMulMeanGrad[0], 5.0);
    EXPECT_DOUBLE_EQ(metric.m_pMulRmsGrad[0], 5.0);
    EXPECT_DOUBLE_EQ(metric.m_pFusionMeanGrad[0], 5.0);
    EXPECT_EQ(metric.m_pMeanAbsDiff[0], 0.0);
  }
}

TEST_F(GradEvaluate, BlocksAreNoLargerThanThePanImage) {
  // Native blocks play no part: these would be 16 x 16.
  fusedStorage.options = {"TILED=YES", "BLOCKXSIZE=16", "BLOCKYSIZE=16"};
  struct Probe : CGradEvaluate {
    using CGradEvaluate::CGradEvaluate;
    GISError Preproccess() override {
      GetBlockSize(width, height);
      return CGradEvaluate::Preproccess();
    }
    int width = 0;
    int height = 0;
  };
  Write(MakeImage(40, 1500, 1, {Band(60000, 0.0)}), MakeImage(2, 2, 1, {Band(4, 0.0)}),
        MakeImage(2, 2, 1, {Band(4, 0.0)}));
  const auto metric = Run<Probe>();
  EXPECT_EQ(metric->width, 40);
  EXPECT_EQ(metric->height, 1024);
}

TEST_F(GradEvaluate, WorkingArraysAreFreed) {
  WritePair(2, 2, Band(4, 1.0), Band(4, 2.0));
  const auto metric = Run<Grad>();
  EXPECT_EQ(metric->m_pAbsDiffSum, nullptr);
  EXPECT_EQ(metric->m_pFusionCount, nullptr);
  EXPECT_EQ(metric->m_pMulCount, nullptr);
  EXPECT_EQ(metric->m_pDiffCount, nullptr);
  EXPECT_DOUBLE_EQ(metric->m_pMeanAbsDiff[0], 1.0);
}

TEST_F(GradEvaluate, FinishesAfterOnePass) { EXPECT_TRUE(Grad(&param).IsFinished(1)); }

}  // namespace
