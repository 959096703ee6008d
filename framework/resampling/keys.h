#pragma once

#include <cmath>

namespace fusion {

/// The weight of a sample at a distance in cubic convolution with parameter -1 (Keys, Cubic convolution interpolation
/// for digital image processing, 1981). Without a branch, for loops that vectorise.
inline double KeysWeight(double distance) {
  const double s = std::fabs(distance);
  const double near = 1.0 - 2.0 * s * s + s * s * s;
  const double far = 4.0 - 8.0 * s + 5.0 * s * s - s * s * s;
  const double beyond = s < 2.0 ? far : 0.0;
  return s < 1.0 ? near : beyond;
}

}  // namespace fusion
