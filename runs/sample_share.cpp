#include "runs/sample_share.h"

#include <algorithm>
#include <vector>

#include "platform/algorithm/base_algorithm.h"
#include "platform/algorithm/messages.h"
#include "runs/failures.h"

namespace fusion {

double SampleShare(const CRasterSource& source, int bandCount,
                   const std::function<std::int64_t(const double* values, std::int64_t n)>& count, int mostRows) {
  const int width = source.GetWidth();
  const int height = source.GetHeight();
  constexpr int kRows = 32;
  const int pieces = (height - 1) / kRows + 1;
  const int looked = std::clamp(mostRows / kRows, 1, pieces);
  std::vector<double> values(static_cast<std::size_t>(width) * kRows);
  std::int64_t counted = 0;
  std::int64_t all = 0;
  for (int b = 0; b < bandCount; ++b) {
    for (int i = 0; i < looked; ++i) {
      const int top = static_cast<int>(std::int64_t{i} * pieces / looked) * kRows;
      const int rows = std::min(kRows, height - top);
      if (source.GetRasterBand(b)->ReadBlock(0, top, width, rows, values.data(), width, rows, PDT_FLOAT64) != 0) {
        throw RunError(ERR_READ, platform::messages::kReadFailed);
      }
      const std::int64_t n = std::int64_t{width} * rows;
      counted += count(values.data(), n);
      all += n;
    }
  }
  return static_cast<double>(counted) / static_cast<double>(all);
}

}  // namespace fusion
