#pragma once

#include <string>

#include "apps/exit_status.h"
#include "platform/raster/raster_source.h"

namespace app {

/// Opens an image. Throws CommandError, with the reason, where that is impossible.
void OpenInput(CRasterSource& source, const std::wstring& path);

/// A file that does not open.
/// @param reason the end of a sentence, empty where nothing is known
CommandError OpenError(const std::wstring& path, const std::wstring& reason);

}  // namespace app
