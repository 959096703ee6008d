#pragma once

#include <cstdint>
#include <vector>

#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/raster_types.h"
#include "platform/system/workers.h"

namespace fusion {

/// Of the sixteen samples around each sample of a rectangle, from the one before it on both axes to the two behind it;
/// before the first one limits that limit nothing.
struct SampleLimits {
  std::vector<double> least;
  std::vector<double> most;
};

/// Keeps values that the bicubic kernel has made between the least and the largest of the samples it has made them
/// from, beyond which it swings beside sharp edges. Made once for a block, for all its rows.
class SampleRange {
 public:
  /// @param bands samples of rect; those that are NaN are none
  /// @param workers who share the bands; null: the caller alone
  SampleRange(const double* const* bands, int bandCount, const CRect& rect, platform::Workers* workers = nullptr);

  /// Whether a kernel makes values beyond its samples at all.
  static bool IsNeededBy(ResampleType type);

  /// Cuts one row of values per band at count positions. Values at positions off the rectangle are left alone.
  void Keep(const double* x, const double* y, int count, double* const* values) const;

 private:
  CRect m_rect;
  std::vector<SampleLimits> m_bands;
};

}  // namespace fusion
