#pragma once

#include <functional>
#include <string>

#include "platform/raster/raster_types.h"
#include "platform/statistics/band_figures.h"
#include "platform/statistics/survey.h"
#include "platform/system/workers.h"

namespace platform {

/// A band of a file that is not written, FilteredBand's or one of MixedBands'.
struct UnwrittenBand {
  int width;
  int height;
  /// As CRasterBand::ReadSamples, but answers whether it succeeded.
  std::function<bool(const CRect& rect, double* values, bool& gaps)> read;
  Survey* survey = nullptr;  ///< that a pass over it is of; null: none
  std::string name = {};     ///< of the pass
};

/// Adds what CRasterBand::ComputeStatics would add of the file, a GeoTIFF of 32-bit floats, to the bit. False after a
/// failed read, and where it shall not go on. Nothing is added where the pass of a survey is pending.
/// @param ahead whether to read on a thread of its own
/// @param workers who share the values out among them; null: the caller alone
/// @param goesOn told how many of how many windows are done
bool Measure(const UnwrittenBand& band, bool ahead, Workers* workers,
             const std::function<bool(std::int64_t done, std::int64_t count)>& goesOn, BandFigures& figures);

}  // namespace platform
