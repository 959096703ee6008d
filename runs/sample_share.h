#pragma once

#include <cstdint>
#include <functional>
#include <limits>

#include "platform/raster/raster_source.h"

namespace fusion {

/// The share of a raster's samples, in its first bands, that are counted.
/// @param count of so many values those that count
/// @param mostRows of a higher raster so many rows, from everywhere in it, stand for all
/// Throws RunFailure where they cannot be read.
double SampleShare(const CRasterSource& source, int bandCount,
                   const std::function<std::int64_t(const double* values, std::int64_t n)>& count,
                   int mostRows = std::numeric_limits<int>::max());

}  // namespace fusion
