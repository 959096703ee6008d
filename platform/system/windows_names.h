#pragma once

#include <cstdint>

// The names of the system's message interface, as its own header declares them: that may come before this one or behind
// it, and need not come at all.
struct HWND__;
using HWND = HWND__*;
using UINT = unsigned int;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;
