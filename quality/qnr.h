#pragma once

#include <vector>

#include "quality/block_index.h"
#include "quality/q2n.h"

namespace quality {

/// What is measured of a fused image without a truth: on one scale the fused image and pan, on the other the
/// multispectral image and pan brought to its pixels.
///
/// L. Alparone and others, Multispectral and panchromatic data fusion assessment without reference, Photogrammetric
/// Engineering and Remote Sensing 74(2), 2008.
class FUSION_API NoReferenceSums {
 public:
  /// @param ratio multispectral over pan pixel width. Blocks are 32 pan pixels wide, or as many as 8 multispectral
  ///     pixels are, and cover the same ground on both scales.
  explicit NoReferenceSums(int ratio);

  /// @param pan one band, of the size of fused
  /// @param low pan on the multispectral pixels, one band, of the size of ms
  void Add(const Image& pan, const Image& fused, const Image& low, const Image& ms);
  /// Spectral distortion: the mean over all pairs of bands of |Q(fused_b, fused_c) - Q(ms_b, ms_c)|, with Q as in
  /// BlockIndexSums. 0 to 2, 0 is best.
  double DLambda() const;
  /// Spatial distortion: the mean over the bands of |Q(fused_b, pan) - Q(ms_b, low)|. 0 to 2, 0 is best.
  double DS() const;
  /// Quality without a reference: (1 - DLambda) (1 - DS). 1 is best.
  double Qnr() const;

 private:
  struct Pair {
    BlockIndexSums fine;
    BlockIndexSums coarse;
  };
  static double MeanDifference(const std::vector<Pair>& pairs);
  static void Grow(std::vector<Pair>& pairs, std::size_t count, int fine, int coarse);

  int m_fine;
  int m_coarse;
  std::vector<Pair> m_spectral;
  std::vector<Pair> m_spatial;
};

/// Spectral distortion by consistency: 1 - Q2n of the multispectral image and of the fused image brought to its pixels
/// by the sensor's low-pass. 0 to 1, 0 is best.
///
/// M. M. Khan, L. Alparone, J. Chanussot, Pansharpening quality assessment using the modulation transfer functions of
/// instruments, IEEE Transactions on Geoscience and Remote Sensing 47(11), 2009.
FUSION_API double KhanDLambda(const Image& ms, const Image& fusedLow);

/// Hybrid quality without a reference: (1 - KhanDLambda) (1 - DS). 1 is best.
///
/// B. Aiazzi and others, Full scale assessment of pansharpening methods and data products, SPIE 9244, 2014.
FUSION_API double HybridQnr(double khanDLambda, double dS);

}  // namespace quality
