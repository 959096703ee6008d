#pragma once

#include <string>
#include <vector>

namespace fusion {

class RunObserver;

/// What a run tells its user beside its result: the observer, where there is one, and the log. All of it is kept for
/// the report.
class Notices {
 public:
  explicit Notices(RunObserver* observer) : m_observer(observer) {}

  void Add(const std::string& text);
  const std::vector<std::string>& All() const { return m_texts; }

 private:
  RunObserver* m_observer;
  std::vector<std::string> m_texts;
};

}  // namespace fusion
