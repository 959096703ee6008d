#pragma once

#include "runs/check.h"

namespace CLI {
class App;
}

namespace app {

/// The `check` command's arguments: what is to be looked at, and how it is told.
struct CheckOptions : fusion::CheckRequest {
  std::vector<std::string> files = {};     ///< behind PAN
  std::vector<std::string> patterns = {};  ///< of --ms
  bool json = false;
  bool quiet = false;
};

void AddCheckOptions(CLI::App& command, CheckOptions& options);

/// Prints what was seen as a table or as JSON and answers the exit status, kWarnings where there is something to warn
/// of. Throws RunFailure.
int RunCheck(const CheckOptions& options);

}  // namespace app
