#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace app {

struct EvaluateOptions {
  std::string pan;
  std::string ms;
  std::string fused;
  std::vector<std::string> metrics;  ///< empty: all
  std::vector<int> bands;            ///< counted from 1, empty: all
  std::vector<int> fusedBands;       ///< counted from 1, empty: all
  int panBand = 1;                   ///< counted from 1
  bool sameExtent = false;
  bool json = false;
  bool quiet = false;
};

void AddEvaluateOptions(CLI::App& command, EvaluateOptions& options);

/// Prints the metrics of a fused image as a table or as JSON and answers the exit status. Throws CommandError.
int RunEvaluate(const EvaluateOptions& options);

}  // namespace app
