#pragma once

#include <cmath>
#include <cstdint>

#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/raster_types.h"

namespace fusion {

/// Where one axis of a position lies, for each kernel's neighbourhood test.
bool BicubicFitsColumn(double x, const CRect& rect);
bool BicubicFitsRow(double y, const CRect& rect);
bool BilinearFitsColumn(double x, const CRect& rect);
bool BilinearFitsRow(double y, const CRect& rect);

/// Cubic convolution with parameter -1 (Keys, Cubic convolution interpolation for digital image processing, 1981).
/// Without a branch, for loops that vectorise.
inline double CubicWeight(double t) {
  const double s = std::fabs(t);
  const double near = 1.0 - 2.0 * s * s + s * s * s;
  const double far = 4.0 - 8.0 * s + 5.0 * s * s - s * s * s;
  const double beyond = s < 2.0 ? far : 0.0;
  return s < 1.0 ? near : beyond;
}

/// The taps of one axis: the first sample, relative to the rectangle, and a weight for each that follows.
struct NearestTap {
  std::int64_t index;
};
struct LinearTaps {
  std::int64_t first;   ///< sample left of (above) the position
  std::int64_t second;  ///< sample right of (below) it
  double toFirst;       ///< distance to the first, the weight of the second
  double toSecond;      ///< distance to the second, the weight of the first
};
struct CubicTaps {
  std::int64_t first;
  double weight[4];
};
/// @param origin first sample of the rectangle on that axis
/// @param size its number of samples
NearestTap MakeNearestTap(double position, int origin, int size);
LinearTaps MakeLinearTaps(double position, int origin);
CubicTaps MakeCubicTaps(double position, int origin);

/// The definition of resampling, point by point: one value per band at (x, y) in sample coordinates of the image, from
/// band buffers that hold rect. Samples before or behind a buffer count as 0. Kernels fall back to simpler ones where
/// their neighbourhood does not fit. An unknown type leaves out untouched.
void ResamplePoint(ResampleType type, double x, double y, const double* const* bands, int bandCount, const CRect& rect,
                   double* out);

}  // namespace fusion
