#pragma once

#include <string>

#include "platform/raster/raster_source.h"
#include "runs/run_failure.h"

namespace fusion {

/// Opens an image. Throws RunFailure, with the reason, where that is impossible.
void OpenInput(CRasterSource& source, const std::wstring& path);

/// A file that does not open.
/// @param reason the end of a sentence, empty where nothing is known
RunFailure OpenError(const std::wstring& path, const std::wstring& reason);

}  // namespace fusion
