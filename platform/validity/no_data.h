#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_band.h"

namespace platform {

/// A band's no-data value as its samples carry it when read as doubles (those of a float band hold a float exactly);
/// NaN where the band declares none.
inline double NoDataSample(const CRasterBand& band) { return band.GetNoDataRule().AsRead(); }

/// A finite number other than the no-data value. Written without a branch, for loops that vectorise.
inline bool IsValidSample(double value, double noData) {
  // The difference of an infinity with itself is a NaN.
  return (value - value == 0.0) & (value != noData);
}

/// Whether samples of a type can have a value. A float type rounds what it holds.
inline bool IsRepresentable(double value, PixelDataType type) {
  return DispatchPixelType(type, [value](auto element) {
    using Limits = std::numeric_limits<decltype(element)>;
    const bool outside = value < static_cast<double>(Limits::lowest()) || value > static_cast<double>(Limits::max());
    return !outside && (!Limits::is_integer || value == std::trunc(value));
  });
}

/// Makes every sample that is not valid a NaN, which spreads to whatever is computed from it.
void MarkInvalid(double* values, std::int64_t count, double noData);

}  // namespace platform
