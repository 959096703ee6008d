#include "platform/system/send_message.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace platform {

LRESULT SendToWindow(HWND window, UINT message, WPARAM first, LPARAM second) {
  return ::SendMessageW(window, message, first, second);
}

}  // namespace platform
