#pragma once

#include <memory>
#include <string>

#include "platform/raster/raster_source.h"
#include "platform/raster/virtual_raster.h"

namespace fusion {

/// Whether two images without any georeference look as if they covered the same ground: the pan size is a whole
/// multiple of the multispectral size on both axes.
bool LooksLikeSameExtent(const CRasterSource& pan, const CRasterSource& ms);

/// A view of the multispectral file that spans the pan image.
std::unique_ptr<platform::VirtualRaster> SpanPan(const CRasterSource& pan, const CRasterSource& ms,
                                                 const std::wstring& msFile);

}  // namespace fusion
