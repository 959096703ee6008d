#include "apps/console_progress.h"

#include <algorithm>
#include <iostream>

#include "apps/notices.h"
#include "apps/stage_names.h"
#include "platform/system/console.h"

namespace app {

ConsoleProgress::ConsoleProgress(bool silent)
    : m_silent(silent),
      m_terminal(platform::IsTerminal(stderr)),
      m_interrupts([](void* progress) { static_cast<ConsoleProgress*>(progress)->RequestCancel(); }, this) {}

ConsoleProgress::~ConsoleProgress() { EndLine(); }

void ConsoleProgress::Start(const std::wstring& title, int range) {
  EndLine();
  // A stage announces itself twice: before its preparations, and with its steps.
  const std::string name = StageName(title);
  if (!m_running || name != m_title) m_start = std::chrono::steady_clock::now();
  m_title = name;
  m_range = std::max(range, 1);
  m_running = true;
}

bool ConsoleProgress::Step(int position, const std::wstring& /*text*/) {
  // Position 0 is the set-up that each run announces first; a line of its own would say nothing.
  if (!m_silent && m_running && position > 0) {
    const int percent = static_cast<int>(std::clamp<long long>(100LL * position / m_range, 0, 100));
    if (m_terminal) {
      DrawBar(percent);
    } else {
      DrawDots(percent);
    }
  }
  return !IsCancelRequested();
}

void ConsoleProgress::Finish() {
  EndLine();
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - m_start;
  if (m_running) LogInformation(m_title + " took " + std::to_string(seconds.count()) + " s");
  m_running = false;
}

void ConsoleProgress::Error(int /*type*/, const std::wstring& /*message*/) { EndLine(); }

void ConsoleProgress::DrawBar(int percent) {
  if (percent == m_drawn) return;
  m_drawn = percent;
  constexpr int kWidth = 40;
  const auto filled = static_cast<std::size_t>(percent * kWidth / 100);
  std::cerr << '\r' << m_title << " [" << std::string(filled, '=') << std::string(kWidth - filled, ' ') << "] "
            << percent << '%' << std::flush;
}

void ConsoleProgress::DrawDots(int percent) {
  // 0...10...20 up to 100: a mark every 2.5 percent.
  constexpr int kMarks = 40;
  if (m_drawn < 0) std::cerr << m_title << ' ';
  const int last = m_drawn < 0 ? -1 : m_drawn * kMarks / 100;
  for (int mark = last + 1; mark <= percent * kMarks / 100; ++mark) {
    if (mark % 4 == 0) {
      std::cerr << mark * 100 / kMarks;
    } else {
      std::cerr << '.';
    }
  }
  std::cerr << std::flush;
  m_drawn = std::max(percent, m_drawn);
}

void ConsoleProgress::EndLine() {
  if (m_drawn >= 0) std::cerr << (m_terminal ? "\n" : " - done.\n");
  m_drawn = -1;
}

}  // namespace app
