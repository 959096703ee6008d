#pragma once

#include "platform/raster/raster_band.h"

namespace fusion {

/// Whether a band's figures are missing though it has valid pixels: they could not be read. A band without a valid
/// pixel has none either, which ends no run.
inline bool IsUnread(bool measured, CRasterBand& band) { return !measured && band.HasValidPixel(); }

}  // namespace fusion
