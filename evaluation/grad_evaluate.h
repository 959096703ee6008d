#pragma once

#include "evaluation/fusion_evaluate.h"

namespace fusion {
struct GradientSums;
}

/// Sharpness: mean and root-mean-square gradient (differences to the right and the lower neighbour) of each band pair,
/// and the difference between the two bands. The last column and row of each block are left out.
///
/// Source: the average gradient as work on fusion uses it, from first differences, in the bands' own units.
class FUSION_API CGradEvaluate : public CFusionEvaluate {
 public:
  explicit CGradEvaluate(FusionEvaluateParam* param);
  ~CGradEvaluate() override;
  CGradEvaluate(const CGradEvaluate&);
  CGradEvaluate& operator=(const CGradEvaluate&);

  GISError Preproccess() override;
  void FusionEvaluate(double* panBuf, CRect* panRect, double** mulBufs, int mulCount, CRect* mulRect,
                      double** fusionBufs, int fusionCount, CRect* blockRect) override;
  void GetBlockSize(int& xSize, int& ySize) override;
  bool IsFinished(int step) override;
  void EndProccess() override;

  SharedArray m_pFusionMeanGrad;
  SharedArray m_pMulMeanGrad;
  SharedArray m_pFusionRmsGrad;
  SharedArray m_pMulRmsGrad;
  SharedArray m_pMeanAbsDiff;  ///< mean of |m - f|
  SharedArray m_pDiffNorm;     ///< square root of the sum of (m - f)^2, over the number of pixels

 protected:
  SharedArray m_pAbsDiffSum;
  SharedArray m_pSquareDiffSum;
  SharedCounts m_pFusionCount;
  SharedCounts m_pMulCount;
  SharedCounts m_pDiffCount;
  SharedArray m_pMulDx2Sum;
  SharedArray m_pMulDy2Sum;
  SharedArray m_pFusionDx2Sum;
  SharedArray m_pFusionDy2Sum;

 private:
  struct RowPair;
  // These take room for which pixels of a row count.
  fusion::GradientSums MulSums(std::size_t i, const RowPair& rows, int n, std::vector<double>& valid) const;
  void AddFusionRow(std::size_t i, const RowPair& rows, int n, std::vector<double>& valid);
  void AddDifferenceRow(std::size_t i, const RowPair& rows, int n, std::vector<double>& valid);
  void AddMulRow(std::size_t i, const fusion::GradientSums& sums);

  FusionEvaluateParam m_gradParam;
};
