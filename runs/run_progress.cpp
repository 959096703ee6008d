#include "runs/run_progress.h"

#include <algorithm>

#include "framework/messages.h"
#include "platform/algorithm/base_algorithm.h"
#include "platform/utility/common_fun.h"
#include "runs/failures.h"
#include "runs/run_log.h"
#include "runs/run_observer.h"

namespace fusion {
namespace {

std::string TitleOf(const platform::Stage& stage) {
  if (stage.number == 0) return stage.name;
  return stage.name + " (" + std::to_string(stage.number) + "/" + std::to_string(stage.count) + ")";
}

}  // namespace

RunProgress::RunProgress(RunObserver* observer) : m_observer(observer) {
  AskForCancel([this] {
    if (!m_observer || !m_observer->WantsCancel()) return false;
    // Whoever has said so once need not say it again.
    RequestCancel();
    return true;
  });
}

RunProgress::~RunProgress() { EndStage(); }

void RunProgress::Start(const std::wstring& title, int range) {
  const std::string name = TitleOf(StartedStage());
  // A stage announces itself twice: before its preparations, and with its steps.
  const bool again = m_running && name == m_title && title == m_published;
  m_range = std::max(range, 1);
  if (again && m_told && m_percent < 0) return;
  EndStage();
  if (!again) m_start = std::chrono::steady_clock::now();
  m_title = name;
  m_published = title;
  m_running = true;
  m_told = true;
  if (m_observer) m_observer->StageBegins({StartedStage(), m_title, CommonFun::U2Utf8(title)});
}

bool RunProgress::Step(int position, const std::wstring& /*text*/) {
  // Position 0 is the set-up that each run announces first; it says nothing.
  if (m_running && m_told && position > 0) {
    const int percent = static_cast<int>(std::clamp<long long>(100LL * position / m_range, 0, 100));
    if (percent != m_percent && m_observer) m_observer->Progress(percent);
    m_percent = percent;
  }
  return !IsCancelRequested();
}

void RunProgress::Advance(int position) {
  if (!Step(position, L"")) throw RunError(ERR_CANCELLED, messages::kCancelled);
}

void RunProgress::Finish() {
  EndStage();
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - m_start;
  if (m_running) LogInformation(m_title + " took " + std::to_string(seconds.count()) + " s");
  m_running = false;
}

void RunProgress::Error(int /*type*/, const std::wstring& /*message*/) { EndStage(); }

void RunProgress::EndStage() {
  if (m_told && m_observer) m_observer->StageEnds();
  m_told = false;
  m_percent = -1;
}

}  // namespace fusion
