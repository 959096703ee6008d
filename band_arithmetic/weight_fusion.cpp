#include "band_arithmetic/weight_fusion.h"

#include <algorithm>
#include <cmath>

#include "framework/row_kernel.h"
#include "framework/run/block_buffers.h"
#include "platform/statistics/survey.h"
#include "platform/system/multiversion.h"
#include "platform/system/workers.h"

namespace {

FUSION_MULTIVERSION(void, WeighRow, (const double* ms, const double* pan, double weight, int n, double* out),
                    (ms, pan, weight, n, out)) {
  for (int i = 0; i < n; ++i) out[i] = ((1.0 - weight) * ms[i] + (1.0 + weight) * pan[i]) * 0.5;
}

/// A row of each resampled band of a block, and last of pan.
class ResampledRows {
 public:
  template <typename MakeSource>
  ResampledRows(const fusion::FusionBlock& block, const MakeSource& makeSource)
      : values(static_cast<std::size_t>(block.msBandCount) + 1,
               std::vector<double>(static_cast<std::size_t>(block.panRect->Width()))),
        m_pan(block.pan) {
    const int width = block.panRect->Width();
    for (int first = 0; first < width; first += fusion::kTileWidth) {
      m_tiles.push_back(makeSource());
      m_tiles.back().SetColumns(first, std::min(fusion::kTileWidth, width - first));
    }
  }

  void Load(int y) {
    std::vector<double*> targets(values.size() - 1);
    for (std::size_t t = 0; t < m_tiles.size(); ++t) {
      for (std::size_t b = 0; b < targets.size(); ++b) targets[b] = values[b].data() + t * fusion::kTileWidth;
      m_tiles[t].Resample(y, targets.data());
    }
    const auto width = static_cast<std::ptrdiff_t>(values.back().size());
    std::copy_n(m_pan + y * width, width, values.back().data());
  }

  std::vector<std::vector<double>> values;

 private:
  const double* m_pan;
  std::vector<fusion::RowSource> m_tiles;
};

/// Moves the values of the pixels inside the area to the front of every row. Answers how many there are.
int KeepInside(const CRasterAOI& area, const CRect& rect, int row, std::vector<std::vector<double>>& rows) {
  std::vector<unsigned char> inside(static_cast<std::size_t>(rect.Width()));
  area.MarkRow(rect.left, rect.top + row, rect.Width(), inside.data());
  std::size_t kept = 0;
  for (std::size_t x = 0; x < inside.size(); ++x) {
    if (!inside[x]) continue;
    for (auto& values : rows) values[kept] = values[x];
    ++kept;
  }
  return static_cast<int>(kept);
}

/// Adds the products of N bands' and pan's deviations, pixel by pixel in their order. The sums of several bands are
/// carried along together, since each addition waits for the one before.
template <std::size_t N>
void AddProductsOf(const std::vector<double>* bands, const double* pan, int n, double panMean, const double* means,
                   double* sums) {
  double partial[N];
  std::copy_n(sums, N, partial);
  for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
    const double deviation = pan[i] - panMean;
    for (std::size_t b = 0; b < N; ++b) partial[b] += (bands[b][i] - means[b]) * deviation;
  }
  std::copy_n(partial, N, sums);
}

/// @param rows of each band, and last of pan
void AddProducts(const std::vector<std::vector<double>>& rows, int n, double panMean, const double* means,
                 double* sums) {
  const std::size_t bandCount = rows.size() - 1;
  const double* pan = rows.back().data();
  std::size_t b = 0;
  for (; b + 4 <= bandCount; b += 4) AddProductsOf<4>(&rows[b], pan, n, panMean, means + b, sums + b);
  for (; b < bandCount; ++b) AddProductsOf<1>(&rows[b], pan, n, panMean, means + b, sums + b);
}

}  // namespace

/// Means and deviations, of pan and of every chosen band.
struct CWeightFusion::Figures {
  double panMean = 0.0;
  double panStdDev = 0.0;
  std::vector<double> means;
  std::vector<double> stdDevs;
};

