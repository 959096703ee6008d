#pragma once

#include "quality/image.h"

namespace quality {

/// Q2n of the blocks of two images, summed.
class FUSION_API Q2nSums {
 public:
  static constexpr int kBlock = 32;  ///< pixels

  void Add(const Image& truth, const Image& fused);
  /// See quality::Q2n.
  double Value() const;

 private:
  double m_sum = 0.0;
  double m_weight = 0.0;
};

/// Hypercomplex quality index: a pixel's values in all bands are the parts of one hypercomplex number, of 2, 4, 8 and
/// so on parts (as many as there are bands, or with zeros up to the next power of two; Q4 for three and four bands).
/// With the means t and f of both images in a block of 32 x 32 pixels, their variances, the sums of those of all parts,
/// and the covariance E[T F*] - t f*, F* the conjugate, by Cayley and Dickson's product (a, b)(c, d) = (a c - d* b, d a
/// + b c*): |cov| / (sd_t sd_f) x 2 sd_t sd_f / (var_t + var_f) x 2 |t| |f| / (|t|^2 + |f|^2), where a factor 0 / 0
/// is 1. The mean over the pixels of their block's index, with the pixels of the block that count (blocks at the right
/// and at the bottom are cut). 0 to 1, 1 is best; of one band the absolute value of quality::Uiqi's formula.
///
/// A. Garzelli, F. Nencini, Hypercomplex quality assessment of multi/hyperspectral images, IEEE Geoscience and Remote
/// Sensing Letters 6(4), 2009; for four bands L. Alparone and others, A global quality measurement of pan-sharpened
/// multispectral imagery, the same 1(4), 2004.
FUSION_API double Q2n(const Image& truth, const Image& fused);

}  // namespace quality
