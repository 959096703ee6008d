#include "apps/exit_status.h"

#include <cstdio>
#include <iostream>
#include <new>
#include <nlohmann/json.hpp>

#include "apps/report_json.h"
#include "platform/algorithm/base_algorithm.h"
#include "platform/system/interrupts.h"

namespace app {

using fusion::RunFailure;

ExitStatus StatusOf(const RunFailure& failure) {
  switch (failure.GetKind()) {
    case RunFailure::Kind::kWrongUsage:
      return kWrongUsage;
    case RunFailure::Kind::kCancelled:
      return kCancelled;
    default:
      return kRunFailed;
  }
}

int Report(const RunFailure& failure) {
  const ExitStatus status = StatusOf(failure);
  if (status == kCancelled) {
    std::cerr << "fusion: " << failure.Sentence() << '\n';
    // As the shell tells of a program that a signal has ended.
    constexpr int kSignalled = 128;
    return platform::LastInterrupt() != 0 ? kSignalled + platform::LastInterrupt() : kCancelled;
  }
  if (failure.Type() == RunFailure::kOwnType) {
    std::cerr << "fusion: " << failure.what() << '\n';
  } else {
    std::cerr << "fusion: error " << failure.Type() << ": " << failure.what() << '\n';
  }
  return status;
}

int ReportUncaught() noexcept {
  const char* sentence = "The run met an unexpected failure.";
  try {
    throw;
  } catch (const std::bad_alloc&) {
    sentence = "The run ran out of memory.";
  } catch (const std::exception& e) {
    // The caller's handler keeps the exception, and so its words.
    sentence = e.what();
  } catch (...) {
    // Has no words.
  }
  std::fprintf(stderr, "fusion: error %d: %s\n", ERR_EXCEPTION, sentence);
  return kRunFailed;
}

void PrintJson(const nlohmann::ordered_json& object) { std::cout << JsonText(object) << '\n'; }

int EndOutput(int status) {
  if (std::cout.flush()) return status;
  std::cerr << "fusion: Standard output cannot be written.\n";
  return status == kSuccess ? kRunFailed : status;
}

}  // namespace app
