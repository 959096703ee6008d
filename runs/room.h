#pragma once

#include <cstdint>

#include "platform/raster/raster_types.h"
#include "runs/fuse.h"

namespace fusion {

/// Of which blocks have no more, in runs: enough to keep threads busy.
inline constexpr std::int64_t kMostBlockPixels = std::int64_t{1} << 21;

// What a run over an area of pan pixels takes at least, told before it begins: a small file may declare any size. They
// throw a RunFailure with both figures where there is less.

void CheckMemory(const CRect& area, int bands, PixelDataType type);
/// Does nothing where options, or an area of interest, decide how large the file becomes.
void CheckDisk(const CRect& area, int bands, PixelDataType type, const FuseRequest& request);

}  // namespace fusion
