#pragma once

#include <algorithm>
#include <cstdint>

#include "platform/raster/raster_band.h"

namespace platform {

/// The windows in which a whole raster is read, row by row of them. Counted in 64 bits: where sides go up to the
/// largest int, the sum of two of them does not fit one.
struct WindowGrid {
  std::int64_t width;
  std::int64_t height;
  CRect step;  ///< the size of a window, as a rectangle from 0, 0

  std::int64_t Across() const { return (width + step.right - 1) / step.right; }
  std::int64_t Down() const { return (height + step.bottom - 1) / step.bottom; }
  std::int64_t Count() const { return Across() * Down(); }
  CRect At(std::int64_t i) const {
    const std::int64_t left = i % Across() * step.right;
    const std::int64_t top = i / Across() * step.bottom;
    return {static_cast<std::int32_t>(left), static_cast<std::int32_t>(top),
            static_cast<std::int32_t>(std::min(left + step.right, width)),
            static_cast<std::int32_t>(std::min(top + step.bottom, height))};
  }
};

/// Windows of whole blocks of a file, so that none is decoded twice, and of whole rows where a row of blocks fits the
/// given number of values.
inline WindowGrid ReadWindows(std::int64_t width, std::int64_t height, std::int64_t blockWidth,
                              std::int64_t blockHeight, std::int64_t mostValues) {
  blockWidth = std::clamp<std::int64_t>(blockWidth, 1, width);
  blockHeight = std::clamp<std::int64_t>(blockHeight, 1, height);
  std::int64_t columns = width;
  std::int64_t rows = mostValues / width;
  if (rows >= blockHeight) {
    rows -= rows % blockHeight;
  } else if (blockWidth < width && mostValues / blockHeight >= blockWidth) {
    rows = blockHeight;
    columns = mostValues / rows;
    columns -= columns % blockWidth;
  }
  return {width, height,
          CRect(0, 0, static_cast<std::int32_t>(columns),
                static_cast<std::int32_t>(std::clamp<std::int64_t>(rows, 1, height)))};
}

/// Rows in a strip of a GeoTIFF that CRasterSource creates: as many as fit 8 KB.
inline int StripRows(int width, int height, int pixelSize) {
  constexpr std::int64_t kStripBytes = 8192;
  const std::int64_t rows = kStripBytes / (std::int64_t{width} * pixelSize);
  return static_cast<int>(std::clamp<std::int64_t>(rows, 1, height));
}

/// Windows of a band's own blocks.
inline WindowGrid ReadWindows(const CRasterBand& band, std::int64_t mostValues) {
  return ReadWindows(band.GetWidth(), band.GetHeight(), band.GetBlockXSize(), band.GetBlockYSize(), mostValues);
}

}  // namespace platform
