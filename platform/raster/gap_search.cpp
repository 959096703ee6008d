#include "platform/raster/gap_search.h"

#include <algorithm>
#include <cstdint>

#include "platform/algorithm/base_progress.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/read_window.h"
#include "platform/raster/row_cache.h"

namespace platform {

bool HasGaps(const CRasterSource& source, const std::vector<int>& bands, const CBaseProgress& progress) {
  std::vector<CRasterBand*> searched;
  for (const int b : bands) {
    CRasterBand* band = source.GetRasterBand(b);
    if (band && band->MayHoldGaps()) searched.push_back(band);
  }
  if (searched.empty()) return false;
  constexpr std::int64_t kMostValues = std::int64_t{1} << 18;
  const CRect step = ReadWindow(*searched[0], kMostValues);
  RowCache rows;
  rows.Reserve(RowCache::BytesToShare(source, step.Height()));
  std::vector<double> values(static_cast<std::size_t>(step.Area()));
  for (int top = 0; top < source.GetHeight(); top += step.bottom) {
    for (int left = 0; left < source.GetWidth(); left += step.right) {
      if (progress.IsCancelRequested()) return false;
      const CRect rect(left, top, std::min(left + step.right, source.GetWidth()),
                       std::min(top + step.bottom, source.GetHeight()));
      for (CRasterBand* band : searched) {
        bool gaps = false;
        if (band->ReadSamples(rect, values.data(), gaps) != 0) return false;
        if (gaps) return true;
      }
    }
  }
  return false;
}

}  // namespace platform
