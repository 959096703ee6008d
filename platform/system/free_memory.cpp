#include "platform/system/free_memory.h"

#include <algorithm>
#include <limits>

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/resource.h>

#include <fstream>
#include <string>
#endif

namespace platform {
namespace {

constexpr double kUnknown = std::numeric_limits<double>::infinity();

#ifndef _WIN32
/// The number behind a word of a file of the system's; without a word its first one.
double NumberIn(const char* file, const std::string& word) {
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) {
    if (line.rfind(word, 0) != 0) continue;
    try {
      return std::stod(line.substr(word.size()));
    } catch (const std::exception&) {
      // A word: no limit.
      break;
    }
  }
  return kUnknown;
}

double LeftOf(int resource, double used) {
  rlimit limit{};
  if (getrlimit(resource, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return kUnknown;
  return std::max(0.0, static_cast<double>(limit.rlim_cur) - used);
}
#endif

}  // namespace

double FreeMemory() {
#ifdef _WIN32
  MEMORYSTATUSEX status{};
  status.dwLength = sizeof status;
  if (!GlobalMemoryStatusEx(&status)) return kUnknown;
  return static_cast<double>(std::min(status.ullAvailPageFile, status.ullAvailVirtual));
#else
  constexpr double kKilobyte = 1024.0;
  double left = kKilobyte * (NumberIn("/proc/meminfo", "MemAvailable:") + NumberIn("/proc/meminfo", "SwapFree:"));
  // What a container may take in all; where it stands is not known from inside, so what it has taken is not.
  left = std::min(
      {left, NumberIn("/sys/fs/cgroup/memory.max", ""), NumberIn("/sys/fs/cgroup/memory/memory.limit_in_bytes", "")});
  const double size = NumberIn("/proc/self/status", "VmSize:") * kKilobyte;
  return std::min(left, LeftOf(RLIMIT_AS, size < kUnknown ? size : 0.0));
#endif
}

}  // namespace platform
