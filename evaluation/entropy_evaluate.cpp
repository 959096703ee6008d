#include "evaluation/entropy_evaluate.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "evaluation/band_shares.h"
#include "evaluation/row_sums.h"

namespace {

constexpr int kBins = 256;

/// @param again whether the bins are those of the same values already
void CountRow(const double* values, int n, const platform::NoDataRule& noData, double minimum, double maximum,
              std::vector<std::int32_t>& bins, std::int64_t* counts, bool again = false) {
  if (!again) fusion::BinRow(values, n, noData, minimum, maximum, bins.data());
  for (const std::int32_t bin : bins) {
    if (bin >= 0) ++counts[bin];
  }
}

/// Shares of the bins; undefined for an empty histogram.
std::vector<double> Probabilities(const std::int64_t* counts) {
  std::int64_t total = 0;
  for (int k = 0; k < kBins; ++k) total += counts[k];
  std::vector<double> p(kBins);
  for (std::size_t k = 0; k < kBins; ++k) p[k] = static_cast<double>(counts[k]) / static_cast<double>(total);
  return p;
}

double Entropy(const std::vector<double>& p) {
  double sum = 0.0;
  for (const double v : p) {
    if (v > 0.0) sum += -v * std::log(v);
  }
  return sum;
}

double RelativeEntropy(const std::vector<double>& f, const std::vector<double>& m) {
  double sum = 0.0;
  for (std::size_t k = 0; k < kBins; ++k) {
    if (m[k] > 0.0 && f[k] > 0.0) sum += f[k] * std::log(f[k] / m[k]);
  }
  return sum;
}

double DeviationEntropy(const std::vector<double>& f, const std::vector<double>& m) {
  double sum = 0.0;
  for (std::size_t k = 0; k < kBins; ++k) {
    const double d = f[k] - m[k];
    if (d != 1.0) sum += -m[k] * std::log(1.0 - d * d);
  }
  return sum;
}

double JointEntropy(const std::vector<double>& f, const std::vector<double>& m, const std::vector<double>& q) {
  double sum = 0.0;
  for (std::size_t k = 0; k < kBins; ++k) {
    if (m[k] > 0.0 && f[k] > 0.0 && q[k] > 0.0) sum += -std::log(f[k] * m[k] * q[k]);
  }
  return sum;
}

bool IsUndefined(const std::vector<double>& p) { return std::isnan(p.front()); }

}  // namespace

CEntropyEvaluate::CEntropyEvaluate(FusionEvaluateParam* param) : CFusionEvaluate(param), m_entropyParam(m_param) {
  m_joinsBlocks = true;
}
CEntropyEvaluate::~CEntropyEvaluate() = default;
CEntropyEvaluate::CEntropyEvaluate(const CEntropyEvaluate&) = default;
CEntropyEvaluate& CEntropyEvaluate::operator=(const CEntropyEvaluate&) = default;

GISError CEntropyEvaluate::Preproccess() {
  const std::size_t mulCount = m_param.m_vecMulBands.size();
  const std::size_t n = PairCount();
  m_pPanHist = SharedCounts(kBins);
  m_pMulHist = SharedCounts(mulCount * kBins);
  m_pFusionHist = SharedCounts(n * kBins);
  m_dPanMin = 1e10;
  m_dPanMax = -1e10;
  const auto fill = [](SharedArray& values, std::size_t count, double value) {
    values = SharedArray(count);
    std::fill_n(static_cast<double*>(values), count, value);
  };
  // The maxima start at the smallest positive number: bands of negative values keep it.
  fill(m_pMulMax, mulCount, std::numeric_limits<double>::min());
  fill(m_pMulMin, mulCount, std::numeric_limits<double>::max());
  fill(m_pFusionMax, n, std::numeric_limits<double>::min());
  fill(m_pFusionMin, n, std::numeric_limits<double>::max());
  m_pEntropy = SharedArray(2 * n);
  m_pRelativeEntropy = SharedArray(n);
  m_pDeviationEntropy = SharedArray(n);
  m_pJointEntropy = SharedArray(n);
  return HasEqualLists() ? GIS_SUCCESS : GIS_FAILED;
}

