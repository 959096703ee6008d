#pragma once

#include <cstdint>

#include "quality/image.h"

namespace quality {

/// Gradients of a fused image and of its pan image, summed.
class FUSION_API GradientSums {
 public:
  /// @param pan one band
  void Add(const Image& pan, const Image& fused);
  /// See quality::Sharpness.
  double Sharpness() const;

 private:
  double m_pan = 0.0;
  double m_fused = 0.0;
  std::size_t m_bands = 0;
};

/// Mean gradient of the fused bands over that of pan. The gradient of a pixel is sqrt((dx^2 + dy^2) / 2), of the
/// differences from its right and lower neighbours, and counts where all three do. 0 and more; it grows with the
/// contrast of the bands, so methods are compared by it, not scenes: 0 has no detail, and what lies far above the
/// others has noise or artefacts in its detail.
FUSION_API double Sharpness(const Image& pan, const Image& fused);

}  // namespace quality
