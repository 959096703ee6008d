#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "apps/exit_status.h"
#include "apps/fuse_options.h"
#include "apps/notices.h"
#include "platform/utility/log.h"

namespace app {

/// What a successful run has written.
struct FuseOutcome {
  int width = 0;
  int height = 0;
  int bands = 0;
  PixelDataType type = PDT_UNKNOWN;
  std::optional<double> validShare;  ///< of the pixels, where the run masked those without data
};

/// Tells how a run of the `fuse` command went: its notices, its log, its JSON.
class FuseReport {
 public:
  explicit FuseReport(const FuseOptions& options);
  ~FuseReport();
  FuseReport(const FuseReport&) = delete;
  FuseReport& operator=(const FuseReport&) = delete;

  /// Opens the log where one is wanted and says in it what is to be done. Throws CommandError.
  void OpenLog();
  Notices& RunNotices() { return m_notices; }

  /// Says how the run ended and answers the exit status.
  int Succeed(const FuseOutcome& outcome);
  int Fail(const CommandError& error);

 private:
  double Seconds() const;
  void Print(const FuseOutcome& outcome, int errorType, const std::string& message) const;

  const FuseOptions& m_options;
  const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
  std::optional<CLog> m_log;
  Notices m_notices;
};

}  // namespace app
