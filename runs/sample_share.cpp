#include "runs/sample_share.h"

#include <algorithm>
#include <vector>

#include "platform/algorithm/base_algorithm.h"
#include "platform/algorithm/messages.h"
#include "runs/failures.h"

namespace fusion {

double SampleShare(const CRasterSource& source,
                   const std::function<std::int64_t(const double* values, std::int64_t n)>& count) {
  constexpr int kRows = 32;
  const int width = source.GetWidth();
  const int height = source.GetHeight();
  std::vector<double> values(static_cast<std::size_t>(width) * kRows);
  std::int64_t counted = 0;
  for (int top = 0; top < height; top += kRows) {
    const int rows = std::min(kRows, height - top);
    if (source.GetRasterBand(0)->ReadBlock(0, top, width, rows, values.data(), width, rows, PDT_FLOAT64) != 0) {
      throw RunError(ERR_READ, platform::messages::kReadFailed);
    }
    counted += count(values.data(), std::int64_t{width} * rows);
  }
  return static_cast<double>(counted) / (static_cast<double>(width) * height);
}

}  // namespace fusion
