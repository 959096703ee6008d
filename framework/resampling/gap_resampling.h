#pragma once

#include <cstdint>
#include <vector>

#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/raster_types.h"

namespace fusion {

/// One sample that a resampled value is made of.
struct Tap {
  std::int64_t column;  ///< counted from the rectangle's left edge
  std::int64_t row;     ///< and its top
  double weight;
};

/// The samples of rect that ResamplePoint takes at (x, y), with their weights: its value is the sum of weight times
/// sample. Those outside rect count as 0 there and are left out here. None for an unknown type.
void ListTaps(ResampleType type, double x, double y, const CRect& rect, std::vector<Tap>& taps);

/// The value of one band at (x, y) from its samples with data alone; NaN marks the others. That is the kernel's
/// weighted mean over the taps with data; where their weights (nearly) cancel, and where there is none, the sample with
/// data nearest to the position, at most 8 samples away, of equally near ones the first in row order; 0 where there is
/// none.
double ResampleValid(ResampleType type, double x, double y, const double* band, const CRect& rect);

}  // namespace fusion
