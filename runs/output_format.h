#pragma once

#include <string>
#include <vector>

#include "platform/raster/raster_types.h"
#include "runs/methods.h"

namespace fusion {

/// The format to write: the one named, or that of OUT's extension; GeoTIFF for an extension that no format has. Throws
/// a usage error for an unknown name, and for an OUT that would pass for a file of another kind.
RasterDataFormat ChooseFormat(const std::string& out, const std::string& name);

/// The creation options of the format's driver, with that of a compression unless its name is empty. Throws a usage
/// error, in GDAL's words where it has some, for what the driver does not take.
std::vector<std::string> CreationOptions(RasterDataFormat format, std::vector<std::string> options,
                                         const std::string& compress);

/// Throws a usage error, which says what to do, where the format does not hold so many bands of the type.
void CheckFormatHolds(RasterDataFormat format, PixelDataType type, int bandCount, const Method& method);

}  // namespace fusion
