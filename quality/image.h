#pragma once

#include <cstddef>
#include <vector>

#include "platform/system/export.h"

/// Measures of fused images. Each comes as a function of whole images and as sums over parts of a scene, which give the
/// figure of the scene when all parts were added, in the same order the same bits. Images that are compared have one
/// size, and one number of bands where bands are compared in pairs; else std::invalid_argument is thrown. A pixel
/// counts where it does in all images of a comparison. What is undefined is NaN.
namespace quality {

/// Bands of one size in memory, with the pixels that count.
struct Image {
  int width = 0;                           ///< pixels
  int height = 0;                          ///< pixels
  std::vector<std::vector<double>> bands;  ///< rows one after another, in any unit; finite where a pixel counts
  std::vector<unsigned char> valid;        ///< one byte a pixel, 0 for what does not count; empty: all do

  std::size_t PixelCount() const { return static_cast<std::size_t>(width) * static_cast<std::size_t>(height); }
  bool Counts(std::size_t pixel) const { return valid.empty() || valid[pixel] != 0; }
};

/// Which pixels count in both of two images: one byte a pixel; empty: all do.
FUSION_API std::vector<unsigned char> CommonPixels(const Image& first, const Image& second);
/// Throws std::invalid_argument unless sizes, and the lengths of bands and marks, fit; numbers of bands where asked
/// for.
FUSION_API void CheckComparable(const Image& first, const Image& second, bool bandsToo);

}  // namespace quality
