#pragma once

#include <chrono>
#include <string>

#include "platform/algorithm/base_progress.h"
#include "platform/system/interrupts.h"

namespace app {

/// Progress on standard error: a bar on a terminal, dots otherwise, nothing when silent. Ctrl-C, and any
/// other request to end the program, cancels the run. The log, where there is one, learns what every stage took.
class ConsoleProgress : public CBaseProgress {
 public:
  explicit ConsoleProgress(bool silent);
  ~ConsoleProgress() override;

  void Start(const std::wstring& title, int range) override;
  bool Step(int position, const std::wstring& text) override;
  void Finish() override;
  /// Silent: the command reports a failure once, at its end.
  void Error(int type, const std::wstring& message) override;

 private:
  void DrawBar(int percent);
  void DrawDots(int percent);
  void EndLine();

  bool m_silent;
  bool m_terminal;
  std::string m_title;
  int m_range = 100;
  std::chrono::steady_clock::time_point m_start;
  bool m_running = false;  ///< between Start and Finish; steps outside have no line
  int m_drawn = -1;        ///< percent drawn so far, -1 for nothing on the line
  platform::InterruptHandler m_interrupts;
};

}  // namespace app
