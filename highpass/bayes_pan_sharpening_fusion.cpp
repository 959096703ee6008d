#include "highpass/bayes_pan_sharpening_fusion.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "framework/row_math.h"
#include "highpass/bayesian_source.h"
#include "platform/system/multiversion.h"

namespace {

/// What the pan value adds to one band, and the band's transformed value, in the place of that.
FUSION_MULTIVERSION(void, EstimateRow,
                    (const double* pan, double panMean, double gain, double covariance, double variance, int n,
                     double* transformed),
                    (pan, panMean, gain, covariance, variance, n, transformed)) {
  for (int i = 0; i < n; ++i) {
    transformed[i] = (pan[i] - panMean) * gain * covariance / variance + gain * transformed[i];
  }
}

/// The same to the last bit for a gain and a variance of 1, which estimated models have.
FUSION_MULTIVERSION(void, EstimatePlainRow,
                    (const double* pan, double panMean, double covariance, int n, double* transformed),
                    (pan, panMean, covariance, n, transformed)) {
  for (int i = 0; i < n; ++i) transformed[i] = (pan[i] - panMean) * covariance + transformed[i];
}

}  // namespace

BayesPanSharpeningFusion::BayesPanSharpeningFusion(FusionParam* param)
    : CRowFusion(param, MakeRows, {.reprojectedOffset = 0.5}) {}
BayesPanSharpeningFusion::~BayesPanSharpeningFusion() = default;
BayesPanSharpeningFusion::BayesPanSharpeningFusion(const BayesPanSharpeningFusion&) = default;
BayesPanSharpeningFusion& BayesPanSharpeningFusion::operator=(const BayesPanSharpeningFusion&) = default;

void BayesPanSharpeningFusion::SetModel(const BayesianModel& model) {
  m_source = model.source;
  if (m_source) {
    m_param.m_strMSFile = m_source->Path();
    m_param.m_vecMSBands.clear();
    m_param.m_nOutBandCount = m_source->BandCount() - 1;
    if (m_param.m_rcProcess.IsRectEmpty()) m_param.m_rcProcess = model.area;
  }
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

fusion::RowMethod BayesPanSharpeningFusion::MakeRows(CRowFusion& fusion, const fusion::FusionBlock& block) {
  auto& self = static_cast<BayesPanSharpeningFusion&>(fusion);
  const int n = block.msBandCount;
  if (n != self.m_nModelBands) {
    if (self.m_nLastErrorType == ERR_NONE) self.Fail(ERR_STATISTICS, L"贝叶斯模型与多光谱波段不符！");
    return {};
  }
  if (std::fabs(self.m_dPanVariance) < 1e-8) self.m_dPanVariance = 1.0;

  // The transform's columns one after the other.
  std::vector<double> columns;
  for (int b = 0; b < n; ++b) {
    for (int i = 0; i < n; ++i) columns.push_back(self.m_pTransform[i * n + b]);
  }
  return {{}, [&self, n, columns = std::move(columns)](const fusion::FusionRow& row) {
            const double gain = 2.0 * self.m_bayesParam.m_dBayesParam;
            const bool isPlain = gain == 1.0 && self.m_dPanVariance == 1.0;
            for (int b = 0; b < std::min(n, row.outBandCount); ++b) {
              double* out = row.out[b];
              fusion::CombineRows(row.ms, columns.data() + b * n, n, row.width, out);
              const double covariance = self.m_pPanCovariance[b];
              if (isPlain) {
                EstimatePlainRow(row.pan, self.m_dPanMean, covariance, row.width, out);
              } else {
                EstimateRow(row.pan, self.m_dPanMean, gain, covariance, self.m_dPanVariance, row.width, out);
              }
            }
            for (int b = n; b < row.outBandCount; ++b) fusion::ClearRow(row.width, row.out[b]);
          }};
}
