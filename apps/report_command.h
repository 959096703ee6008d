#pragma once

#include <string>
#include <vector>

#include "runs/report.h"

namespace CLI {
class App;
}

namespace app {

/// The `report` command's arguments: what the page is about, and how its making is told.
struct ReportOptions : fusion::ReportRequest {
  bool json = false;
  bool quiet = false;
  std::string second = {};                 ///< the file behind PAN: the multispectral image, unless --ms names it
  std::vector<std::string> files = {};     ///< behind that
  std::vector<std::string> patterns = {};  ///< of --ms
};

void AddReportOptions(CLI::App& command, ReportOptions& options);

/// Writes the page and answers the exit status. Throws RunFailure.
int RunReport(const ReportOptions& options);

}  // namespace app
