#include "platform/system/start_thread.h"

#include <cerrno>
#include <system_error>
#include <utility>

namespace platform {
namespace {

bool (*g_threadFault)() = nullptr;

}  // namespace

void SetThreadFault(bool (*fault)()) { g_threadFault = fault; }

bool StartThread(std::thread& thread, std::function<void()> work) {
  try {
    if (g_threadFault && g_threadFault()) throw std::system_error(EAGAIN, std::generic_category());
    thread = std::thread(std::move(work));
  } catch (const std::system_error&) {
    return false;
  }
  return true;
}

}  // namespace platform
