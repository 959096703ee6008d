#pragma once

#include <functional>
#include <string>

#include "platform/raster/raster_types.h"

namespace platform {

/// kWrite is a block of samples, kStore bytes that a driver hands to a file, kRename a finished file's new name,
/// kStatistics one or several bands' figures.
enum class RasterOperation { kOpen, kCreate, kRead, kWrite, kClose, kStore, kRename, kStatistics };

/// Asked before every raster operation once set; answering true makes the operation fail as a broken disk would.
/// Programs that check their own handling of failures use it (the tests do). An empty function takes it away. Must not
/// be changed while a run is under way.
using RasterFault = std::function<bool(RasterOperation operation, const std::wstring& path, int band, const CRect&)>;
void SetRasterFault(RasterFault fault);

/// The present fault function's answer, false without one.
bool RasterFails(RasterOperation operation, const std::wstring& path, int band = -1, const CRect& rect = CRect());

}  // namespace platform
