#pragma once

#include <chrono>
#include <string>

#include "platform/algorithm/base_progress.h"

namespace fusion {

class RunObserver;

/// The reporter that the algorithms of a run get: hands their stages, in percent, to the observer and asks it whether
/// to cancel. The log, where there is one, learns what every stage took.
class RunProgress : public CBaseProgress {
 public:
  /// @param observer not owned; null for nobody
  explicit RunProgress(RunObserver* observer);
  ~RunProgress() override;

  void Start(const std::wstring& title, int range) override;
  bool Step(int position, const std::wstring& text) override;
  /// As Step, for runs that are no algorithms.
  /// @throws RunFailure where the observer wants to cancel
  void Advance(int position);
  void Finish() override;
  /// The failure itself is told once, by the exception at the run's end.
  void Error(int type, const std::wstring& message) override;

 private:
  void EndStage();

  RunObserver* m_observer;
  std::string m_title;
  std::wstring m_published;
  int m_range = 100;
  std::chrono::steady_clock::time_point m_start;
  bool m_running = false;  ///< between Start and Finish; steps outside belong to no stage
  bool m_told = false;     ///< the observer knows of the stage
  int m_percent = -1;      ///< told last, -1 for none
};

}  // namespace fusion
