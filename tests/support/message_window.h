#pragma once

#include <functional>
#include <memory>

#include "platform/system/window.h"

namespace test_support {

/// A window that takes messages and shows nothing: the system's own kind where it has one.
class MessageWindow : public INotifyWindow {
 public:
  using Receive = std::function<LRESULT(UINT message, WPARAM first, LPARAM second)>;

  explicit MessageWindow(Receive receive);
  ~MessageWindow() override;
  MessageWindow(const MessageWindow&) = delete;
  MessageWindow& operator=(const MessageWindow&) = delete;

  HWND GetSafeHwnd() const override { return m_handle; }

 private:
  std::unique_ptr<Receive> m_receive;
  HWND m_handle;
};

}  // namespace test_support
