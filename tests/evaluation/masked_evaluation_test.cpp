// Evaluations that leave out whatever a file says is missing, by whichever means.
#include <cmath>

#include "evaluation/entropy_evaluate.h"
#include "evaluation/grad_evaluate.h"
#include "evaluation/snr_evaluate.h"
#include "evaluation/statistic_evaluate.h"
#include "tests/evaluation/evaluation_fixture.h"
#include "tests/support/gap_scene.h"

namespace {

using test_support::Band;
using test_support::MakeImage;

constexpr int kWidth = 9;
constexpr int kHeight = 7;
constexpr double kGarbage = 60000.0;

/// A pan, a multispectral and a fused band on one grid, each with gaps of its own.
class MaskedEvaluation : public test_support::EvaluationTest {
 public:
  MaskedEvaluation() {
    for (int i = 0; i < kWidth * kHeight; ++i) {
      pan.push_back(20 + 7 * i % 41);
      ms.push_back(50 + 11 * i % 37);
      fused.push_back(52 + 13 * i % 31);
      panGaps.push_back(i % 10 == 0);
      msGaps.push_back(i > 20 && i < 25);
      fusedGaps.push_back(i == 3 || (i > 22 && i < 40));
    }
    param.m_bMaskNoData = true;
  }

  static Band Filled(Band band, const std::vector<bool>& gaps, double fill) {
    for (std::size_t i = 0; i < band.size(); ++i) {
      if (gaps[i]) band[i] = fill;
    }
    return band;
  }
  void WriteFilled(double fill) {
    Write(MakeImage(kWidth, kHeight, 1.0, {Filled(pan, panGaps, fill)}),
          MakeImage(kWidth, kHeight, 1.0, {Filled(ms, msGaps, fill)}),
          MakeImage(kWidth, kHeight, 1.0, {Filled(fused, fusedGaps, fill)}));
  }
  void WriteMasked() {
    panStorage.noData = msStorage.noData = fusedStorage.noData = std::nullopt;
    WriteFilled(kGarbage);
    test_support::AddMask(panFile, panGaps);
    test_support::AddMask(msFile, msGaps);
    test_support::AddMask(fusedFile, fusedGaps);
  }
  void WriteDeclared() {
    panStorage.noData = msStorage.noData = fusedStorage.noData = -1.0;
    WriteFilled(-1.0);
  }
  void WriteNan() {
    panStorage.noData = msStorage.noData = fusedStorage.noData = std::nullopt;
    WriteFilled(std::nan(""));
  }
  bool HasMs(int x, int y) const { return !msGaps[At(x, y)]; }
  bool HasFused(int x, int y) const { return !fusedGaps[At(x, y)]; }
  static std::size_t At(int x, int y) { return static_cast<std::size_t>(y * kWidth + x); }