/// A sum of its own for every row, so that it is the same whoever takes it.
struct CWeightFusion::RowSums {
  std::int64_t kept = 0;
  std::vector<double> sums = {};

  template <typename Archive>
  void Exchange(Archive& archive) {
    archive(kept, sums);
  }
  template <typename Count>
  void AddTo(double* covSum, std::size_t bandCount, Count& count) const {
    platform::CheckSurveyed(sums.size() == bandCount);
    for (std::size_t b = 0; b < bandCount; ++b) covSum[b] += sums[b];
    count += static_cast<Count>(kept) * static_cast<Count>(bandCount);
  }
};

CWeightFusion::CWeightFusion(FusionParam* param)
    : CRowFusion(param, MakeRows, {.start = fusion::PositionStart::kOutput}) {}
CWeightFusion::~CWeightFusion() = default;
CWeightFusion::CWeightFusion(const CWeightFusion&) = default;
CWeightFusion& CWeightFusion::operator=(const CWeightFusion&) = default;

GISError CWeightFusion::Preproccess() {
  const std::size_t bandCount = m_param.m_vecMSBands.size();
  m_doubts.clear();
  m_weights.clear();
  Figures figures;
  figures.means.resize(bandCount);
  figures.stdDevs.resize(bandCount);
  const GISError result = ComputeFigures(figures);
  // Without both rasters there is no block to read.
  if (result != GIS_SUCCESS || AwaitsSurvey()) return result;

  // The ranges are not kept beyond this point; nothing reads them.
  m_pWeight = SharedArray(bandCount);
  m_pMulMax = SharedArray(bandCount);
  m_pMulMin = SharedArray(bandCount);
  std::vector<double> covSum(bandCount, 0.0);
  long long count = 0;
  if (!SumCovariances(figures, covSum, count) || AwaitsSurvey()) return result;
  for (std::size_t i = 0; i < bandCount; ++i) {
    const double r = covSum[i] / (figures.panStdDev * figures.stdDevs[i] * static_cast<double>(count));
    m_pWeight[i] = std::sqrt(r);
    m_doubts.push_back(DoubtOf(figures, i, r));
    m_weights.push_back(std::isfinite(m_pWeight[i]) ? m_pWeight[i] : 0.0);
  }
  return result;
}

CWeightFusion::WeightDoubt CWeightFusion::DoubtOf(const Figures& figures, std::size_t band, double r) {
  if (std::isfinite(r)) return r < 0.0 ? WeightDoubt::kNegative : WeightDoubt::kNone;
  if (figures.panStdDev == 0.0) return WeightDoubt::kConstantPan;
  return figures.stdDevs[band] == 0.0 ? WeightDoubt::kConstantBand : WeightDoubt::kNoPixels;
}

GISError CWeightFusion::ComputeFigures(Figures& figures) {
  GISError result = GIS_SUCCESS;
  if (m_pPanSrc && m_pPanSrc->IsOpen()) {
    CRasterBand* pan = ExistingBand(*m_pPanSrc, m_param.m_nPanBand);
    if (!pan) return GIS_FAILED;
    const bool measured =
        pan->ComputeStatics(&m_dPanMin, &m_dPanMax, &figures.panMean, &figures.panStdDev, true, nullptr);
    if (!IsMeasured(measured, *pan)) return GIS_FAILED;
  } else {
    result = GIS_FAILED;
  }
  if (!m_pMSSrc || !m_pMSSrc->IsOpen()) return GIS_FAILED;
  m_pMulMax = SharedArray(figures.means.size());
  m_pMulMin = SharedArray(figures.means.size());
  for (std::size_t i = 0; i < figures.means.size(); ++i) {
    CRasterBand* band = ExistingBand(*m_pMSSrc, m_param.m_vecMSBands[i]);
    if (!band) return GIS_FAILED;
    if (!MeasureBand(*band, m_pMulMin[i], m_pMulMax[i], figures.means[i], figures.stdDevs[i])) return GIS_FAILED;
  }
  return result;
}

