#pragma once

#include <functional>
#include <string>
#include <vector>

#include "runs/report.h"
#include "runs/report_images.h"

namespace fusion {

class Notices;

/// Measures the images without a truth, as Assess does at full resolution, and says of each why that is not possible
/// where it is not.
/// @param ms the multispectral image as one file
/// @param step is told the share that is done, 0 to 1, and may throw to end it
/// Throws RunFailure where step does.
void MeasureQuality(const ReportRequest& request, const std::string& ms, const std::vector<FusedSource>& sources,
                    const std::function<void(double done)>& step, Notices& notices, std::vector<ReportImage>& images);

}  // namespace fusion
