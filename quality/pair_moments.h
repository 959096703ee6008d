#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace quality {

/// Means, variances and covariance of values in pairs.
struct PairMoments {
  double meanA = 0.0;
  double meanB = 0.0;
  double varianceA = 0.0;
  double varianceB = 0.0;
  double covariance = 0.0;
};

/// What cancels out to less than the rounding of its terms is nothing.
inline constexpr double kNothing = 1e-12;

/// 4 cov mean_a mean_b / ((var_a + var_b) (mean_a^2 + mean_b^2)), where a factor 0 / 0 is 1.
inline double QualityIndex(const PairMoments& m) {
  const double squares = m.meanA * m.meanA + m.meanB * m.meanB;
  const double variances = m.varianceA + m.varianceB;
  const double structure = variances <= kNothing * squares ? 1.0 : 2.0 * m.covariance / variances;
  const double luminance = squares == 0.0 ? 1.0 : 2.0 * m.meanA * m.meanB / squares;
  return structure * luminance;
}

/// A part of an image; right and bottom are exclusive.
struct Block {
  int left;
  int top;
  int right;
  int bottom;
};

/// Calls visit for the blocks of size x size from the upper left corner on; those at the right and at the bottom are
/// cut.
template <typename Visit>
void ForEachBlock(int width, int height, int size, const Visit& visit) {
  for (int top = 0; top < height; top += size) {
    for (int left = 0; left < width; left += size) {
      visit(Block{left, top, std::min(left + size, width), std::min(top + size, height)});
    }
  }
}

/// The pixels of a block that count.
inline std::vector<std::size_t> PixelsOf(const Block& block, int width, const std::vector<unsigned char>& counts) {
  std::vector<std::size_t> pixels;
  pixels.reserve(static_cast<std::size_t>(block.right - block.left) *
                 static_cast<std::size_t>(block.bottom - block.top));
  for (int y = block.top; y < block.bottom; ++y) {
    for (int x = block.left; x < block.right; ++x) {
      const std::size_t i = static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x);
      if (counts.empty() || counts[i] != 0) pixels.push_back(i);
    }
  }
  return pixels;
}

}  // namespace quality
