#include "transform/prin_component_fusion.h"

#include <algorithm>

#include "framework/row_math.h"
#include "platform/raster/raster_algorithm.h"
#include "platform/utility/matrix_operation.h"

CPrinComponentFusion::CPrinComponentFusion(FusionParam* param) : CRowFusion(param, MakeRows) {}
CPrinComponentFusion::~CPrinComponentFusion() = default;
CPrinComponentFusion::CPrinComponentFusion(const CPrinComponentFusion&) = default;
CPrinComponentFusion& CPrinComponentFusion::operator=(const CPrinComponentFusion&) = default;

GISError CPrinComponentFusion::Preproccess() {
  const int n = m_param.m_nOutBandCount;
  const auto size = static_cast<std::size_t>(n);
  if (!m_pMSSrc || n != m_pMSSrc->GetBandCount()) {
    SetError(ERR_BANDS, L"请选择多光谱影像所有波段进行处理！");
    return GIS_FAILED;
  }
  m_pFirstStatics = SharedArray(size);
  m_pSecondStatics = SharedArray(size);
  // The kernel reads both matrices in rows as long as the list of bands, which may name some of them twice: there are
  // zeros behind the n x n values.
  const std::size_t room = std::max(size, m_param.m_vecMSBands.size());
  m_pTransform = SharedArray(room * room);
  m_pInverseTransform = SharedArray(room * room);
  const SharedArray scratch(size);
  long long count = 0;
  CRasterAlgorithm::ComputeStaticsFromAOI(m_pMSSrc, nullptr, count, m_pSecondStatics, m_pFirstStatics, scratch,
                                          m_pTransform, false, nullptr);
  std::copy_n(static_cast<double*>(m_pTransform), size * size, static_cast<double*>(m_pInverseTransform));
  CMatrixOperation::InverseMatrix(m_pInverseTransform, n);
  return GIS_SUCCESS;
}

fusion::RowMethod CPrinComponentFusion::MakeRows(CRowFusion& fusion, const fusion::FusionBlock& block) {
  const auto& self = static_cast<const CPrinComponentFusion&>(fusion);
  const int n = block.msBandCount;
  return {{.scratchRows = n},
          [n, transform = self.m_pTransform, inverse = self.m_pInverseTransform](const fusion::FusionRow& row) {
            std::copy_n(row.pan, row.width, row.scratch[0]);
            for (int c = 1; c < n; ++c) fusion::CombineRows(row.ms, transform + c * n, n, row.width, row.scratch[c]);
            for (int b = 0; b < row.outBandCount; ++b) {
              if (b < n) {
                fusion::CombineRows(row.scratch, inverse + b * n, n, row.width, row.out[b]);
              } else {
                fusion::ClearRow(row.width, row.out[b]);
              }
            }
          }};
}

void CPrinComponentFusion::EndProccess() {
  m_pFirstStatics.reset();
  m_pSecondStatics.reset();
  m_pTransform.reset();
  m_pInverseTransform.reset();
}
