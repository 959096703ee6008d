#include "tests/support/message_window.h"

#include <utility>

#ifdef _WIN32
#include <windows.h>
#endif

namespace test_support {

#ifdef _WIN32
namespace {

LRESULT CALLBACK PassOn(HWND window, UINT message, WPARAM first, LPARAM second) {
  const auto* receive = reinterpret_cast<const MessageWindow::Receive*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  // The system's own messages of a window's life stay with the system.
  return receive && message >= WM_USER ? (*receive)(message, first, second)
                                       : DefWindowProcW(window, message, first, second);
}

HWND MakeWindow(const MessageWindow::Receive& receive) {
  static const ATOM kind = [] {
    WNDCLASSW description{};
    description.lpfnWndProc = PassOn;
    description.hInstance = GetModuleHandleW(nullptr);
    description.lpszClassName = L"FusionTestWindow";
    return RegisterClassW(&description);
  }();
  static_cast<void>(kind);
  const HWND window = CreateWindowExW(0, L"FusionTestWindow", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                      GetModuleHandleW(nullptr), nullptr);
  SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(&receive));
  return window;
}

}  // namespace

MessageWindow::MessageWindow(Receive receive)
    : m_receive(std::make_unique<Receive>(std::move(receive))), m_handle(MakeWindow(*m_receive)) {}

MessageWindow::~MessageWindow() { DestroyWindow(m_handle); }
#else
MessageWindow::MessageWindow(Receive receive)
    : m_receive(std::make_unique<Receive>(std::move(receive))), m_handle(m_receive.get()) {
  RegisterWindowProcedure(m_handle, [this](HWND, UINT message, WPARAM first, LPARAM second) {
    return (*m_receive)(message, first, second);
  });
}

MessageWindow::~MessageWindow() { RegisterWindowProcedure(m_handle, {}); }
#endif

}  // namespace test_support
