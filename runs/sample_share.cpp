#include "runs/sample_share.h"

#include <algorithm>
#include <vector>

#include "platform/algorithm/base_algorithm.h"
#include "platform/algorithm/messages.h"
#include "runs/failures.h"

namespace fusion {

double SampleShare(const CRasterSource& source, int bandCount, const std::function<bool(double)>& question) {
  const int width = source.GetWidth();
  const int height = source.GetHeight();
  constexpr int kRows = 64;
  std::vector<double> values(static_cast<std::size_t>(width) * kRows);
  std::int64_t count = 0;
  for (int b = 0; b < bandCount; ++b) {
    for (int top = 0, rows = 0; top < height; top += rows) {
      rows = std::min(kRows, height - top);
      if (source.GetRasterBand(b)->ReadBlock(0, top, width, rows, values.data(), width, rows, PDT_FLOAT64) != 0) {
        throw RunError(ERR_READ, platform::messages::kReadFailed);
      }
      count += std::count_if(values.begin(), values.begin() + std::ptrdiff_t{width} * rows, question);
    }
  }
  return static_cast<double>(count) / (static_cast<double>(width) * height * bandCount);
}

}  // namespace fusion
