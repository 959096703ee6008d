#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "platform/system/interrupts.h"
#include "runs/run_observer.h"

namespace app {

/// "3 min left" of a stage that has taken so many seconds for a share; empty where that is too early to tell.
std::string Remaining(int percent, double seconds);

/// A run on standard error: its notices, and its progress as a bar on a terminal, as dots otherwise; nothing when
/// silent. Ctrl-C, and any other request to end the program, cancels the run.
class ConsoleProgress : public fusion::RunObserver {
 public:
  explicit ConsoleProgress(bool silent);
  ~ConsoleProgress() override;

  void StageBegins(const fusion::RunStage& stage) override;
  void Progress(int percent) override;
  void StageEnds() override;
  void Notice(const std::string& text) override;
  bool WantsCancel() override;

  /// What was said, silent or not.
  const std::vector<std::string>& Notices() const { return m_notices; }

 private:
  void DrawBar(int percent);
  void DrawDots(int percent);

  bool m_silent;
  bool m_terminal;
  std::string m_title;
  std::chrono::steady_clock::time_point m_begin;  ///< of the stage
  int m_drawn = -1;                               ///< percent drawn so far, -1 for nothing on the line
  std::vector<std::string> m_notices;
  std::atomic<bool> m_interrupted{false};
  platform::InterruptHandler m_interrupts;
};

}  // namespace app
