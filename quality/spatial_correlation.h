#pragma once

#include <cstdint>

#include "quality/image.h"

namespace quality {

/// Sums for the correlation of two images' detail.
class FUSION_API DetailSums {
 public:
  void Add(const Image& truth, const Image& fused);
  /// See quality::SpatialCorrelation.
  double Correlation() const;

 private:
  struct Band {
    double truth = 0.0;
    double fused = 0.0;
    double truthSquare = 0.0;
    double fusedSquare = 0.0;
    double product = 0.0;
  };
  std::vector<Band> m_bands;
  std::int64_t m_count = 0;
};

/// Correlation of the detail: the mean over the bands of the correlation coefficient of both images after the filter
/// 8 z - (sum of the eight neighbours of z), over the pixels that count with all eight neighbours. -1 to 1, 1 is best;
/// a band times a positive number, or plus any number, keeps it. A band without detail in either image has none and
/// makes it NaN.
///
/// J. Zhou, D. L. Civco, J. A. Silander, A wavelet transform method to merge Landsat TM and SPOT panchromatic data,
/// International Journal of Remote Sensing 19(4), 1998.
FUSION_API double SpatialCorrelation(const Image& truth, const Image& fused);

}  // namespace quality
