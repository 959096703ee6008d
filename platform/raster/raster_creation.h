#pragma once

#include <string>

#include "platform/algorithm/string_param_parser.h"

class CBaseProgress;
class CPLStringList;
class GDALDriver;

namespace platform {

/// The caller's creation options over ours.
CPLStringList CreationOptions(const char* driver, const char* const* options);
/// Whether the samples of a new file take as much of the disk as they are large, as far as its options tell.
bool IsPlain(const CPLStringList& options);
/// Whether the driver of a copied format takes this type and number of bands: told by copying a tiny raster.
/// @param type of GDAL's
bool CanCopy(GDALDriver* driver, int width, int height, int bandCount, int type);
/// Removes a file that was kept for its name and holds nothing. Truncating a file that is there makes a file system
/// guard what it held by writing out all that replaces it when the new file is closed.
void RemoveEmptyFile(const std::wstring& path);
/// Copies a raster to a format that can only be copied. False after a failure, which leaves an older file as it was.
/// @param cancelled whether the reporter has ended it
bool CopyToFormat(const RasterFormat& format, const std::wstring& from, const std::wstring& to,
                  const CPLStringList& options, CBaseProgress* progress, bool* cancelled);

}  // namespace platform
