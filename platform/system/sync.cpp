#include "platform/system/sync.h"

#ifdef _WIN32
#include <windows.h>

#include "platform/system/failure_number.h"
#else
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#endif

namespace platform {

#ifdef _WIN32
namespace {

int LastFailure() { return FailureNumber({static_cast<int>(GetLastError()), std::system_category()}); }

}  // namespace

int SyncToDisk(const std::filesystem::path& path) {
  // Names of files are kept in the volume's own journal there.
  if (std::filesystem::is_directory(path)) return 0;
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return LastFailure();
  const int error = FlushFileBuffers(file) ? 0 : LastFailure();
  CloseHandle(file);
  return error;
}
#else
int SyncToDisk(const std::filesystem::path& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return errno;
  int error = 0;
  while (fsync(file) != 0) {
    error = errno;
    if (error != EINTR) break;
    error = 0;
  }
  close(file);
  // Some file systems have nothing to be waited for and say so.
  return error == EINVAL || error == ENOTSUP ? 0 : error;
}
#endif

}  // namespace platform
