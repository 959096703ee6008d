#pragma once

#include <vector>

#include "platform/raster/raster_types.h"
#include "platform/system/export.h"

namespace fusion {

/// The moments that a run is to bring each band of its result to.
struct MatchTargets {
  std::vector<double> means;  ///< one per output band
  std::vector<double> stdDevs;
  bool makeGreen = false;  ///< mix near infrared into green first
};

/// The float type that a result is to be computed in before it is matched: nothing is cut or rounded then that an
/// output of the given type could show.
FUSION_API PixelDataType TypeToMatch(PixelDataType outType);

}  // namespace fusion
