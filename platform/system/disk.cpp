#include "platform/system/disk.h"

#include <cerrno>
#include <limits>
#include <system_error>

#ifndef _WIN32
#include <sys/resource.h>
#include <unistd.h>
#endif

namespace platform {

double FreeRoom(const std::filesystem::path& folder) {
  std::error_code error;
  const std::filesystem::space_info space = std::filesystem::space(folder, error);
  // Some file systems have no capacity to tell of.
  if (error || space.capacity == 0) return std::numeric_limits<double>::infinity();
#ifndef _WIN32
  if (geteuid() == 0) return static_cast<double>(space.free);
#endif
  return static_cast<double>(space.available);
}

int LackOfRoom(const std::filesystem::path& folder, double bytes) {
  if (bytes > FreeRoom(folder)) return ENOSPC;
#ifndef _WIN32
  rlimit most{};
  if (getrlimit(RLIMIT_FSIZE, &most) == 0 && most.rlim_cur != RLIM_INFINITY &&
      bytes > static_cast<double>(most.rlim_cur)) {
    return EFBIG;
  }
#endif
  return 0;
}

bool IsLackOfRoom(int error) {
#ifdef EDQUOT
  if (error == EDQUOT) return true;
#endif
  return error == ENOSPC || error == EFBIG;
}

}  // namespace platform
