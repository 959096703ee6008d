#pragma once

#include <string>

namespace CLI {
class App;
}

namespace app {

/// The arguments of `info` and `verify`.
struct OutputOptions {
  std::string file;
  bool json = false;
  bool quiet = false;
};

void AddInfoOptions(CLI::App& command, OutputOptions& options);
void AddVerifyOptions(CLI::App& command, OutputOptions& options);

/// Prints how an output was made. Answers the exit status.
int RunInfo(const OutputOptions& options);
/// Compares an output's samples with its checksums. Answers the exit status; throws RunFailure where they differ.
int RunVerify(const OutputOptions& options);
/// Prints the command that made an output.
int RunRepeat(const std::string& file);

}  // namespace app
