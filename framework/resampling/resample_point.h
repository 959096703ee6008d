#pragma once

#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/raster_types.h"

namespace fusion {

/// The definition of resampling, point by point: one value per band at (x, y) in sample coordinates of the image, from
/// band buffers that hold rect. Samples before or behind a buffer count as 0. Kernels fall back to simpler ones where
/// their neighbourhood does not fit. An unknown type leaves out untouched.
void ResamplePoint(ResampleType type, double x, double y, const double* const* bands, int bandCount, const CRect& rect,
                   double* out);

}  // namespace fusion
