#include "apps/console_progress.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>

#include "platform/system/console.h"

namespace app {

std::string Remaining(int percent, double seconds) {
  constexpr double kWorthAWord = 2.0;
  if (percent <= 0 || percent >= 100 || seconds < kWorthAWord) return {};
  const long left = std::lround(seconds * (100 - percent) / percent);
  if (left < 90) return std::to_string(left) + " s left";
  const long minutes = std::lround(static_cast<double>(left) / 60.0);
  if (minutes < 90) return std::to_string(minutes) + " min left";
  return std::to_string(std::lround(static_cast<double>(minutes) / 60.0)) + " h left";
}

ConsoleProgress::ConsoleProgress(bool silent)
    : m_silent(silent),
      m_terminal(platform::IsTerminal(stderr)),
      m_interrupts([](void* progress) { static_cast<ConsoleProgress*>(progress)->m_interrupted.store(true); }, this) {}

ConsoleProgress::~ConsoleProgress() { ConsoleProgress::StageEnds(); }

void ConsoleProgress::StageBegins(const fusion::RunStage& stage) {
  m_title = stage.title;
  m_begin = std::chrono::steady_clock::now();
}

void ConsoleProgress::Progress(int percent) {
  if (m_silent) return;
  if (m_terminal) {
    DrawBar(percent);
  } else {
    DrawDots(percent);
  }
}

void ConsoleProgress::StageEnds() {
  if (m_drawn >= 0) std::cerr << (m_terminal ? "\n" : " - done.\n");
  m_drawn = -1;
}

void ConsoleProgress::Notice(const std::string& text) {
  if (!m_silent) std::cerr << text << '\n';
  m_notices.push_back(text);
}

bool ConsoleProgress::WantsCancel() { return m_interrupted.load(); }

void ConsoleProgress::DrawBar(int percent) {
  if (percent == m_drawn) return;
  m_drawn = percent;
  constexpr int kWidth = 40;
  const auto filled = static_cast<std::size_t>(percent * kWidth / 100);
  std::cerr << '\r' << m_title << " [" << std::string(filled, '=') << std::string(kWidth - filled, ' ') << "] "
            << percent << '%';
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - m_begin;
  // Whatever a longer text has left there goes.
  std::cerr << ' ' << std::left << std::setw(12) << Remaining(percent, seconds.count()) << std::flush;
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

}  // namespace app
