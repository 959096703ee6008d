#pragma once

#include <functional>

#include "platform/raster/raster_source.h"

namespace fusion {

/// The share of a raster's samples, in its first bands, of which the question is true. Throws RunFailure where they
/// cannot be read.
double SampleShare(const CRasterSource& source, int bandCount, const std::function<bool(double)>& question);

}  // namespace fusion
