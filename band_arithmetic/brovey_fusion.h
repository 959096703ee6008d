#pragma once

#include "framework/row_fusion.h"

/// Brovey transform: every resampled multispectral band times pan, divided by the sum of the bands; the pan value
/// shared out equally where that sum is 0 (below 1e-8).
///
/// Source: Gillespie, Kahle and Walker, Color enhancement of highly correlated images II, Remote Sensing of
/// Environment 22, 1987 (the chromaticity transform that became known under this name).
class FUSION_API CBroveyFusion : public CRowFusion {
 public:
  explicit CBroveyFusion(FusionParam* param);
  ~CBroveyFusion() override;
  CBroveyFusion(const CBroveyFusion&);
  CBroveyFusion& operator=(const CBroveyFusion&);

 protected:
  FusionParam m_broveyParam;
};
