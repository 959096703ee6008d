#pragma once

#include "platform/raster/raster_source.h"

namespace fusion {

/// Which pixels of the pan image a fused image has. Throws a usage error where it has others.
CRect RectOnPan(const CRasterSource& pan, const CRasterSource& fused);

}  // namespace fusion
