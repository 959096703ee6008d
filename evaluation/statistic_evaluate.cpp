#include "evaluation/statistic_evaluate.h"

#include <cmath>

CStatisticEvaluate::CStatisticEvaluate(FusionEvaluateParam* param)
    : CFusionEvaluate(param), m_statisticParam(m_param) {}
CStatisticEvaluate::~CStatisticEvaluate() = default;
CStatisticEvaluate::CStatisticEvaluate(const CStatisticEvaluate&) = default;
CStatisticEvaluate& CStatisticEvaluate::operator=(const CStatisticEvaluate&) = default;

GISError CStatisticEvaluate::Preproccess() {
  const std::size_t n = PairCount();
  for (SharedArray* values :
       {&m_pMulMean, &m_pFusionMean, &m_pMulStdDev, &m_pFusionStdDev, &m_pRelativeDeviation, &m_pRelativeError,
        &m_pCorrelation, &m_pMulSum, &m_pFusionSum, &m_pCovSum, &m_pFusionSquareSum}) {
    *values = SharedArray(n);
  }
  for (SharedCounts* counts : {&m_pMulCount, &m_pFusionCount, &m_pPairCount, &m_pNonZeroCount}) {
    *counts = SharedCounts(n);
  }
  return HasEqualLists() ? GIS_SUCCESS : GIS_FAILED;
}

bool CStatisticEvaluate::IsFinished(int step) { return step >= 2; }

void CStatisticEvaluate::FusionEvaluate(double* /*panBuf*/, CRect* /*panRect*/, double** mulBufs, int /*mulCount*/,
                                        CRect* mulRect, double** fusionBufs, int fusionCount, CRect* blockRect) {
  const int width = blockRect->Width();
  std::vector<double> ms(static_cast<std::size_t>(width));
  for (int y = blockRect->top; y < blockRect->bottom; ++y) {
    const std::int64_t* cells = Cells(1).Row(y, *blockRect, *mulRect);
    for (int i = 0; i < fusionCount; ++i) {
      const double* fused = fusionBufs[i] + static_cast<std::ptrdiff_t>(y - blockRect->top) * width;
      fusion::Gather(mulBufs[i], cells, width, ms.data());
      if (m_nProcessStep == 1) {
        AddSums(static_cast<std::size_t>(i), fused, ms.data(), width);
      } else {
        AddDeviations(static_cast<std::size_t>(i), fused, ms.data(), width);
      }
    }
  }
}

void CStatisticEvaluate::AddSums(std::size_t i, const double* fused, const double* ms, int n) {
  const auto add = [n](const double* values, const platform::NoDataTest& isNoData, double& total, std::int64_t& count) {
    double sum = total;
    for (int x = 0; x < n; ++x) {
      if (isNoData(values[x])) continue;
      sum += values[x];
      ++count;
    }
    total = sum;
  };
  add(fused, FusionNoData(i), m_pFusionSum[i], m_pFusionCount[i]);
  add(ms, MulNoData(i), m_pMulSum[i], m_pMulCount[i]);
}

void CStatisticEvaluate::AddDeviations(std::size_t i, const double* fused, const double* ms, int n) {
  const platform::NoDataTest fusedNoData = FusionNoData(i);
  const platform::NoDataTest msNoData = MulNoData(i);
  const double fusedMean = m_pFusionSum[i] / static_cast<double>(m_pFusionCount[i]);
  const double msMean = m_pMulSum[i] / static_cast<double>(m_pMulCount[i]);
  m_pFusionMean[i] = fusedMean;
  m_pMulMean[i] = msMean;

  // Sums in registers: each is a chain of its own.
  double fusedSquares = m_pFusionStdDev[i];
  double msSquares = m_pMulStdDev[i];
  double products = m_pCovSum[i];
  double errors = m_pRelativeError[i];
  double powers = m_pFusionSquareSum[i];
  double deviations = m_pRelativeDeviation[i];
  std::int64_t pairs = 0;
  std::int64_t nonZero = 0;
  for (int x = 0; x < n; ++x) {
    const double f = fused[x];
    const double m = ms[x];
    const bool fusedValid = !fusedNoData(f);
    const bool msValid = !msNoData(m);
    if (fusedValid) fusedSquares += (f - fusedMean) * (f - fusedMean);
    if (msValid) msSquares += (m - msMean) * (m - msMean);
    if (!fusedValid || !msValid) continue;
    products += (m - msMean) * (f - fusedMean);
    errors += (f - m) * (f - m);
    powers += f * f;
    ++pairs;
    if (m == 0.0) continue;
    deviations += std::fabs((m - f) / m);
    ++nonZero;
  }
  m_pFusionStdDev[i] = fusedSquares;
  m_pMulStdDev[i] = msSquares;
  m_pCovSum[i] = products;
  m_pRelativeError[i] = errors;
  m_pFusionSquareSum[i] = powers;
  m_pRelativeDeviation[i] = deviations;
  m_pPairCount[i] += pairs;
  m_pNonZeroCount[i] += nonZero;
}

void CStatisticEvaluate::EndProccess() {
  if (HasEqualLists() && m_pMulStdDev) {
    for (std::size_t i = 0; i < PairCount(); ++i) {
      m_pMulStdDev[i] = std::sqrt(m_pMulStdDev[i] / static_cast<double>(m_pMulCount[i]));
      m_pFusionStdDev[i] = std::sqrt(m_pFusionStdDev[i] / static_cast<double>(m_pFusionCount[i]));
      m_pCorrelation[i] =
          std::sqrt(m_pCovSum[i] / static_cast<double>(m_pPairCount[i]) / (m_pFusionStdDev[i] * m_pMulStdDev[i]));
      m_pRelativeDeviation[i] /= static_cast<double>(m_pNonZeroCount[i]);
      m_pRelativeError[i] /= m_pFusionSquareSum[i];
    }
  }
  for (SharedArray* sums : {&m_pMulSum, &m_pFusionSum, &m_pCovSum, &m_pFusionSquareSum}) sums->reset();
  for (SharedCounts* counts : {&m_pMulCount, &m_pFusionCount, &m_pPairCount, &m_pNonZeroCount}) counts->reset();
}
