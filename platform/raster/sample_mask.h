#pragma once

#include "platform/raster/raster_types.h"

class GDALRasterBand;

namespace platform {

/// The band that says by 0 which samples of another one are not valid: the dataset's or the band's mask, else the
/// dataset's alpha band; null where there is none. Declared no-data values are none of its business.
GDALRasterBand* ValidityBand(GDALRasterBand& band);

/// Puts NaN in the place of the no-data value (NaN: none) and of what the validity band leaves out, in the samples of a
/// rectangle just read from the band. False after a failed read of the validity band.
bool ClearInvalid(GDALRasterBand& band, const CRect& rect, double noData, double* values);

}  // namespace platform
