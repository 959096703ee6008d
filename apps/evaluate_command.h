#pragma once

#include "runs/evaluate.h"

namespace CLI {
class App;
}

namespace app {

/// The `evaluate` command's arguments: what is to be measured, and how it is told.
struct EvaluateOptions : fusion::EvaluateRequest {
  std::vector<std::string> files = {};     ///< behind PAN: the last is the fused image
  std::vector<std::string> patterns = {};  ///< of --ms
  bool json = false;
  bool quiet = false;
};

void AddEvaluateOptions(CLI::App& command, EvaluateOptions& options);

/// Prints the metrics of a fused image as tables or as JSON and answers the exit status. Throws RunFailure.
int RunEvaluate(const EvaluateOptions& options);

}  // namespace app
