#pragma once

#include <cstdint>
#include <filesystem>
#include <system_error>

namespace platform {

/// Gives a file another name in its file system, unless that name is taken: then the error is file_exists.
std::error_code RenameFresh(const std::filesystem::path& from, const std::filesystem::path& to);

/// Removes a file, or a folder with all that lies in it, as far as that can be done; of links themselves alone.
void RemoveTree(const std::filesystem::path& path);

/// Whether a file, or the link of that name, belongs to the user whose program this is.
bool IsOwnFile(const std::filesystem::path& path);

/// Whether a link may be written through: in a folder where everybody may put one, only the user's own and those of the
/// folder's owner.
bool IsTrustedLink(const std::filesystem::path& link);

/// While it lives, another lock on the same folder waits, in whatever program and on whatever other thread. Where the
/// file system knows no locks it does nothing. Ends on the thread that made it.
class FolderLock {
 public:
  explicit FolderLock(const std::filesystem::path& folder);
  ~FolderLock();
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  static constexpr std::intptr_t kNone = -1;
  std::intptr_t m_lock = kNone;
};

}  // namespace platform
