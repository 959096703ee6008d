#pragma once

#include "evaluation/fusion_evaluate.h"

/// Information entropies from 256-bin histograms (Shannon, A mathematical theory of communication, 1948), in nats.
class FUSION_API CEntropyEvaluate : public CFusionEvaluate {
 public:
  explicit CEntropyEvaluate(FusionEvaluateParam* param);
  ~CEntropyEvaluate() override;
  CEntropyEvaluate(const CEntropyEvaluate&);
  CEntropyEvaluate& operator=(const CEntropyEvaluate&);

  GISError Preproccess() override;
  void FusionEvaluate(double* panBuf, CRect* panRect, double** mulBufs, int mulCount, CRect* mulRect,
                      double** fusionBufs, int fusionCount, CRect* blockRect) override;
  bool IsFinished(int step) override;
  void EndProccess() override;

  SharedArray m_pEntropy;           ///< 2 n entries: multispectral bands, then fused bands
  SharedArray m_pRelativeEntropy;   ///< sum of f ln(f / m) (Kullback and Leibler, 1951)
  SharedArray m_pDeviationEntropy;  ///< sum of -m ln(1 - (f - m)^2)
  SharedArray m_pJointEntropy;      ///< sum of -ln(f m q), q of the pan image

 protected:
  SharedCounts m_pPanHist;
  SharedCounts m_pMulHist;     ///< 256 counts for each band, band after band
  SharedCounts m_pFusionHist;  ///< likewise

 private:
  FusionEvaluateParam m_entropyParam;
};
