#pragma once

#include <string>
#include <vector>

#include "runs/report.h"

namespace fusion {

// Parts of a report's page: markup.

/// How both inputs are made and lie to each other, and the values of their bands.
std::string InputTables(const CheckReport& report);
/// What was found, warnings first.
std::string FindingList(const CheckReport& check);
/// A row of the most telling figures for each image, and a chart where there is more than one.
std::string SummaryTable(const std::vector<ReportImage>& images);
/// A table and a chart for each metric.
std::string MetricTables(const EvaluateReport& evaluation);

}  // namespace fusion
