#include "evaluation/grad_evaluate.h"

#include <algorithm>
#include <cmath>

#include "evaluation/band_shares.h"
#include "evaluation/row_sums.h"

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
  const auto take = [&](fusion::BandRoom& room, int band, const fusion::SharedRows& shared) {
    const auto i = static_cast<std::size_t>(band);
    // A row's samples serve it and the row above.
    std::vector<double> below(room.ms.size());
    shared.Gather(mulBufs[i], shared.top, room.ms.data());
    fusion::GradientSums msSums;
    bool repeats = false;
    for (int y = shared.top; y < std::min(shared.bottom, blockRect->bottom - 1); ++y) {
      const bool goesOn = shared.Repeats(y + 1);
      if (!goesOn) shared.Gather(mulBufs[i], y + 1, below.data());
      const double* fused = fusionBufs[i] + static_cast<std::ptrdiff_t>(y - blockRect->top) * width;
      const RowPair rows{room.ms.data(), (goesOn ? room.ms : below).data(), fused, fused + width};
      // Within three rows of the same samples the gradients are those of the row before.
      if (!repeats || !goesOn) msSums = MulSums(i, rows, width - 1, room.valid);
      AddMulRow(i, msSums);
      AddFusionRow(i, rows, width - 1, room.valid);
      AddDifferenceRow(i, rows, width - 1, room.valid);
      repeats = goesOn;
      if (!goesOn) std::swap(room.ms, below);
    }
  };
  fusion::ForBands(m_workers.get(), fusionCount, Cells(0), *blockRect, *mulRect, take);
}

// A gradient counts where the value, its right neighbour and the one below are not no-data.

fusion::GradientSums CGradEvaluate::MulSums(std::size_t i, const RowPair& rows, int n,
                                            std::vector<double>& valid) const {
  fusion::MarkValid(rows.ms, rows.ms + 1, rows.msBelow, n, MulNoData(i), valid.data());
  return fusion::SumGradients(rows.ms, rows.msBelow, valid.data(), n);
}

void CGradEvaluate::AddMulRow(std::size_t i, const fusion::GradientSums& sums) {
  m_pMulDx2Sum[i] += sums.dx2;
  m_pMulDy2Sum[i] += sums.dy2;
  m_pMulMeanGrad[i] += sums.gradients;
  m_pMulCount[i] += static_cast<std::int64_t>(sums.count);
}

void CGradEvaluate::AddFusionRow(std::size_t i, const RowPair& rows, int n, std::vector<double>& valid) {
  // The first test is made on the multispectral value, with the fused band's no-data value.
  fusion::MarkValid(rows.ms, rows.fused + 1, rows.fusedBelow, n, FusionNoData(i), valid.data());
  // What is left out by a mask is no number, which would ruin the sums.
  if (m_param.m_bMaskNoData) fusion::DropNoData(rows.fused, n, FusionNoData(i), valid.data());
  const fusion::GradientSums sums = fusion::SumGradients(rows.fused, rows.fusedBelow, valid.data(), n);
  m_pFusionDx2Sum[i] += sums.dx2;
  m_pFusionDy2Sum[i] += sums.dy2;
  m_pFusionMeanGrad[i] += sums.gradients;
  m_pFusionCount[i] += static_cast<std::int64_t>(sums.count);
}

void CGradEvaluate::AddDifferenceRow(std::size_t i, const RowPair& rows, int n, std::vector<double>& valid) {
  fusion::MarkValid(rows.fused, n, FusionNoData(i), valid.data());
  fusion::DropNoData(rows.ms, n, MulNoData(i), valid.data());
  const fusion::DifferenceSums sums = fusion::SumDifferences(rows.fused, rows.ms, valid.data(), n);
  m_pAbsDiffSum[i] += sums.absolute;
  m_pSquareDiffSum[i] += sums.squares;
  m_pDiffCount[i] += static_cast<std::int64_t>(sums.count);
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
