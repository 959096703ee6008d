#include "highpass/bayes_pan_sharpening_fusion.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "framework/row_math.h"
#include "platform/system/multiversion.h"

namespace {

/// What the pan value adds to one band, and the band's transformed value.
FUSION_MULTIVERSION
void EstimateRow(const double* pan, double panMean, double gain, double covariance, double variance,
                 const double* transformed, int n, double* out) {
  for (int i = 0; i < n; ++i) {
    out[i] = (pan[i] - panMean) * gain * covariance / variance + gain * transformed[i];
  }
}

}  // namespace

BayesPanSharpeningFusion::BayesPanSharpeningFusion(FusionParam* param) : CFusion(param) {
  m_positions = {.reprojectedOffset = 0.5};
}
BayesPanSharpeningFusion::~BayesPanSharpeningFusion() = default;
BayesPanSharpeningFusion::BayesPanSharpeningFusion(const BayesPanSharpeningFusion&) = default;
BayesPanSharpeningFusion& BayesPanSharpeningFusion::operator=(const BayesPanSharpeningFusion&) = default;

void BayesPanSharpeningFusion::SetModel(const BayesianModel& model) {
  const std::size_t n = model.panCovariance.size();
  m_nModelBands = model.transform.size() == n * n ? static_cast<int>(n) : 0;
  m_bayesParam.m_dBayesParam = model.weight;
  m_dPanVariance = model.panVariance;
  m_dPanMean = model.panMean;
  m_pPanCovariance = SharedArray(n);
  m_pTransform = SharedArray(model.transform.size());
  std::copy(model.panCovariance.begin(), model.panCovariance.end(), static_cast<double*>(m_pPanCovariance));
  std::copy(model.transform.begin(), model.transform.end(), static_cast<double*>(m_pTransform));
}

GISError BayesPanSharpeningFusion::Preproccess() { return GIS_SUCCESS; }

GISError BayesPanSharpeningFusion::StartBolckProcess() { return GIS_SUCCESS; }

void** BayesPanSharpeningFusion::AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount,
                                                  CRect* msRect, PixelDataType outType, int outBandCount,
                                                  CRect* dstBlock, CRasterAOI* aoi) {
  if (msBandCount != m_nModelBands) {
    if (m_nLastErrorType == ERR_NONE) Fail(ERR_STATISTICS, L"贝叶斯模型与多光谱波段不符！");
    return nullptr;
  }
  if (std::fabs(m_dPanVariance) < 1e-8) m_dPanVariance = 1.0;

  // The transform's columns one after the other.
  std::vector<double> columns;
  for (int b = 0; b < msBandCount; ++b) {
    for (int i = 0; i < msBandCount; ++i) columns.push_back(m_pTransform[i * msBandCount + b]);
  }
  const auto estimate = [this, &columns, n = msBandCount](const fusion::FusionRow& row) {
    const double gain = 2.0 * m_bayesParam.m_dBayesParam;
    double* transformed = row.scratch[0];
    for (int b = 0; b < std::min(n, row.outBandCount); ++b) {
      fusion::CombineRows(row.ms, columns.data() + b * n, n, row.width, transformed);
      EstimateRow(row.pan, m_dPanMean, gain, m_pPanCovariance[b], m_dPanVariance, transformed, row.width, row.out[b]);
    }
    for (int b = n; b < row.outBandCount; ++b) fusion::ClearRow(row.width, row.out[b]);
  };
  fusion::RowPolicy policy;
  policy.scratchRows = 1;
  return FuseRows({pan, panRect, nullptr, ms, msBandCount, msRect, outType, outBandCount, dstBlock, aoi}, policy,
                  estimate);
}
