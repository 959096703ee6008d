#include "band_arithmetic/multiple_fusion.h"

#include "platform/system/multiversion.h"

namespace {

FUSION_MULTIVERSION(void, MultiplyRow, (const double* ms, const double* pan, int n, double* out), (ms, pan, n, out)) {
  for (int i = 0; i < n; ++i) out[i] = ms[i] * pan[i];
}

void Multiply(const fusion::FusionRow& row) {
  for (int b = 0; b < row.outBandCount; ++b) MultiplyRow(row.ms[b], row.pan, row.width, row.out[b]);
}

fusion::RowMethod MakeProducts(CRowFusion&, const fusion::FusionBlock&) { return {{}, Multiply}; }

}  // namespace

CMultipleFusion::CMultipleFusion(FusionParam* param)
    : CRowFusion(param, MakeProducts, {.start = fusion::PositionStart::kOutput}) {}
CMultipleFusion::~CMultipleFusion() = default;
CMultipleFusion::CMultipleFusion(const CMultipleFusion&) = default;
CMultipleFusion& CMultipleFusion::operator=(const CMultipleFusion&) = default;

GISError CMultipleFusion::Preproccess() {
  // Runs over blocks make nothing of these figures, so that no survey needs them.
  if (m_param.m_pSurvey) return GIS_SUCCESS;
  GISError result = GIS_SUCCESS;
  if (m_pPanSrc && m_pPanSrc->IsOpen()) {
    CRasterBand* pan = ExistingBand(*m_pPanSrc, m_param.m_nPanBand);
    if (!pan) return GIS_FAILED;
    if (!IsMeasured(pan->ComputeMinMax(&m_dPanMin, &m_dPanMax, true), *pan)) return GIS_FAILED;
  } else {
    result = GIS_FAILED;
  }
  if (!m_pMSSrc || !m_pMSSrc->IsOpen()) return GIS_FAILED;

  const std::size_t count = m_param.m_vecMSBands.size();
  m_pMulMax = SharedArray(count);
  m_pMulMin = SharedArray(count);
  m_pMeans = SharedArray(count);
  m_pStdDevs = SharedArray(count);
  for (std::size_t i = 0; i < count; ++i) {
    CRasterBand* band = ExistingBand(*m_pMSSrc, m_param.m_vecMSBands[i]);
    if (!band) return GIS_FAILED;
    if (!MeasureBand(*band, m_pMulMin[i], m_pMulMax[i], m_pMeans[i], m_pStdDevs[i])) return GIS_FAILED;
  }
  return result;
}

void CMultipleFusion::EndProccess() {
  m_pMulMax.reset();
  m_pMulMin.reset();
  CFusion::EndProccess();
}
