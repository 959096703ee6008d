#pragma once

#include <filesystem>

namespace platform {

/// Waits until what was written to a file, or a folder's names, lies on the disk. The system's number of the failure, 0
/// after success.
int SyncToDisk(const std::filesystem::path& path);

}  // namespace platform
