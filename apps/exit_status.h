#pragma once

#include <nlohmann/json_fwd.hpp>

#include "runs/run_failure.h"

namespace app {

enum ExitStatus : int { kSuccess = 0, kRunFailed = 1, kWrongUsage = 2, kWarnings = 3, kCancelled = 130 };

/// The exit status that tells of a kind of failure.
ExitStatus StatusOf(const fusion::RunFailure& failure);

/// Says a failure on standard error and answers the exit status.
int Report(const fusion::RunFailure& failure);

/// Says the exception that is being handled, whatever it is, without need of memory, and answers the exit status. For
/// what nothing else has caught.
int ReportUncaught() noexcept;

/// A report on standard output, see JsonText.
void PrintJson(const nlohmann::ordered_json& object);

/// The exit status of a command that is done: what it printed must have arrived, too.
int EndOutput(int status);

}  // namespace app
