#pragma once

#include <string>

namespace platform {

/// SHA-256 of a file's first 65536 bytes and, behind them, its last 65536 (of a smaller file both are all of it), base
/// 16. Files of GDAL's own file systems, too. Empty where it cannot be had.
std::string HeaderDigest(const std::wstring& path);

}  // namespace platform
