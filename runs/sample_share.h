#pragma once

#include <cstdint>
#include <functional>

#include "platform/raster/raster_source.h"

namespace fusion {

/// The share of the samples of a raster's first band that are counted.
/// @param count of so many values those that count
/// Throws RunFailure where they cannot be read.
double SampleShare(const CRasterSource& source,
                   const std::function<std::int64_t(const double* values, std::int64_t n)>& count);

}  // namespace fusion
