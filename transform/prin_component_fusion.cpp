#include "transform/prin_component_fusion.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include "framework/messages.h"
#include "framework/row_kernel.h"
#include "framework/row_math.h"
#include "framework/run/block_buffers.h"
#include "platform/raster/raster_algorithm.h"
#include "platform/statistics/row_statistics.h"
#include "platform/statistics/survey.h"
#include "platform/system/workers.h"
#include "platform/utility/matrix_operation.h"

namespace {

/// What some rows tell of pan and of the first component, in sums of their own, which are the same whoever takes them.
struct PanSums {
  platform::RowStatistics::Pieces pan;
  std::vector<double> products;
  std::vector<double> deviations;

  void Append(const PanSums& next) {
    pan.insert(pan.end(), next.pan.begin(), next.pan.end());
    products.insert(products.end(), next.products.begin(), next.products.end());
    deviations.insert(deviations.end(), next.deviations.begin(), next.deviations.end());
  }
  template <typename Archive>
  void Exchange(Archive& archive) {
    archive(pan, products, deviations);
  }
};

/// Rows of a block: the resampled bands, the component, and pan.
class ComponentRows {
 public:
  ComponentRows(const fusion::FusionBlock& block, fusion::RowSource source)
      : m_block(block),
        m_width(static_cast<std::size_t>(block.panRect->Width())),
        m_bandCount(static_cast<std::size_t>(block.msBandCount)),
        m_values((m_bandCount + 2) * m_width),
        m_inside(m_width, 1),
        m_source(std::move(source)) {
    for (std::size_t r = 0; r < m_bandCount + 2; ++r) m_rows.push_back(m_values.data() + r * m_width);
    m_source.SetColumns(0, static_cast<int>(m_width));
  }

  /// @param moments what pan's row is reduced for
  void Look(int y, const double* transform, double mean, const platform::RowStatistics& moments, PanSums& sums) {
    double* const component = m_rows[m_bandCount];
    double* const pan = m_rows[m_bandCount + 1];
    const int width = static_cast<int>(m_width);
    std::copy_n(m_block.pan + static_cast<std::size_t>(y) * m_width, m_width, pan);
    m_source.Resample(y, m_rows.data());
    fusion::CombineRows(m_rows.data(), transform, m_block.msBandCount, width, component);
    sums.products.push_back(0.0);
    sums.deviations.push_back(0.0);
    if (m_block.aoi) m_block.aoi->MarkRow(m_block.panRect->left, m_block.panRect->top + y, width, m_inside.data());
    for (std::size_t i = 0; i < m_width; ++i) {
      if (!m_inside[i]) {
        pan[i] = std::numeric_limits<double>::quiet_NaN();
      } else if (std::isfinite(pan[i]) && std::isfinite(component[i])) {
        sums.products.back() += pan[i] * (component[i] - mean);
        sums.deviations.back() += component[i] - mean;
      }
    }
    moments.Reduce(pan, width, sums.pan);
  }

 private:
  const fusion::FusionBlock& m_block;
  std::size_t m_width;
  std::size_t m_bandCount;
  std::vector<double> m_values;
  std::vector<double*> m_rows;
  std::vector<unsigned char> m_inside;
  fusion::RowSource m_source;
};

}  // namespace

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
  if (AwaitsSurvey()) return GIS_SUCCESS;
  if (count < 0 && m_param.m_bNeedsFigures) {
    SetError(ERR_READ, fusion::messages::kReadFailed);
    return GIS_FAILED;
  }
  std::copy_n(static_cast<double*>(m_pTransform), size * size, static_cast<double*>(m_pInverseTransform));
  m_means.assign(&m_pSecondStatics[0], &m_pSecondStatics[0] + size);
  m_components.assign(&m_pTransform[0], &m_pTransform[0] + size * size);
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
  const auto fold = [&](const PanSums& sums) {
    pan.Add(sums.pan);
    for (const double product : sums.products) products += product;
    for (const double deviation : sums.deviations) deviations += deviation;
  };
  const platform::SurveyPass pass = BlockPass("pan and component");
  const bool visited =
      VisitBlocks({platform::stages::kPanStatistics}, L"正在计算全色影像统计值 ...", pass,
                  [&](std::int64_t at, const fusion::FusionBlock& block) {
                    PanSums whole;
                    const fusion::BlockGrid pieces = fusion::PiecesOf(*block.panRect);
                    platform::FoldInOrder(
                        m_workers.get(), pieces.Count(), [&] { return ComponentRows(block, MakeRowSource(block)); },
                        [&](ComponentRows& rows, int i) {
                          PanSums sums;
                          const CRect piece = pieces.Block(0, i);
                          for (int y = piece.top; y < piece.bottom; ++y) rows.Look(y, m_pTransform, mean, pan, sums);
                          return sums;
                        },
                        [&](const PanSums& sums) { whole.Append(sums); });
                    pass.Take(at, whole, fold);
                  });
  if (!visited) return false;
  if (!pass.End<PanSums>(fold)) return AwaitsSurvey();
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
