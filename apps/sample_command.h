#pragma once

#include <string>

namespace CLI {
class App;
}

namespace app {

struct SampleCommandOptions {
  std::string folder;
  std::string size = "1024";
  unsigned seed = 1;
  std::string type = "uint16";
  int ratio = 4;
  int bands = 4;
  bool overwrite = false;
  bool quiet = false;
};

void AddSampleOptions(CLI::App& command, SampleCommandOptions& options);

/// Writes pan.tif, ms.tif and truth.tif (the multispectral scene at pan resolution) and answers the exit status.
/// Throws CommandError.
int RunSample(const SampleCommandOptions& options);

}  // namespace app
