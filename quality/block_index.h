#pragma once

#include "quality/image.h"

namespace quality {

/// The universal image quality index (quality::Uiqi) of two bands in blocks, for measures that compare the index of one
/// pair of bands with that of another: the mean over the pixels of the index of their block, with the pixels of the
/// block that count.
class FUSION_API BlockIndexSums {
 public:
  /// @param size of a block, in pixels
  explicit BlockIndexSums(int size = 32) : m_size(size) {}

  /// A band of each of two images, counted from 0.
  void Add(const Image& first, std::size_t firstBand, const Image& second, std::size_t secondBand);
  double Value() const;

 private:
  int m_size;
  double m_sum = 0.0;
  double m_weight = 0.0;
};

}  // namespace quality
