#include "platform/system/files.h"

#ifdef _WIN32
#include <windows.h>

#include <string>
#else
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#endif

namespace platform {

#ifdef _WIN32

std::error_code RenameFresh(const std::filesystem::path& from, const std::filesystem::path& to) {
  if (MoveFileExW(from.c_str(), to.c_str(), 0)) return {};
  const DWORD error = GetLastError();
  if (error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS) return std::make_error_code(std::errc::file_exists);
  return {static_cast<int>(error), std::system_category()};
}

// The standard library there lists no folder whose path is long.
void RemoveTree(const std::filesystem::path& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return;
  if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
    ::DeleteFileW(path.c_str());
    return;
  }
  WIN32_FIND_DATAW entry{};
  const bool isLink = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  const HANDLE search = isLink ? INVALID_HANDLE_VALUE : FindFirstFileW((path / L"*").c_str(), &entry);
  if (search != INVALID_HANDLE_VALUE) {
    do {
      const std::wstring name = entry.cFileName;
      if (name != L"." && name != L"..") RemoveTree(path / name);
    } while (FindNextFileW(search, &entry));
    FindClose(search);
  }
  RemoveDirectoryW(path.c_str());
}

bool IsOwnFile(const std::filesystem::path& /*path*/) { return true; }
bool IsTrustedLink(const std::filesystem::path& /*link*/) { return true; }

FolderLock::FolderLock(const std::filesystem::path& folder) {
  // Folders cannot be locked there; a name made of theirs can.
  std::error_code error;
  std::filesystem::path place = std::filesystem::canonical(folder, error);
  if (error) place = folder;
  std::wstring name = place.wstring();
  CharLowerBuffW(name.data(), static_cast<DWORD>(name.size()));
  std::uint64_t hash = 14695981039346656037U;
  for (const wchar_t c : name) hash = (hash ^ c) * 1099511628211U;
  const HANDLE lock = CreateMutexW(nullptr, FALSE, (L"Global\\fusion~" + std::to_wstring(hash)).c_str());
  if (!lock) return;
  WaitForSingleObject(lock, INFINITE);
  m_lock = reinterpret_cast<std::intptr_t>(lock);
}

FolderLock::~FolderLock() {
  if (m_lock == kNone) return;
  const auto lock = reinterpret_cast<HANDLE>(m_lock);
  ReleaseMutex(lock);
  CloseHandle(lock);
}

#else

std::error_code RenameFresh(const std::filesystem::path& from, const std::filesystem::path& to) {
  const auto failure = [] { return std::error_code(errno, std::generic_category()); };
#ifdef RENAME_NOREPLACE
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return {};
  if (errno != EINVAL && errno != ENOSYS) return failure();
#endif
  // A second name is refused where the first exists, too.
  if (link(from.c_str(), to.c_str()) == 0) return unlink(from.c_str()) == 0 ? std::error_code() : failure();
  if (errno == EEXIST || errno == ENOENT) return failure();
  // A file system without either.
  std::error_code error;
  if (std::filesystem::exists(std::filesystem::symlink_status(to, error))) {
    return std::make_error_code(std::errc::file_exists);
  }
  std::filesystem::rename(from, to, error);
  return error;
}

void RemoveTree(const std::filesystem::path& path) {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}

bool IsOwnFile(const std::filesystem::path& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && status.st_uid == geteuid();
}

bool IsTrustedLink(const std::filesystem::path& link) {
  struct stat of {};
  struct stat folder {};
  const std::filesystem::path parent = link.parent_path();
  if (lstat(link.c_str(), &of) != 0 || stat(parent.empty() ? "." : parent.c_str(), &folder) != 0) return false;
  const bool everybodys = (folder.st_mode & S_ISVTX) != 0 && (folder.st_mode & S_IWOTH) != 0;
  return !everybodys || of.st_uid == geteuid() || of.st_uid == folder.st_uid;
}

FolderLock::FolderLock(const std::filesystem::path& folder) {
  const int file = open(folder.c_str(), O_RDONLY | O_CLOEXEC);
  while (file >= 0 && flock(file, LOCK_EX) != 0 && errno == EINTR) {
  }
  m_lock = file;
}

FolderLock::~FolderLock() {
  if (m_lock != kNone) close(static_cast<int>(m_lock));
}

#endif

}  // namespace platform
