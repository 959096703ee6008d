#pragma once

#include <cstdint>
#include <vector>

#include "platform/raster/raster_source.h"

namespace fusion {

/// Makes an empty choice of multispectral bands one of all bands; alpha is none of them where the raster masks.
void ChooseAllBands(const CRasterSource& ms, std::vector<std::int32_t>& bands);

}  // namespace fusion
