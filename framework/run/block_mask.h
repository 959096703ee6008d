#pragma once

#include <vector>

#include "framework/row_kernel.h"
#include "framework/run/block_set.h"

namespace fusion {

/// One byte per pixel of a block just read, row by row: 1 where pan (and detail, where there is one) has data and the
/// nearest multispectral sample has data in at least one of the chosen bands. Empty where that holds for all pixels. A
/// pixel that lies more than one sample off the multispectral image has no data there.
/// @param workers who mark rows; null: the caller alone
std::vector<unsigned char> MarkData(const BlockSet& blocks, const RowGeometry& geometry, platform::Workers* workers);

/// One byte per pixel of a block: 0 outside the area of interest, which holds the block's cache.
std::vector<unsigned char> MarkInside(CRasterAOI& area, const CRect& panRect);

}  // namespace fusion
