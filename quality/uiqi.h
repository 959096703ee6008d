#pragma once

#include <cstdint>

#include "quality/image.h"

namespace quality {

/// Indices of all windows of 8 x 8 pixels, summed over the bands.
class FUSION_API UiqiSums {
 public:
  static constexpr int kWindow = 8;  ///< pixels

  void Add(const Image& truth, const Image& fused);
  /// See quality::Uiqi.
  double Value() const;

 private:
  /// @param middle what was taken from all values
  void AddBand(const std::vector<double>& truth, const std::vector<double>& fused, double middle, int width, int height,
               const std::vector<unsigned char>& whole);

  double m_sum = 0.0;
  std::int64_t m_count = 0;
};

/// Universal image quality index: the mean over the bands and over all windows of 8 x 8 pixels that count wholly of
/// [2 cov(t, f) / (var(t) + var(f))] x [2 mean(t) mean(f) / (mean(t)^2 + mean(f)^2)], where a factor 0 / 0 is 1. -1 to
/// 1, 1 is best; NaN where no window counts wholly.
///
/// Z. Wang, A. C. Bovik, A universal image quality index, IEEE Signal Processing Letters 9(3), 2002.
FUSION_API double Uiqi(const Image& truth, const Image& fused);

}  // namespace quality
