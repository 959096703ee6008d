#pragma once

#include <string>

#include "runs/sample.h"

namespace CLI {
class App;
}

namespace app {

/// The `sample` command's arguments: what is to be made, and how it is told.
struct SampleCommandOptions : fusion::SampleRequest {
  std::string size = "1024";  ///< N or WxH; in the place of the request's own
  bool quiet = false;
};

void AddSampleOptions(CLI::App& command, SampleCommandOptions& options);

/// Writes a scene and answers the exit status. Throws RunFailure.
int RunSample(const SampleCommandOptions& options);

}  // namespace app
