#pragma once

#include <optional>
#include <string>

#include "platform/utility/log.h"
#include "runs/notices.h"
#include "runs/run_failure.h"

namespace fusion {

struct FuseRequest;

/// The library's log while a run has one of its own.
class RunLog {
 public:
  RunLog() = default;
  ~RunLog();
  RunLog(const RunLog&) = delete;
  RunLog& operator=(const RunLog&) = delete;

  /// Opens the log where the request wants one, and says in it what is to be done. Throws RunFailure.
  void Open(const FuseRequest& request);
  void Fail(const RunFailure& failure);
  /// Tells the user where the log lacks an entry: the run goes on without it.
  void TellGaps(const FuseRequest& request, Notices& notices) const;

 private:
  std::optional<CLog> m_log;
  CLog* m_before = nullptr;
};

/// An entry in the log, where there is one.
void LogInformation(const std::string& text);

}  // namespace fusion
