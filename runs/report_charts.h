#pragma once

#include <string>
#include <vector>

#include "runs/report_histograms.h"

namespace fusion {

/// Values of one kind, one for each group.
struct ChartSeries {
  std::string name;
  std::vector<double> values;
};

/// Upright bars in groups, a bar for each series: SVG with the classes series-0, series-1 and so on. They begin at 0.
/// @param groups their names
std::string BarChart(const std::string& title, const std::vector<std::string>& groups,
                     const std::vector<ChartSeries>& series);

/// The multispectral band as an area, the fused one as a line.
std::string HistogramChart(const ReportHistogram& histogram);

}  // namespace fusion
