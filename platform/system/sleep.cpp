#include "platform/system/sleep.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <chrono>
#include <thread>
#endif

#include <mutex>
#include <utility>

namespace platform {
namespace {

std::mutex g_mutex;

std::function<void(unsigned int)>& Replacement() {
  static std::function<void(unsigned int)> replacement;
  return replacement;
}

}  // namespace

void Sleep(unsigned int milliseconds) {
  std::function<void(unsigned int)> replacement;
  {
    const std::lock_guard<std::mutex> lock(g_mutex);
    replacement = Replacement();
  }
  if (replacement) {
    replacement(milliseconds);
  } else {
#ifdef _WIN32
    ::Sleep(milliseconds);
#else
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
#endif
  }
}

std::function<void(unsigned int)> SetSleep(std::function<void(unsigned int)> sleep) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  return std::exchange(Replacement(), std::move(sleep));
}

}  // namespace platform
