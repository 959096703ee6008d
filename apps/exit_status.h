#pragma once

#include <stdexcept>
#include <string>

namespace app {

enum ExitStatus : int { kSuccess = 0, kRunFailed = 1, kWrongUsage = 2, kCancelled = 130 };

/// Ends a command before its run: what() is the sentence for the user.
struct CommandError : std::runtime_error {
  CommandError(ExitStatus exitStatus, const std::string& text) : std::runtime_error(text), status(exitStatus) {}
  ExitStatus status;
};

/// A failure with the library's own error type and message.
struct RunError {
  int type;
  std::wstring message;
};

/// Says a failure on standard error and answers the exit status.
int ReportRunError(const RunError& error);

inline CommandError UsageError(const std::string& text) { return {kWrongUsage, text}; }

/// A plain English sentence for an error type that a run leaves.
std::string ErrorSentence(int errorType);

}  // namespace app
