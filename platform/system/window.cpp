#include "platform/system/window.h"

INotifyWindow::~INotifyWindow() = default;

#ifndef _WIN32

#include <map>
#include <mutex>

namespace {

std::mutex g_mutex;

std::map<HWND, WindowProcedure>& Procedures() {
  static std::map<HWND, WindowProcedure> procedures;
  return procedures;
}

}  // namespace

void RegisterWindowProcedure(HWND window, WindowProcedure procedure) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  if (procedure) {
    Procedures()[window] = std::move(procedure);
  } else {
    Procedures().erase(window);
  }
}

LRESULT SendMessageW(HWND window, UINT message, WPARAM first, LPARAM second) {
  WindowProcedure procedure;
  {
    const std::lock_guard<std::mutex> lock(g_mutex);
    const auto found = Procedures().find(window);
    if (found != Procedures().end()) procedure = found->second;
  }
  // Called without the lock, so that a receiver may send messages of its own.
  return procedure ? procedure(window, message, first, second) : 0;
}

#endif