bool CWeightFusion::SumCovariances(const Figures& figures, std::vector<double>& covSum, long long& count) {
  using Part = std::vector<RowSums>;
  const auto fold = [&](const Part& rows) {
    for (const RowSums& row : rows) row.AddTo(covSum.data(), covSum.size(), count);
  };
  const platform::SurveyPass pass = BlockPass("correlation");
  const bool visited = VisitBlocks({platform::stages::kCorrelation}, L"正在计算相关系数 ...", pass,
                                   [&](std::int64_t piece, const fusion::FusionBlock& block) {
                                     Part rows = SumRows(block, figures.panMean, figures.means.data());
                                     pass.Take(piece, rows, fold);
                                   });
  return visited && (pass.End<Part>(fold) || AwaitsSurvey());
}

// NOLINTNEXTLINE(readability-non-const-parameter): the operation is as it is published
void CWeightFusion::ComputeCovSum(double* panBuf, CRect* panRect, double panMean, double /*panStdDev*/,
                                  double** mulBufs, int bandCount, CRect* mulRect, double* mulMeans,
                                  double* /*mulStdDevs*/, double* covSum, long& count, CRasterAOI* aoi) {
  CRect block = fusion::Shift(*panRect, -m_param.m_rcProcess.left, -m_param.m_rcProcess.top);
  const fusion::FusionBlock fused{.pan = panBuf,
                                  .panRect = panRect,
                                  .ms = mulBufs,
                                  .msBandCount = bandCount,
                                  .msRect = mulRect,
                                  .outType = PDT_FLOAT64,
                                  .outBandCount = bandCount,
                                  .dstBlock = &block,
                                  .aoi = aoi};
  for (const RowSums& row : SumRows(fused, panMean, mulMeans)) {
    row.AddTo(covSum, static_cast<std::size_t>(bandCount), count);
  }
}

std::vector<CWeightFusion::RowSums> CWeightFusion::SumRows(const fusion::FusionBlock& block, double panMean,
                                                           const double* means) {
  const auto sumRow = [&](ResampledRows& rows, int y) {
    rows.Load(y);
    const int kept = block.aoi ? KeepInside(*block.aoi, *block.panRect, y, rows.values) : block.panRect->Width();
    RowSums row{kept, std::vector<double>(static_cast<std::size_t>(block.msBandCount), 0.0)};
    AddProducts(rows.values, kept, panMean, means, row.sums.data());
    return row;
  };
  std::vector<RowSums> all;
  const fusion::BlockGrid pieces = fusion::PiecesOf(*block.panRect);
  platform::FoldInOrder(
      m_workers.get(), pieces.Count(), [&] { return ResampledRows(block, [&] { return MakeRowSource(block); }); },
      [&](ResampledRows& rows, int i) {
        std::vector<RowSums> sums;
        const CRect piece = pieces.Block(0, i);
        for (int y = piece.top; y < piece.bottom; ++y) sums.push_back(sumRow(rows, y));
        return sums;
      },
      [&](const std::vector<RowSums>& sums) { all.insert(all.end(), sums.begin(), sums.end()); });
  return all;
}

fusion::RowMethod CWeightFusion::MakeRows(CRowFusion& self, const fusion::FusionBlock& block) {
  const auto& fusion = static_cast<CWeightFusion&>(self);
  return {
      {},
      [weights = fusion.m_pWeight, keeps = fusion.m_keepsBands, n = block.msBandCount](const fusion::FusionRow& row) {
        for (int b = 0; b < row.outBandCount; ++b) {
          const double weight = b < n ? std::fabs(weights[b]) : 0.0;
          if (keeps && std::isnan(weight)) {
            std::copy_n(row.ms[b], row.width, row.out[b]);
            continue;
          }
          WeighRow(row.ms[b], row.pan, weight, row.width, row.out[b]);
        }
      }};
}

void CWeightFusion::EndProccess() {
  m_pMulMax.reset();
  m_pMulMin.reset();
  m_pWeight.reset();
}
