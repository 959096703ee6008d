#pragma once

#include <optional>

#include "platform/raster/raster_source.h"

namespace fusion {

/// The rectangle, in pan pixels, around the ground that two open images share; nothing where they share none.
/// @param needsReprojection on return whether both have valid coordinate systems, which differ
std::optional<CRect> FindOverlap(const CRasterSource& pan, CRasterSource& ms, bool& needsReprojection);

}  // namespace fusion
