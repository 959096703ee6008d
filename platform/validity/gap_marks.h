#pragma once

#include <cstddef>

#include "platform/raster/raster_types.h"

namespace platform {

/// Whether any of n values is NaN.
bool HasGap(const double* values, std::size_t n);

/// valid[i] = 1 where values[i] is a number and inside[i] is not 0 (null counts all), else 0.
void MarkValid(const double* values, const unsigned char* inside, int n, unsigned char* valid);

/// Makes 0 the mark of pixels without data in a row of converted pixels: 0 where valid[i] is 0 (null counts all pixels
/// as valid); a valid pixel that came out as 0 becomes the smallest positive value, 1 in the integer types and the
/// smallest normal number in the float types.
void StoreGaps(PixelDataType type, const unsigned char* valid, std::size_t n, void* pixels);

}  // namespace platform
