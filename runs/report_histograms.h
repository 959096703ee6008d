#pragma once

#include <functional>
#include <string>
#include <vector>

#include "runs/report_images.h"
#include "runs/scene_pair.h"

namespace fusion {

/// How the values of a band are spread before and after a fusion.
struct ReportHistogram {
  std::string band;
  double low = 0.0;           ///< where the first column begins
  double high = 0.0;          ///< where the last one ends
  std::vector<double> ms;     ///< of the multispectral pixels with data, the share in each column
  std::vector<double> fused;  ///< likewise of the fused ones
};

/// One for each pair of bands, over the ground of the fused image. Of large images some rows and columns are counted.
/// Columns go from the 0.5th to the 99.5th percentile of the multispectral band and a little beyond.
/// @param goOn is called between reads, and may throw to end them
/// Throws RunFailure after a failed read.
std::vector<ReportHistogram> MakeHistograms(ScenePair& pair, const FusedSource& image,
                                            const std::function<void()>& goOn);

}  // namespace fusion
