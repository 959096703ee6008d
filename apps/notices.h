#pragma once

#include <string>
#include <vector>

namespace app {

/// What a run tells its user beside its result: on standard error, unless it is to be quiet, and in the log. All of it
/// is kept for whoever describes the run.
class Notices {
 public:
  explicit Notices(bool quiet) : m_quiet(quiet) {}

  void Add(const std::string& text);
  const std::vector<std::string>& All() const { return m_texts; }

 private:
  bool m_quiet;
  std::vector<std::string> m_texts;
};

/// An entry in the log, where there is one.
void LogInformation(const std::string& text);

}  // namespace app
