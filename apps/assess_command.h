#pragma once

#include <string>

#include "runs/assess.h"

namespace CLI {
class App;
}

namespace app {

/// The `assess` command's arguments: what is to be compared, and how it is told.
struct AssessOptions : fusion::AssessRequest {
  std::string report;                      ///< file for the JSON object; empty: none
  std::vector<std::string> files = {};     ///< behind PAN
  std::vector<std::string> patterns = {};  ///< of --ms
  bool json = false;
  bool quiet = false;
};

void AddAssessOptions(CLI::App& command, AssessOptions& options);

/// Prints the methods' figures as tables or as JSON and answers the exit status. Throws RunFailure.
int RunAssess(const AssessOptions& options);

}  // namespace app
