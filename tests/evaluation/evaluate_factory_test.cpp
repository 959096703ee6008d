// The record, the factory and what all four metrics have in common.
#include "evaluation/evaluate_factory.h"

#include "evaluation/entropy_evaluate.h"
#include "evaluation/grad_evaluate.h"
#include "evaluation/snr_evaluate.h"
#include "evaluation/statistic_evaluate.h"
#include "tests/evaluation/evaluation_probe.h"

namespace {

using test_support::EvaluationDriver;

TEST_F(EvaluationDriver, ListsOfUnequalLengthAreRefusedByEveryMetric) {
  WriteSmall();
  param.m_vecFusionBands = {0, 0};
  for (int type = 0; type < 4; ++type) {
    progress.Clear();
    const std::unique_ptr<CFusionEvaluate> metric(
        CFusEvaluateAlgorithmFactory::CreateAlgorithm(static_cast<FusionEvaluateType>(type), &progress, &param));
    metric->Process();
    EXPECT_EQ(metric->GetLastErrorType(), 0);
    EXPECT_EQ(progress.Calls().back(), L"Error 0 ") << type;
    EXPECT_EQ(progress.Steps(), 1) << "no block is evaluated";
    metric->EndProccess();
  }
}

TEST_F(EvaluationDriver, EmptyListsAreARunWithoutResults) {
  WriteSmall();
  param.m_vecMulBands.clear();
  param.m_vecFusionBands.clear();
  for (int type = 0; type < 4; ++type) {
    const std::unique_ptr<CFusionEvaluate> metric(
        CFusEvaluateAlgorithmFactory::CreateAlgorithm(static_cast<FusionEvaluateType>(type), nullptr, &param));
    metric->Process();
    EXPECT_EQ(metric->GetLastErrorType(), 0) << type;
  }
}

TEST_F(EvaluationDriver, SecondRunOfAnObjectEndsAndNeverAnswersWithHalfOfItsPasses) {
  // The step counter goes on, so that a metric of two passes can not tell its first one again.
  WriteSmall();
  for (int type = 0; type < 4; ++type) {
    const std::unique_ptr<CFusionEvaluate> metric(
        CFusEvaluateAlgorithmFactory::CreateAlgorithm(static_cast<FusionEvaluateType>(type), nullptr, &param));
    metric->Process();
    EXPECT_EQ(metric->GetLastErrorType(), 0) << type;
    metric->Process();
    const bool hasTwoPasses = type < 2;
    EXPECT_EQ(metric->GetLastErrorType(), hasTwoPasses ? 6 : 0) << type;
    EXPECT_EQ(metric->GetLastErrorMessage().empty(), !hasTwoPasses) << type;
  }
}

TEST_F(EvaluationDriver, MetricsEndSafelyWithoutARun) {
  param.m_vecMulBands = param.m_vecFusionBands = {0};
  for (int type = 0; type < 4; ++type) {
    const std::unique_ptr<CFusionEvaluate> metric(
        CFusEvaluateAlgorithmFactory::CreateAlgorithm(static_cast<FusionEvaluateType>(type), nullptr, &param));
    metric->EndProccess();
    int width = 0;
    int height = 0;
    metric->GetBlockSize(width, height);
    EXPECT_EQ(width, 1024);
    EXPECT_EQ(height, 1024);
  }
}

TEST(EvaluationParam, DefaultsAndCopies) {
  FusionEvaluateParam param;
  EXPECT_EQ(param.m_dReserved[0], 0.0);
  EXPECT_EQ(param.m_rcPanOffset, CRect(0, 0, 0, 0));
  param.m_strPanFile = L"a";
  param.m_vecMulBands = {1, 2};
  param.m_dReserved[1] = 5.0;
  const FusionEvaluateParam copy = param;
  param.m_vecMulBands[0] = 9;
  EXPECT_EQ(copy.m_vecMulBands, (std::vector<std::int32_t>{1, 2}));
  EXPECT_EQ(copy.m_strPanFile, L"a");
  EXPECT_EQ(copy.m_dReserved[1], 5.0);
}

TEST(EvaluationFactory, MakesTheFourMetricsAndNothingElse) {
  test_support::RecordingProgress progress;
  FusionEvaluateParam param;
  const auto make = [&](int type) {
    return std::unique_ptr<CFusionEvaluate>(
        CFusEvaluateAlgorithmFactory::CreateAlgorithm(static_cast<FusionEvaluateType>(type), &progress, &param));
  };
  EXPECT_NE(dynamic_cast<CEntropyEvaluate*>(make(0).get()), nullptr);
  EXPECT_NE(dynamic_cast<CStatisticEvaluate*>(make(1).get()), nullptr);
  EXPECT_NE(dynamic_cast<CSNREvaluate*>(make(2).get()), nullptr);
  EXPECT_NE(dynamic_cast<CGradEvaluate*>(make(3).get()), nullptr);
  EXPECT_EQ(make(0)->GetProgress(), &progress);
  for (const int type : {-1, 4, 1000}) EXPECT_EQ(make(type), nullptr);
}

}  // namespace
