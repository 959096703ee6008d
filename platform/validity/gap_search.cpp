#include "platform/validity/gap_search.h"

#include <cstdint>

#include "platform/algorithm/base_progress.h"
#include "platform/raster/cache_room.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/read_window.h"

namespace platform {

bool HasGaps(const CRasterSource& source, const std::vector<int>& bands, const CBaseProgress& progress) {
  std::vector<CRasterBand*> searched;
  for (const int b : bands) {
    CRasterBand* band = source.GetRasterBand(b);
    if (band && band->MayHoldGaps()) searched.push_back(band);
  }
  if (searched.empty()) return false;
  constexpr std::int64_t kMostValues = std::int64_t{1} << 18;
  const WindowGrid windows = ReadWindows(*searched[0], kMostValues);
  CacheRoom rows;
  rows.Reserve(CacheRoom::BytesToShare(source, windows.step.Height()));
  std::vector<double> values(static_cast<std::size_t>(windows.step.Area()));
  for (std::int64_t i = 0; i < windows.Count(); ++i) {
    if (progress.IsCancelRequested()) return false;
    for (CRasterBand* band : searched) {
      bool gaps = false;
      if (band->ReadSamples(windows.At(i), values.data(), gaps) != 0) return false;
      if (gaps) return true;
    }
  }
  return false;
}

}  // namespace platform
