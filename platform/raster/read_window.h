#pragma once

#include <algorithm>
#include <cstdint>

#include "platform/raster/raster_band.h"

namespace platform {

/// The size (as a rectangle from 0, 0) of the windows in which a whole band is read: whole native blocks, so that none
/// is decoded twice, and whole rows where a row of blocks fits the given number of values.
inline CRect ReadWindow(const CRasterBand& band, std::int64_t mostValues) {
  const std::int64_t width = band.GetWidth();
  const std::int64_t height = band.GetHeight();
  const std::int64_t blockWidth = std::clamp<std::int64_t>(band.GetBlockXSize(), 1, width);
  const std::int64_t blockHeight = std::clamp<std::int64_t>(band.GetBlockYSize(), 1, height);
  std::int64_t columns = width;
  std::int64_t rows = mostValues / width;
  if (rows >= blockHeight) {
    rows -= rows % blockHeight;
  } else if (blockWidth < width && mostValues / blockHeight >= blockWidth) {
    rows = blockHeight;
    columns = mostValues / rows;
    columns -= columns % blockWidth;
  }
  return {0, 0, static_cast<std::int32_t>(columns),
          static_cast<std::int32_t>(std::clamp<std::int64_t>(rows, 1, height))};
}

}  // namespace platform
