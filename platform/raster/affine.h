#pragma once

#include "platform/system/export.h"

namespace platform {

/// An affine map in GDAL's order of terms: x' = t0 + x t1 + y t2, y' = t3 + x t4 + y t5.
struct Affine {
  double t[6] = {0.0, 1.0, 0.0, 0.0, 0.0, 1.0};

  double X(double x, double y) const { return t[0] + x * t[1] + y * t[2]; }
  double Y(double x, double y) const { return t[3] + x * t[4] + y * t[5]; }
  /// True where x' depends on x alone and y' on y alone.
  bool IsAxisAligned() const { return t[2] == 0.0 && t[4] == 0.0; }
};

/// From a corner-based pixel coordinate to the sample coordinate that the resampling kernels expect: a whole number is
/// a pixel centre; on the image, or at most one pixel outside it, clamped to its samples; NaN and far positions -1e9.
/// @param edge samples around the image that are to belong to it
inline double SampleCoordinate(double corner, int size, int edge = 0) {
  double sample = corner - 0.5;
  if (corner >= -1.0 - edge && corner <= size + 1.0 + edge) {
    const double first = -edge;
    const double last = size - 1 + edge;
    sample = sample < first ? first : sample;
    sample = sample > last ? last : sample;
  }
  constexpr double kFar = 1073741824.0;
  return sample >= -kFar && sample <= kFar ? sample : -1e9;
}

}  // namespace platform
