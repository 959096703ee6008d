#include "evaluation/statistic_evaluate.h"

#include <cmath>

#include "evaluation/band_shares.h"
#include "evaluation/row_sums.h"

CStatisticEvaluate::CStatisticEvaluate(FusionEvaluateParam* param) : CFusionEvaluate(param), m_statisticParam(m_param) {
  m_joinsBlocks = true;
}
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

bool CStatisticEvaluate::IsFinished(int step) { return step == 2; }

void CStatisticEvaluate::FusionEvaluate(double* /*panBuf*/, CRect* /*panRect*/, double** mulBufs, int /*mulCount*/,
                                        CRect* mulRect, double** fusionBufs, int fusionCount, CRect* blockRect) {
  const int width = blockRect->Width();
  const auto take = [&](fusion::BandRoom& room, int i, const fusion::SharedRows& rows) {
    for (int y = rows.top; y < rows.bottom; ++y) {
      const double* fused = fusionBufs[i] + static_cast<std::ptrdiff_t>(y - blockRect->top) * width;
      const bool again = rows.Repeats(y);
      if (!again) rows.Gather(mulBufs[i], y, room.ms.data());
      if (m_nProcessStep == 1) {
        AddSums(static_cast<std::size_t>(i), fused, room, width, again);
      } else {
        AddDeviations(static_cast<std::size_t>(i), fused, room, width, again);
      }
    }
  };
  fusion::ForBands(m_workers.get(), fusionCount, Cells(1), *blockRect, *mulRect, take);
}

void CStatisticEvaluate::AddSums(std::size_t i, const double* fused, fusion::BandRoom& room, int n, bool again) {
  fusion::SumRow(fused, n, FusionNoData(i), m_pFusionSum[i], m_pFusionCount[i]);
  if (!again) {
    room.msSum = 0.0;
    room.msCount = 0;
    fusion::SumRow(room.ms.data(), n, MulNoData(i), room.msSum, room.msCount);
  }
  m_pMulSum[i] += room.msSum;
  m_pMulCount[i] += room.msCount;
}

void CStatisticEvaluate::AddDeviations(std::size_t i, const double* fused, fusion::BandRoom& room, int n, bool again) {
  m_pFusionMean[i] = m_pFusionSum[i] / static_cast<double>(m_pFusionCount[i]);
  m_pMulMean[i] = m_pMulSum[i] / static_cast<double>(m_pMulCount[i]);
  const double* ms = room.ms.data();
  fusion::MarkValid(fused, n, FusionNoData(i), room.valid.data());
  if (!again) fusion::MarkValid(ms, n, MulNoData(i), room.msValid.data());
  const fusion::PairSums sums =
      fusion::SumPairs(fused, ms, room.valid.data(), room.msValid.data(), n, m_pFusionMean[i], m_pMulMean[i]);
  m_pFusionStdDev[i] += sums.fusedSquares;
  m_pMulStdDev[i] += sums.msSquares;
  m_pCovSum[i] += sums.products;
  m_pRelativeError[i] += sums.errors;
  m_pFusionSquareSum[i] += sums.powers;
  m_pRelativeDeviation[i] += sums.deviations;
  m_pPairCount[i] += static_cast<std::int64_t>(sums.pairs);
  m_pNonZeroCount[i] += static_cast<std::int64_t>(sums.nonZero);
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
