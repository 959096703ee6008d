#include "evaluation/snr_evaluate.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "evaluation/band_shares.h"
#include "evaluation/row_sums.h"

CSNREvaluate::CSNREvaluate(FusionEvaluateParam* param) : CFusionEvaluate(param), m_snrParam(m_param) {
  m_joinsBlocks = true;
}
CSNREvaluate::~CSNREvaluate() = default;
CSNREvaluate::CSNREvaluate(const CSNREvaluate&) = default;
CSNREvaluate& CSNREvaluate::operator=(const CSNREvaluate&) = default;

GISError CSNREvaluate::Preproccess() {
  const std::size_t n = PairCount();
  for (SharedArray* values : {&m_pSignalSum, &m_pNoiseSum, &m_pSNR, &m_pPSNR}) *values = SharedArray(n);
  m_pPairCount = SharedCounts(n);
  const std::size_t mulCount = m_param.m_vecMulBands.size();
  m_pMulMax = SharedArray(mulCount);
  m_pMulMin = SharedArray(mulCount);
  std::fill_n(static_cast<double*>(m_pMulMax), mulCount, std::numeric_limits<double>::min());
  std::fill_n(static_cast<double*>(m_pMulMin), mulCount, std::numeric_limits<double>::max());
  return HasEqualLists() ? GIS_SUCCESS : GIS_FAILED;
}

bool CSNREvaluate::IsFinished(int /*step*/) { return true; }

void CSNREvaluate::FusionEvaluate(double* /*panBuf*/, CRect* /*panRect*/, double** mulBufs, int /*mulCount*/,
                                  CRect* mulRect, double** fusionBufs, int fusionCount, CRect* blockRect) {
  const int width = blockRect->Width();
  const auto take = [&](fusion::BandRoom& room, int i, const fusion::SharedRows& rows) {
    const auto band = static_cast<std::size_t>(i);
    for (int y = rows.top; y < rows.bottom; ++y) {
      const double* fused = fusionBufs[i] + static_cast<std::ptrdiff_t>(y - blockRect->top) * width;
      if (!rows.Repeats(y)) rows.Gather(mulBufs[i], y, room.ms.data());
      fusion::MarkValid(fused, width, FusionNoData(band), room.valid.data());
      fusion::DropNoData(room.ms.data(), width, MulNoData(band), room.valid.data());
      AddRow(band, fused, room, width);
    }
  };
  fusion::ForBands(m_workers.get(), fusionCount, Cells(1), *blockRect, *mulRect, take);
}

void CSNREvaluate::AddRow(std::size_t i, const double* fused, const fusion::BandRoom& room, int n) {
  m_pPairCount[i] += fusion::WidenValid(room.ms.data(), room.valid.data(), n, m_pMulMin[i], m_pMulMax[i]);
  const auto counts = [&](int x) { return room.valid[static_cast<std::size_t>(x)] != 0.0; };
  const auto add = [&](int x, double signal, double noise) {
    const double m = room.ms[static_cast<std::size_t>(x)];
    m_pSignalSum[i] = signal + m * m;
    m_pNoiseSum[i] = noise + (m - fused[x]) * (m - fused[x]);
  };
  if (m_pReproject) {
    for (int x = 0; x < n; ++x) {
      if (counts(x)) add(x, m_pSignalSum[i], m_pNoiseSum[i]);
    }
    return;
  }
  int last = n - 1;
  while (last >= 0 && !counts(last)) --last;
  if (last >= 0) add(last, 0.0, 0.0);
}

void CSNREvaluate::EndProccess() {
  if (HasEqualLists() && m_pNoiseSum) {
    for (std::size_t i = 0; i < PairCount(); ++i) {
      if (m_pNoiseSum[i] != 0.0) {
        m_pSNR[i] = 10.0 * std::log(m_pSignalSum[i] / m_pNoiseSum[i]);
        m_pPSNR[i] =
            10.0 * std::log((m_pMulMax[i] - m_pMulMin[i]) * static_cast<double>(m_pPairCount[i]) / m_pNoiseSum[i]);
      } else {
        m_pSNR[i] = std::numeric_limits<double>::max();
        m_pPSNR[i] = std::numeric_limits<double>::min();
      }
    }
  }
  for (SharedArray* values : {&m_pMulMax, &m_pMulMin, &m_pNoiseSum, &m_pSignalSum}) values->reset();
}
