// The system's header last.
// clang-format off
#include <string>
#include "fusion_api.h"
#include <windows.h>
// clang-format on

/// A window of the user's.
class Notified : public INotifyWindow {
 public:
  HWND GetSafeHwnd() const override { return GetDesktopWindow(); }
};

std::string NameBehind() {
  const Notified window;
  FusionParam param;
  param.m_pNotifyWnd = const_cast<Notified*>(&window);
  return param.m_pNotifyWnd->GetSafeHwnd() == window.GetSafeHwnd() ? fusion::Methods().front().name : "";
}
