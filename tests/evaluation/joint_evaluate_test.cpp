// Several metrics in one walk against walks of their own.
#include "evaluation/joint_evaluate.h"

#include "evaluation/entropy_evaluate.h"
#include "evaluation/snr_evaluate.h"
#include "evaluation/statistic_evaluate.h"
#include "tests/evaluation/evaluation_probe.h"

namespace {

using fusion::JointEvaluate;
using test_support::Band;
using test_support::EvaluationDriver;
using test_support::MakeImage;
using test_support::Probe;

class JointEvaluation : public EvaluationDriver {
 protected:
  JointEvaluate Walk(const std::vector<std::shared_ptr<CFusionEvaluate>>& metrics) {
    JointEvaluate joint(&param, metrics);
    joint.SetProgress(&progress);
    joint.Process();
    return joint;
  }
  std::vector<double> Figures(const SharedArray& array, std::size_t n) const { return {&array[0], &array[0] + n}; }
};

TEST_F(JointEvaluation, HasTheFiguresOfRunsOfTheirOwn) {
  fusedStorage.noData = 7.0;
  msStorage.noData = 5.0;
  Band fused;
  Band ms;
  for (int i = 0; i < 24 * 20; ++i) fused.push_back(i * 37 % 101);
  for (int i = 0; i < 6 * 5; ++i) ms.push_back(i * 29 % 97);
  Write(MakeImage(24, 20, 1.0, {fused}), MakeImage(6, 5, 4.0, {ms}), MakeImage(24, 20, 1.0, {fused}));
  param.m_bWaitFirst = false;
  const auto entropy = std::make_shared<CEntropyEvaluate>(&param);
  const auto statistic = std::make_shared<CStatisticEvaluate>(&param);
  const auto snr = std::make_shared<CSNREvaluate>(&param);
  EXPECT_EQ(Walk({entropy, statistic, snr}).GetLastErrorType(), 0);
  const auto ownEntropy = Run<CEntropyEvaluate>();
  const auto ownStatistic = Run<CStatisticEvaluate>();
  const auto ownSnr = Run<CSNREvaluate>();
  EXPECT_EQ(Figures(entropy->m_pEntropy, 2), Figures(ownEntropy->m_pEntropy, 2));
  EXPECT_EQ(entropy->m_pJointEntropy[0], ownEntropy->m_pJointEntropy[0]);
  EXPECT_EQ(statistic->m_pMulMean[0], ownStatistic->m_pMulMean[0]);
  EXPECT_EQ(statistic->m_pFusionStdDev[0], ownStatistic->m_pFusionStdDev[0]);
  EXPECT_EQ(statistic->m_pRelativeError[0], ownStatistic->m_pRelativeError[0]);
  EXPECT_EQ(snr->m_pSNR[0], ownSnr->m_pSNR[0]);
  EXPECT_EQ(snr->m_pPSNR[0], ownSnr->m_pPSNR[0]);
}

TEST_F(JointEvaluation, WalksAsOftenAsTheMetricOfTheMostPasses) {
  WriteSmall();
  const auto twice = std::make_shared<Probe>(&param);
  twice->passes = 2;
  const auto once = std::make_shared<Probe>(&param);
  EXPECT_EQ(Walk({once, twice}).GetLastErrorType(), 0);
  EXPECT_EQ(twice->steps, (std::vector<int>{1, 2}));
  EXPECT_EQ(once->steps, std::vector<int>{1});
  EXPECT_EQ(once->fused, std::vector<Band>{twice->fused.front()});
  EXPECT_EQ(once->mul, std::vector<Band>{twice->mul.front()});
  EXPECT_EQ(once->firstPan, std::vector<double>{twice->firstPan.front()});
  EXPECT_EQ(sleeps, std::vector<unsigned int>{1000});
  for (const auto& probe : {once, twice}) {
    EXPECT_EQ(probe->Count("Preproccess"), 1);
    EXPECT_EQ(probe->Count("EndProccess"), 1);
    EXPECT_TRUE(probe->stillOpen);
    EXPECT_FALSE(probe->HasSources()) << "sources outlive the run";
  }
}

TEST_F(JointEvaluation, IsRefusedWhereAMetricIs) {
  WriteSmall();
  const auto willing = std::make_shared<Probe>(&param);
  const auto refusing = std::make_shared<Probe>(&param);
  refusing->preprocessResult = GIS_FAILED;
  Walk({willing, refusing});
  EXPECT_TRUE(willing->steps.empty());
  EXPECT_FALSE(willing->HasSources() || refusing->HasSources()) << "sources outlive the run";
}

}  // namespace
