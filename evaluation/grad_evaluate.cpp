#include "evaluation/grad_evaluate.h"

#include <algorithm>
#include <cmath>

/// A row and the row below it, of both bands of a pair.
struct CGradEvaluate::RowPair {
  const double* ms;
  const double* msBelow;
  const double* fused;
  const double* fusedBelow;
};

CGradEvaluate::CGradEvaluate(FusionEvaluateParam* param) : CFusionEvaluate(param), m_gradParam(m_param) {}
CGradEvaluate::~CGradEvaluate() = default;
CGradEvaluate::CGradEvaluate(const CGradEvaluate&) = default;
CGradEvaluate& CGradEvaluate::operator=(const CGradEvaluate&) = default;

GISError CGradEvaluate::Preproccess() {
  const std::size_t n = PairCount();
  for (SharedArray* values :
       {&m_pFusionMeanGrad, &m_pMulMeanGrad, &m_pFusionRmsGrad, &m_pMulRmsGrad, &m_pMeanAbsDiff, &m_pDiffNorm,
        &m_pAbsDiffSum, &m_pSquareDiffSum, &m_pMulDx2Sum, &m_pMulDy2Sum, &m_pFusionDx2Sum, &m_pFusionDy2Sum}) {
    *values = SharedArray(n);
  }
  for (SharedCounts* counts : {&m_pFusionCount, &m_pMulCount, &m_pDiffCount}) *counts = SharedCounts(n);
  return HasEqualLists() ? GIS_SUCCESS : GIS_FAILED;
}

void CGradEvaluate::GetBlockSize(int& xSize, int& ySize) {
  xSize = 1024;
  ySize = 1024;
  if (!m_pPanSource || !m_pPanSource->IsOpen()) return;
  xSize = std::min(xSize, m_pPanSource->GetWidth());
  ySize = std::min(ySize, m_pPanSource->GetHeight());
}

bool CGradEvaluate::IsFinished(int /*step*/) { return true; }

void CGradEvaluate::FusionEvaluate(double* /*panBuf*/, CRect* /*panRect*/, double** mulBufs, int /*mulCount*/,
                                   CRect* mulRect, double** fusionBufs, int fusionCount, CRect* blockRect) {
  const int width = blockRect->Width();
  if (width < 2 || blockRect->Height() < 2) return;
  fusion::MsCells& cells = Cells(0);
  const auto size = static_cast<std::size_t>(width);
  // A row's samples serve it and the row above.
  std::vector<std::vector<double>> ms(static_cast<std::size_t>(fusionCount), std::vector<double>(size));
  std::vector<std::vector<double>> below = ms;
  const auto gather = [&](int y, std::vector<std::vector<double>>& rows) {
    const std::int64_t* row = cells.Row(y, *blockRect, *mulRect);
    for (std::size_t i = 0; i < rows.size(); ++i) fusion::Gather(mulBufs[i], row, width, rows[i].data());
  };
  gather(blockRect->top, below);
  for (int y = blockRect->top; y < blockRect->bottom - 1; ++y) {
    std::swap(ms, below);
    gather(y + 1, below);
    for (std::size_t i = 0; i < ms.size(); ++i) {
      const double* fused = fusionBufs[i] + static_cast<std::ptrdiff_t>(y - blockRect->top) * width;
      const RowPair rows{ms[i].data(), below[i].data(), fused, fused + width};
      AddMulRow(i, rows, width - 1);
      AddFusionRow(i, rows, width - 1);
      AddDifferenceRow(i, rows, width - 1);
    }
  }
}

