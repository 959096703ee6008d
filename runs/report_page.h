#pragma once

#include <string>
#include <vector>

#include "runs/report.h"
#include "runs/report_histograms.h"
#include "runs/report_images.h"
#include "runs/report_views.h"

namespace fusion {

/// All that a page tells.
struct ReportContents {
  const ReportRequest& request;
  const WrittenReport& report;
  const std::vector<std::string>& msFiles;
  const std::vector<FusedSource>& sources;
  const std::vector<std::vector<ReportHistogram>>& histograms;  ///< of each image
  const std::vector<ReportFrame>& frames;
};

/// The page as HTML: one text that needs no other file.
std::string MakePage(const ReportContents& contents);

}  // namespace fusion
