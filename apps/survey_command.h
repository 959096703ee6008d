#pragma once

#include <string>
#include <vector>

#include "runs/survey.h"

namespace CLI {
class App;
}

namespace app {

/// The `survey` command's arguments: what is surveyed, and how it is told.
struct SurveyOptions : fusion::SurveyRequest {
  bool json = false;
  bool quiet = false;
  std::vector<std::string> files = {};     ///< behind PAN
  std::vector<std::string> patterns = {};  ///< of --ms
};

void AddSurveyOptions(CLI::App& command, SurveyOptions& options);

/// Makes or merges surveys and answers the exit status. Throws RunFailure.
int RunSurvey(const SurveyOptions& options);

}  // namespace app
