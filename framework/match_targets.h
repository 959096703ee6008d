#pragma once

#include <cstdint>
#include <vector>

#include "platform/raster/raster_types.h"
#include "platform/system/export.h"

namespace fusion {

/// The moments that a run is to bring each band of its result to.
struct MatchTargets {
  std::vector<double> means;  ///< one per output band
  std::vector<double> stdDevs;
  bool makeGreen = false;  ///< mix near infrared into green first
  /// The result's own moments are taken robustly: single values far beyond all others count as lying nearer.
  bool robust = false;
  /// The result's own moments are taken from rows that lie evenly in the scene, of about so many pixels; 0: from all.
  std::int64_t mostPixels = 0;
  /// The root of the result is matched (of a negative value that of its size, negative), for results that are products
  /// of two images and would be spread as such.
  bool root = false;
  /// The type that the result is computed in before it is matched; PDT_UNKNOWN for TypeToMatch's.
  PixelDataType fusedType = PDT_UNKNOWN;
};

/// The automatic level adjustment that a run is to end with.
struct LevelTargets {
  double ratio = 0.0;  ///< share of the valid pixels cut off at each end
  /// What the result, matched or not, is rounded to before; PDT_UNKNOWN for the output's type.
  PixelDataType type = PDT_UNKNOWN;
};

/// What robust moments were spared, of all bands.
struct MatchOutliers {
  std::int64_t count = 0;  ///< values that counted as lying nearer,
  std::int64_t of = 0;     ///< of so many looked at
  double widening = 1.0;   ///< by how much they would have widened a band's deviation at most, as a factor
};

/// The float type that a result is to be computed in before it is matched: nothing is cut or rounded then that an
/// output of the given type could show.
FUSION_API PixelDataType TypeToMatch(PixelDataType outType);

}  // namespace fusion