bool CEntropyEvaluate::IsFinished(int step) { return step == 2; }

void CEntropyEvaluate::FusionEvaluate(double* panBuf, CRect* panRect, double** mulBufs, int mulCount, CRect* mulRect,
                                      double** fusionBufs, int fusionCount, CRect* blockRect) {
  const int width = blockRect->Width();
  const bool ranges = m_nProcessStep == 1;
  const auto takePan = [&](fusion::BandRoom& room, const double* pan) {
    const platform::NoDataRule panNoData = PanNoData();
    if (ranges) {
      fusion::WidenRow(pan, pan, width, panNoData, m_dPanMin, m_dPanMax);
    } else {
      CountRow(pan, width, panNoData, m_dPanMin, m_dPanMax, room.bins, m_pPanHist);
    }
  };
  const auto takeFused = [&](fusion::BandRoom& room, const double* fused, int i) {
    const platform::NoDataRule noData = FusionNoData(static_cast<std::size_t>(i));
    if (ranges) {
      fusion::WidenRow(fused, fused, width, noData, m_pFusionMin[i], m_pFusionMax[i]);
    } else {
      CountRow(fused, width, noData, m_pFusionMin[i], m_pFusionMax[i], room.bins, m_pFusionHist + i * kBins);
    }
  };
  const auto takeMul = [&](fusion::BandRoom& room, const double* lastFused, const fusion::SharedRows& rows, int y,
                           int j) {
    const platform::NoDataRule noData = MulNoData(static_cast<std::size_t>(j));
    const bool again = rows.Repeats(y);
    if (!again) rows.Gather(mulBufs[j], y, room.ms.data());
    if (!ranges) {
      CountRow(room.ms.data(), width, noData, m_pMulMin[j], m_pMulMax[j], room.bins, m_pMulHist + j * kBins, again);
    } else {
      // The range is widened by the last fused band's value where the multispectral value is valid.
      fusion::WidenRow(lastFused, room.ms.data(), width, noData, m_pMulMin[j], m_pMulMax[j]);
    }
  };
  // The multispectral bands, the fused ones, and pan.
  const auto take = [&](fusion::BandRoom& room, int band, const fusion::SharedRows& rows) {
    for (int y = rows.top; y < rows.bottom; ++y) {
      const std::ptrdiff_t line = y - blockRect->top;
      if (band < mulCount) {
        takeMul(room, fusionCount > 0 ? fusionBufs[fusionCount - 1] + line * width : nullptr, rows, y, band);
      } else if (band < mulCount + fusionCount) {
        takeFused(room, fusionBufs[band - mulCount] + line * width, band - mulCount);
      } else {
        takePan(room, panBuf + line * panRect->Width());
      }
    }
  };
  fusion::ForBands(m_workers.get(), mulCount + fusionCount + 1, Cells(1), *blockRect, *mulRect, take);
}

void CEntropyEvaluate::EndProccess() {
  const std::size_t n = PairCount();
  if (!m_pPanHist || !HasEqualLists()) return;
  const double undefined = std::numeric_limits<double>::quiet_NaN();
  const std::vector<double> q = Probabilities(m_pPanHist);
  for (std::size_t i = 0; i < n; ++i) {
    const std::vector<double> m = Probabilities(m_pMulHist + i * kBins);
    const std::vector<double> f = Probabilities(m_pFusionHist + i * kBins);
    const bool noM = IsUndefined(m);
    const bool noF = IsUndefined(f);
    m_pEntropy[i] = noM ? undefined : Entropy(m);
    m_pEntropy[n + i] = noF ? undefined : Entropy(f);
    m_pRelativeEntropy[i] = noM || noF ? undefined : RelativeEntropy(f, m);
    m_pDeviationEntropy[i] = noM || noF ? undefined : DeviationEntropy(f, m);
    m_pJointEntropy[i] = noM || noF || IsUndefined(q) ? undefined : JointEntropy(f, m, q);
  }
  m_pPanHist.reset();
  m_pMulHist.reset();
  m_pFusionHist.reset();
}
