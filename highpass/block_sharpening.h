#pragma once

#include "highpass/block_filters.h"
#include "highpass/simple_pan_sharpening_fusion.h"

namespace fusion {

/// Simple pan-sharpening from two files to one, to the bit what CSimplePanSharpeningFusionProcessAlg makes, as one run
/// over blocks: mean of pan, green mix and level adjustment work on the blocks on their way, so that there is no file
/// but the output.
class BlockSharpening : public CSimplePanSharpeningFusion {
 public:
  /// Resampling is always bicubic.
  explicit BlockSharpening(HpfFusionParam* param);

  void Process() override;

 private:
  bool OpenRasters(CRasterSource& pan, CRasterSource& ms);

  BlockFilters m_filters;
};

}  // namespace fusion
