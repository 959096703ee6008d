#pragma once

#include <filesystem>

namespace platform {

/// Why so many more bytes cannot be written to a file in a folder: the system's number for a full disk or for a limit
/// on the size of files. 0 where they can be, or where the system does not tell.
int LackOfRoom(const std::filesystem::path& folder, double bytes);

/// Bytes that may still be written to a folder's file system; infinite where that is not known.
double FreeRoom(const std::filesystem::path& folder);

/// Whether the system's number tells that there is no room.
bool IsLackOfRoom(int error);

}  // namespace platform
