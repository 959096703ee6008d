#pragma once

#include <string>
#include <vector>

#include "platform/algorithm/base_progress.h"

namespace test_support {

/// Records every call as a line of text and cancels when asked to.
class RecordingProgress : public CBaseProgress {
 public:
  void Start(const std::wstring& title, int range) override {
    m_calls.push_back(L"Start " + title + L" " + std::to_wstring(range));
  }
  bool Step(int position, const std::wstring& text) override {
    m_calls.push_back(L"Step " + std::to_wstring(position) + L" " + text);
    ++m_steps;
    return m_cancelAt < 0 || position < m_cancelAt;
  }
  void Finish() override {
    m_calls.emplace_back(L"Finish");
    m_finished = true;
  }
  void Error(int type, const std::wstring& message) override {
    m_calls.push_back(L"Error " + std::to_wstring(type) + L" " + message);
    ++m_errors;
  }

  /// Forgets what it recorded, for another run.
  void Clear() {
    m_calls.clear();
    m_steps = 0;
    m_errors = 0;
    m_finished = false;
  }
  /// Answers false from this position on.
  void CancelAtStep(int position) { m_cancelAt = position; }

  const std::vector<std::wstring>& Calls() const { return m_calls; }
  int Steps() const { return m_steps; }
  int Errors() const { return m_errors; }
  bool Finished() const { return m_finished; }

 private:
  std::vector<std::wstring> m_calls;
  int m_cancelAt = -1;
  int m_steps = 0;
  int m_errors = 0;
  bool m_finished = false;
};

}  // namespace test_support
