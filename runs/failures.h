#pragma once

#include <exception>
#include <string>
#include <system_error>

#include "runs/run_failure.h"

class CBaseAlgorithm;

namespace fusion {

/// A failed or cancelled run with the library's error type and message.
/// @param sentence the type's own where empty
RunFailure RunError(int type, const std::wstring& message, const std::string& sentence = "");
/// Throws the failure of an algorithm that has not succeeded.
void ThrowFailure(const CBaseAlgorithm& algorithm);

/// A file that could not be written, with the system's reason where there is one.
/// @param done what could not be done to it
RunFailure FileFailure(const std::wstring& file, const std::string& done = "written");
/// A folder that could not be made.
RunFailure FolderFailure(const std::string& folder, const std::error_code& error);

/// What a run gives; what else it throws comes out as a failure.
template <typename Run>
auto AsRun(const Run& run) {
  try {
    return run();
  } catch (const RunFailure&) {
    throw;
  } catch (const std::exception& e) {
    throw ExceptionError(e);
  }
}

/// The system's number of a failure in words, to be put behind a text without its full stop; empty for 0.
std::string Reason(int error);

}  // namespace fusion