namespace {

/// Adds the gradients of a row; valid answers for a column whether its pixels count.
template <typename Valid>
void AddGradients(const double* row, const double* below, int n, const Valid& valid, double& dx2Sum, double& dy2Sum,
                  double& gradientSum, std::int64_t& count) {
  double dx2 = dx2Sum;
  double dy2 = dy2Sum;
  double gradients = gradientSum;
  std::int64_t counted = 0;
  for (int x = 0; x < n; ++x) {
    if (!valid(x)) continue;
    const double right = row[x + 1] - row[x];
    const double down = below[x] - row[x];
    dx2 += right * right;
    dy2 += down * down;
    gradients += std::sqrt(right * right + down * down);
    ++counted;
  }
  dx2Sum = dx2;
  dy2Sum = dy2;
  gradientSum = gradients;
  count += counted;
}

}  // namespace

void CGradEvaluate::AddMulRow(std::size_t i, const RowPair& rows, int n) {
  const platform::NoDataTest noData = MulNoData(i);
  const auto valid = [&](int x) { return !noData(rows.ms[x]) && !noData(rows.ms[x + 1]) && !noData(rows.msBelow[x]); };
  AddGradients(rows.ms, rows.msBelow, n, valid, m_pMulDx2Sum[i], m_pMulDy2Sum[i], m_pMulMeanGrad[i], m_pMulCount[i]);
}

void CGradEvaluate::AddFusionRow(std::size_t i, const RowPair& rows, int n) {
  const platform::NoDataTest noData = FusionNoData(i);
  // The first test is made on the multispectral value, with the fused band's no-data value.
  const auto valid = [&](int x) {
    return !noData(rows.ms[x]) && !noData(rows.fused[x + 1]) && !noData(rows.fusedBelow[x]);
  };
  AddGradients(rows.fused, rows.fusedBelow, n, valid, m_pFusionDx2Sum[i], m_pFusionDy2Sum[i], m_pFusionMeanGrad[i],
               m_pFusionCount[i]);
}

void CGradEvaluate::AddDifferenceRow(std::size_t i, const RowPair& rows, int n) {
  const platform::NoDataTest fusedNoData = FusionNoData(i);
  const platform::NoDataTest msNoData = MulNoData(i);
  double absolute = m_pAbsDiffSum[i];
  double squares = m_pSquareDiffSum[i];
  std::int64_t counted = 0;
  for (int x = 0; x < n; ++x) {
    if (fusedNoData(rows.fused[x]) || msNoData(rows.ms[x])) continue;
    const double d = rows.ms[x] - rows.fused[x];
    absolute += std::fabs(d);
    squares += d * d;
    ++counted;
  }
  m_pAbsDiffSum[i] = absolute;
  m_pSquareDiffSum[i] = squares;
  m_pDiffCount[i] += counted;
}

void CGradEvaluate::EndProccess() {
  if (HasEqualLists() && m_pFusionCount) {
    for (std::size_t i = 0; i < PairCount(); ++i) {
      const auto fusedCount = static_cast<double>(m_pFusionCount[i]);
      const auto msCount = static_cast<double>(m_pMulCount[i]);
      const auto pairs = static_cast<double>(m_pDiffCount[i]);
      m_pFusionMeanGrad[i] /= fusedCount;
      m_pMulMeanGrad[i] /= msCount;
      m_pFusionRmsGrad[i] = std::sqrt((m_pFusionDy2Sum[i] + m_pFusionDx2Sum[i]) / fusedCount);
      m_pMulRmsGrad[i] = std::sqrt((m_pMulDy2Sum[i] + m_pMulDx2Sum[i]) / msCount);
      m_pMeanAbsDiff[i] = m_pAbsDiffSum[i] / pairs;
      m_pDiffNorm[i] = std::sqrt(m_pSquareDiffSum[i]) / pairs;
    }
  }
  for (SharedArray* sums :
       {&m_pAbsDiffSum, &m_pSquareDiffSum, &m_pMulDx2Sum, &m_pMulDy2Sum, &m_pFusionDx2Sum, &m_pFusionDy2Sum}) {
    sums->reset();
  }
  for (SharedCounts* counts : {&m_pFusionCount, &m_pMulCount, &m_pDiffCount}) counts->reset();
}
