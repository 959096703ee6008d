#pragma once

#include "evaluation/fusion_evaluate.h"

namespace fusion {
struct BandRoom;
}

/// Means, standard deviations (population), correlation and relative deviations of each band pair, in the bands' own
/// units.
///
/// Source: bias, spread and correlation against the multispectral image as in Wald, Ranchin and Mangolini, Fusion of
/// satellite images of different spatial resolutions, Photogrammetric Engineering and Remote Sensing 63(6), 1997.
class FUSION_API CStatisticEvaluate : public CFusionEvaluate {
 public:
  explicit CStatisticEvaluate(FusionEvaluateParam* param);
  ~CStatisticEvaluate() override;
  CStatisticEvaluate(const CStatisticEvaluate&);
  CStatisticEvaluate& operator=(const CStatisticEvaluate&);

  GISError Preproccess() override;
  void FusionEvaluate(double* panBuf, CRect* panRect, double** mulBufs, int mulCount, CRect* mulRect,
                      double** fusionBufs, int fusionCount, CRect* blockRect) override;
  bool IsFinished(int step) override;
  void EndProccess() override;

  SharedArray m_pMulMean;
  SharedArray m_pFusionMean;
  SharedArray m_pMulStdDev;
  SharedArray m_pFusionStdDev;
  SharedArray m_pRelativeDeviation;  ///< mean of |(m - f) / m|
  SharedArray m_pRelativeError;      ///< sum of (f - m)^2 over the sum of f^2
  SharedArray m_pCorrelation;        ///< square root of the correlation coefficient; NaN for a negative one

 protected:
  SharedCounts m_pMulCount;
  SharedCounts m_pFusionCount;
  SharedArray m_pMulSum;
  SharedArray m_pFusionSum;
  SharedArray m_pCovSum;
  SharedCounts m_pPairCount;
  SharedCounts m_pNonZeroCount;
  SharedArray m_pFusionSquareSum;

 private:
  // Of a row, whose multispectral samples are in the room, perhaps those of the row before again.
  void AddSums(std::size_t i, const double* fused, fusion::BandRoom& room, int n, bool again);
  void AddDeviations(std::size_t i, const double* fused, fusion::BandRoom& room, int n, bool again);

  FusionEvaluateParam m_statisticParam;
};
