#pragma once

#include "evaluation/fusion_evaluate.h"

namespace fusion {
struct BandRoom;
}

/// Signal-to-noise and peak signal-to-noise ratio of each band pair; the multispectral band is the signal, its
/// difference to the fused band the noise. Natural logarithms; the peak term is the range. Without a reprojection the
/// sums hold the last valid pixel of the run.
///
/// Source: the mean-square signal-to-noise ratio of Gonzalez and Woods, Digital Image Processing.
class FUSION_API CSNREvaluate : public CFusionEvaluate {
 public:
  explicit CSNREvaluate(FusionEvaluateParam* param);
  ~CSNREvaluate() override;
  CSNREvaluate(const CSNREvaluate&);
  CSNREvaluate& operator=(const CSNREvaluate&);

  GISError Preproccess() override;
  void FusionEvaluate(double* panBuf, CRect* panRect, double** mulBufs, int mulCount, CRect* mulRect,
                      double** fusionBufs, int fusionCount, CRect* blockRect) override;
  bool IsFinished(int step) override;
  void EndProccess() override;

  SharedArray m_pSNR;   ///< 10 ln(signal / noise); the largest double without noise
  SharedArray m_pPSNR;  ///< 10 ln(range x pixels / noise); the smallest normal double without noise

 protected:
  SharedArray m_pSignalSum;
  SharedCounts m_pPairCount;
  SharedArray m_pNoiseSum;

 private:
  void AddRow(std::size_t i, const double* fused, const fusion::BandRoom& room, int n);

  FusionEvaluateParam m_snrParam;
};
