#pragma once

#include <nlohmann/json_fwd.hpp>
#include <stdexcept>
#include <string>

namespace app {

enum ExitStatus : int { kSuccess = 0, kRunFailed = 1, kWrongUsage = 2, kCancelled = 130 };

/// Ends a command without success. what() is the message for the user, on one line.
struct CommandError : std::runtime_error {
  /// The error type of a failure that is the command's own and not one of the library's.
  static constexpr int kOwnType = -1;

  CommandError(ExitStatus exitStatus, const std::string& text, int errorType = kOwnType)
      : std::runtime_error(text), status(exitStatus), type(errorType) {}
  ExitStatus status;
  int type;
};

inline CommandError UsageError(const std::string& text) { return {kWrongUsage, text}; }
/// A failed or cancelled run with the library's error type and message: an English sentence, the type's own where none
/// is given, and behind it the message in brackets.
CommandError RunError(int type, const std::wstring& message, const std::string& sentence = "");

/// A failure by an exception from below: a lack of memory, say.
CommandError ExceptionError(const std::exception& exception);

/// The system's number of a failure in words, to be put behind a text without its full stop; empty for 0.
std::string Reason(int error);

/// A plain English sentence for an error type that a run leaves.
std::string ErrorSentence(int errorType);

/// Says a failure on standard error and answers the exit status.
int Report(const CommandError& error);

/// One object on standard output, always valid UTF-8.
void PrintJson(const nlohmann::ordered_json& object);

/// The exit status of a command that is done: what it printed must have arrived, too.
int EndOutput(int status);

/// A value for JSON, which has no infinities: "inf" and "-inf"; a NaN becomes null by itself.
nlohmann::ordered_json JsonNumber(double value);

}  // namespace app
