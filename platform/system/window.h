#pragma once

#include "platform/system/export.h"

#ifdef _WIN32

// Not the system's header, whose macros no user asked for.

#include "platform/system/windows_names.h"
#else

#include <cstdint>
#include <functional>

// The names of the system's message interface; messages stay inside the process.
using HWND = void*;
using UINT = unsigned int;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;

using WindowProcedure = std::function<LRESULT(HWND, UINT, WPARAM, LPARAM)>;

/// Registers the receiver of a handle's messages; an empty procedure takes the registration back.
FUSION_API void RegisterWindowProcedure(HWND window, WindowProcedure procedure);

/// Calls the procedure registered for the handle and answers its result, 0 where there is none.
FUSION_API LRESULT SendMessageW(HWND window, UINT message, WPARAM first, LPARAM second);

#endif

/// A window object of the caller's: the library needs nothing of it but its handle.
class FUSION_API INotifyWindow {
 public:
  virtual ~INotifyWindow();
  virtual HWND GetSafeHwnd() const = 0;
};
