#pragma once

#include "framework/row_fusion.h"

/// Multiplicative fusion: every resampled multispectral band times pan, without any normalisation; usually followed by
/// spectral matching.
///
/// Source: Pohl and van Genderen, Multisensor image fusion in remote sensing, International Journal of Remote Sensing
/// 19(5), 1998 (arithmetic combinations, multiplicative method).
class FUSION_API CMultipleFusion : public CRowFusion {
 public:
  explicit CMultipleFusion(FusionParam* param);
  ~CMultipleFusion() override;
  CMultipleFusion(const CMultipleFusion&);
  CMultipleFusion& operator=(const CMultipleFusion&);

  /// Ranges of all bands, means and deviations of the multispectral ones.
  GISError Preproccess() override;
  void EndProccess() override;

 protected:
  double m_dPanMax = 255.0;
  double m_dPanMin = 0.0;
  SharedArray m_pMulMax;  ///< one per chosen band, null until Preproccess
  SharedArray m_pMulMin;
};
