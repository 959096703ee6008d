#pragma once

#include <cstdint>
#include <vector>

#include "quality/image.h"

namespace quality {

/// Differences of a fused image from its truth, band by band.
class FUSION_API ErrorSums {
 public:
  void Add(const Image& truth, const Image& fused);

  /// Pixels that count.
  std::int64_t Count() const { return m_count; }
  /// Root mean square error of each band, sqrt(mean((fused - truth)^2)); 0 and more, 0 is best; the bands' unit.
  std::vector<double> Rmse() const;
  /// Shift of each band's mean, (mean(fused) - mean(truth)) / mean(truth); 0 is best; a share.
  std::vector<double> Bias() const;
  /// See quality::Ergas.
  double Ergas(double ratio) const;

 private:
  struct Band {
    double truth = 0.0;
    double difference = 0.0;
    double square = 0.0;
  };
  std::vector<Band> m_bands;
  std::int64_t m_count = 0;
};

/// Relative global error: 100 / ratio x sqrt(mean over the bands of (RMSE_b / mean of truth_b)^2). 0 and more, 0 is
/// best. An image of all values times c has 100 / ratio x |c - 1| x sqrt(mean of mean(truth_b^2) / mean(truth_b)^2).
///
/// L. Wald, Quality of high resolution synthesised images: is there a simple criterion?, Fusion of Earth Data 2000.
/// @param ratio multispectral over pan pixel width
FUSION_API double Ergas(const Image& truth, const Image& fused, double ratio);
/// ErrorSums::Rmse of two images.
FUSION_API std::vector<double> Rmse(const Image& truth, const Image& fused);
/// ErrorSums::Bias of two images.
FUSION_API std::vector<double> Bias(const Image& truth, const Image& fused);

}  // namespace quality
