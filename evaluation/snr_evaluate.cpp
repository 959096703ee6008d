#include "evaluation/snr_evaluate.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "evaluation/band_shares.h"

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
  const bool adds = m_pReproject != nullptr;
  const auto take = [&](fusion::BandRoom& room, int i, const fusion::SharedRows& rows) {
    const auto band = static_cast<std::size_t>(i);
    const platform::NoDataRule fusedNoData = FusionNoData(band);
    const platform::NoDataRule msNoData = MulNoData(band);
    double signal = m_pSignalSum[i];
    double noise = m_pNoiseSum[i];
    double minimum = m_pMulMin[i];
    double maximum = m_pMulMax[i];
    std::int64_t pairs = 0;
    for (int y = rows.top; y < rows.bottom; ++y) {
      const double* fused = fusionBufs[i] + static_cast<std::ptrdiff_t>(y - blockRect->top) * width;
      fusion::Gather(mulBufs[i], rows.Cells(y), width, room.ms.data());
      for (int x = 0; x < width; ++x) {
        const double f = fused[x];
        const double m = room.ms[static_cast<std::size_t>(x)];
        if (fusedNoData(f) || msNoData(m)) continue;
        signal = (adds ? signal : 0.0) + m * m;
        noise = (adds ? noise : 0.0) + (m - f) * (m - f);
        ++pairs;
        if (m > maximum) maximum = m;
        if (m < minimum) minimum = m;
      }
    }
    m_pSignalSum[i] = signal;
    m_pNoiseSum[i] = noise;
    m_pMulMin[i] = minimum;
    m_pMulMax[i] = maximum;
    m_pPairCount[i] += pairs;
  };
  fusion::ForBands(m_workers.get(), fusionCount, Cells(1), *blockRect, *mulRect, take);
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
