#pragma once

#include <cstdint>

#include "platform/raster/raster_types.h"

class GDALDataset;
class GDALRasterBand;

namespace platform {

/// A dataset's alpha band; null where there is none. A look at every band.
GDALRasterBand* AlphaBand(GDALDataset* dataset);
/// The band that says by 0 which samples of another one are not valid: the dataset's or the band's mask, else the
/// dataset's alpha band; null where there is none. Declared no-data values are none of its business.
GDALRasterBand* ValidityBand(GDALRasterBand& band, GDALRasterBand* alpha);

/// Puts NaN in the place of a no-data value (NaN: none) and of infinities. True where any of the values is NaN then.
bool ClearNoData(double noData, double* values, std::int64_t count);

/// Puts NaN in the place of what the validity band leaves out, in the samples of a rectangle just read from another
/// band, and sets gaps where there is any. False after a failed read of the validity band.
bool ClearMasked(GDALRasterBand& validity, const CRect& rect, double* values, bool& gaps);

}  // namespace platform
