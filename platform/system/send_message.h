#pragma once

#include "platform/system/window.h"

namespace platform {

/// Sends a window a message and waits until it has been received. Only from the thread that a caller waits on: another
/// one's message would wait for that thread, and that thread for the other.
LRESULT SendToWindow(HWND window, UINT message, WPARAM first, LPARAM second);

}  // namespace platform
