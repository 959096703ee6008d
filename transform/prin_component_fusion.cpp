#include "transform/prin_component_fusion.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "framework/row_kernel.h"
#include "framework/row_math.h"
#include "platform/raster/raster_algorithm.h"
#include "platform/statistics/row_statistics.h"
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
  const SharedArray variances(size);
  long long count = 0;
  CRasterAlgorithm::ComputeStaticsFromAOI(m_pMSSrc, nullptr, count, m_pSecondStatics, m_pFirstStatics, variances,
                                          m_pTransform, false, nullptr);
  std::copy_n(static_cast<double*>(m_pTransform), size * size, static_cast<double*>(m_pInverseTransform));
  CMatrixOperation::InverseMatrix(m_pInverseTransform, n);
  m_panFactor = 1.0;
  m_panOffset = 0.0;
  if (!m_matchesPan || count == 0) return GIS_SUCCESS;
  // The first component is that of length 1 in other units.
  double mean = 0.0;
  double squares = 0.0;
  for (std::size_t b = 0; b < size; ++b) {
    mean += m_pTransform[b] * m_pSecondStatics[b];
    squares += m_pTransform[b] * m_pTransform[b];
  }
  return FitPan(mean, std::sqrt(variances[0] * squares)) ? GIS_SUCCESS : GIS_FAILED;
}

bool CPrinComponentFusion::FitPan(double mean, double stdDev) {
  platform::RowStatistics pan;
  double products = 0.0;
  double deviations = 0.0;
  const bool visited = VisitBlocks(
      {platform::stages::kPanStatistics}, L"正在计算全色影像统计值 ...", [&](const fusion::FusionBlock& block) {
        const auto width = static_cast<std::size_t>(block.panRect->Width());
        const auto n = static_cast<std::size_t>(block.msBandCount);
        std::vector<double> values((n + 2) * width);
        std::vector<double*> rows;
        for (std::size_t r = 0; r < n + 2; ++r) rows.push_back(values.data() + r * width);
        double* const component = rows[n];
        double* const panRow = rows[n + 1];
        std::vector<unsigned char> inside(width, 1);
        fusion::RowSource source = MakeRowSource(block);
        source.SetColumns(0, static_cast<int>(width));
        for (int y = 0; y < block.panRect->Height(); ++y) {
          std::copy_n(block.pan + static_cast<std::size_t>(y) * width, width, panRow);
          source.Resample(y, rows.data());
          fusion::CombineRows(rows.data(), m_pTransform, block.msBandCount, static_cast<int>(width), component);
          if (block.aoi) {
            block.aoi->MarkRow(block.panRect->left, block.panRect->top + y, static_cast<int>(width), inside.data());
          }
          for (std::size_t i = 0; i < width; ++i) {
            if (!inside[i]) {
              panRow[i] = std::numeric_limits<double>::quiet_NaN();
            } else if (std::isfinite(panRow[i]) && std::isfinite(component[i])) {
              products += panRow[i] * (component[i] - mean);
              deviations += component[i] - mean;
            }
          }
          pan.Add(panRow, static_cast<std::int64_t>(width));
        }
      });
  if (!visited) return false;
  // Pan without spread has nothing to bring; one that goes against the component is turned over, or the bands would be.
  const bool goesAgainst = products < pan.Mean() * deviations;
  if (pan.StdDev() > 0.0) m_panFactor = (goesAgainst ? -stdDev : stdDev) / pan.StdDev();
  m_panOffset = mean - m_panFactor * pan.Mean();
  return true;
}

fusion::RowMethod CPrinComponentFusion::MakeRows(CRowFusion& fusion, const fusion::FusionBlock& block) {
  const auto& self = static_cast<const CPrinComponentFusion&>(fusion);
  const int n = block.msBandCount;
  return {{.scratchRows = n},
          [n, transform = self.m_pTransform, inverse = self.m_pInverseTransform, isFitted = self.m_matchesPan,
           factor = self.m_panFactor, offset = self.m_panOffset](const fusion::FusionRow& row) {
            if (isFitted) {
              for (int i = 0; i < row.width; ++i) row.scratch[0][i] = row.pan[i] * factor + offset;
            } else {
              std::copy_n(row.pan, row.width, row.scratch[0]);
            }
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
