#pragma once

#include <cstdint>

#include "quality/image.h"

namespace quality {

/// Angles between the spectra of two images, summed.
class FUSION_API AngleSums {
 public:
  void Add(const Image& truth, const Image& fused);
  /// See quality::Sam.
  double Degrees() const;

 private:
  double m_sum = 0.0;
  std::int64_t m_count = 0;
};

/// Spectral angle: the mean over the pixels of arccos(<t, f> / (|t| |f|)) of both spectra t and f, the vectors of a
/// pixel's values in all bands. In degrees, 0 to 180, 0 is best; another brightness does not change it. A pixel that is
/// 0 in all bands of either image has no direction and does not count.
///
/// R. H. Yuhas, A. F. H. Goetz, J. W. Boardman, Discrimination among semi-arid landscape endmembers using the spectral
/// angle mapper (SAM) algorithm, JPL Airborne Geoscience Workshop 1992.
FUSION_API double Sam(const Image& truth, const Image& fused);

}  // namespace quality