  Band pan, ms, fused;
  std::vector<bool> panGaps, msGaps, fusedGaps;
};

TEST_F(MaskedEvaluation, StatisticsAreThoseOfTheSamplesWithData) {
  double fusedSum = 0, msSum = 0;
  int fusedCount = 0, msCount = 0;
  for (std::size_t i = 0; i < ms.size(); ++i) {
    if (!fusedGaps[i]) fusedSum += fused[i], ++fusedCount;
    if (!msGaps[i]) msSum += ms[i], ++msCount;
  }
  const double fusedMean = fusedSum / fusedCount;
  const double msMean = msSum / msCount;
  double fusedSquares = 0, msSquares = 0, products = 0, errors = 0, powers = 0, deviations = 0;
  int pairs = 0;
  for (std::size_t i = 0; i < ms.size(); ++i) {
    if (!fusedGaps[i]) fusedSquares += (fused[i] - fusedMean) * (fused[i] - fusedMean);
    if (!msGaps[i]) msSquares += (ms[i] - msMean) * (ms[i] - msMean);
    if (fusedGaps[i] || msGaps[i]) continue;
    products += (ms[i] - msMean) * (fused[i] - fusedMean);
    errors += (fused[i] - ms[i]) * (fused[i] - ms[i]);
    powers += fused[i] * fused[i];
    deviations += std::fabs((ms[i] - fused[i]) / ms[i]);
    ++pairs;
  }
  const double fusedDeviation = std::sqrt(fusedSquares / fusedCount);
  const double msDeviation = std::sqrt(msSquares / msCount);
  for (const auto& write : {&MaskedEvaluation::WriteMasked, &MaskedEvaluation::WriteNan}) {
    (this->*write)();
    const auto metric = Run<CStatisticEvaluate>();
    EXPECT_NEAR(metric->m_pMulMean[0], msMean, 1e-10);
    EXPECT_NEAR(metric->m_pFusionMean[0], fusedMean, 1e-10);
    EXPECT_NEAR(metric->m_pMulStdDev[0], msDeviation, 1e-10);
    EXPECT_NEAR(metric->m_pFusionStdDev[0], fusedDeviation, 1e-10);
    EXPECT_NEAR(metric->m_pCorrelation[0], std::sqrt(products / pairs / (fusedDeviation * msDeviation)), 1e-10);
    EXPECT_NEAR(metric->m_pRelativeDeviation[0], deviations / pairs, 1e-10);
    EXPECT_NEAR(metric->m_pRelativeError[0], errors / powers, 1e-10);
  }
}

TEST_F(MaskedEvaluation, GradientsAreTakenBetweenSamplesWithData) {
  double msGradients = 0, fusedGradients = 0, differences = 0;
  int msCount = 0, fusedCount = 0, pairs = 0;
  for (int y = 0; y + 1 < kHeight; ++y) {
    for (int x = 0; x + 1 < kWidth; ++x) {
      const auto gradient = [&](const Band& band) {
        return std::hypot(band[At(x + 1, y)] - band[At(x, y)], band[At(x, y + 1)] - band[At(x, y)]);
      };
      if (HasMs(x, y) && HasMs(x + 1, y) && HasMs(x, y + 1)) msGradients += gradient(ms), ++msCount;
      // The multispectral value is asked for beside the fused ones.
      if (HasMs(x, y) && HasFused(x, y) && HasFused(x + 1, y) && HasFused(x, y + 1)) {
        fusedGradients += gradient(fused);
        ++fusedCount;
      }
      if (HasMs(x, y) && HasFused(x, y)) differences += std::fabs(ms[At(x, y)] - fused[At(x, y)]), ++pairs;
    }
  }
  for (const auto& write : {&MaskedEvaluation::WriteMasked, &MaskedEvaluation::WriteNan}) {
    (this->*write)();
    const auto metric = Run<CGradEvaluate>();
    EXPECT_NEAR(metric->m_pMulMeanGrad[0], msGradients / msCount, 1e-10);
    EXPECT_NEAR(metric->m_pFusionMeanGrad[0], fusedGradients / fusedCount, 1e-10);
    EXPECT_NEAR(metric->m_pMeanAbsDiff[0], differences / pairs, 1e-10);
  }
}

TEST_F(MaskedEvaluation, HistogramsAndSignalLeaveOutWhatADeclaredValueWould) {
  // The multispectral range is taken from fused samples, of whatever value where only those are missing.
  fusedGaps = msGaps;
  fusedGaps[22] = false;
  param.m_bMaskNoData = false;
  WriteDeclared();
  const auto entropy = Run<CEntropyEvaluate>();
  const auto signal = Run<CSNREvaluate>();
  param.m_bMaskNoData = true;
  for (const auto& write :
       {&MaskedEvaluation::WriteMasked, &MaskedEvaluation::WriteNan, &MaskedEvaluation::WriteDeclared}) {
    (this->*write)();
    const auto masked = Run<CEntropyEvaluate>();
    for (std::size_t i = 0; i < 2; ++i) EXPECT_EQ(masked->m_pEntropy[i], entropy->m_pEntropy[i]);
    EXPECT_EQ(masked->m_pRelativeEntropy[0], entropy->m_pRelativeEntropy[0]);
    EXPECT_EQ(masked->m_pDeviationEntropy[0], entropy->m_pDeviationEntropy[0]);
    EXPECT_EQ(masked->m_pJointEntropy[0], entropy->m_pJointEntropy[0]);
    const auto maskedSignal = Run<CSNREvaluate>();
    EXPECT_EQ(maskedSignal->m_pSNR[0], signal->m_pSNR[0]);
    EXPECT_EQ(maskedSignal->m_pPSNR[0], signal->m_pPSNR[0]);
  }
}

TEST_F(MaskedEvaluation, WithoutTheModeMasksAreLookedAtByNobody) {
  param.m_bMaskNoData = false;
  WriteMasked();
  double sum = 0;
  for (std::size_t i = 0; i < ms.size(); ++i) sum += msGaps[i] ? kGarbage : ms[i];
  EXPECT_NEAR(Run<CStatisticEvaluate>()->m_pMulMean[0], sum / (kWidth * kHeight), 1e-8);
}

}  // namespace
