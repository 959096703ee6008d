#pragma once

#include <vector>

#include "platform/raster/raster_types.h"
#include "platform/statistics/row_statistics.h"
#include "platform/system/workers.h"

namespace fusion {

/// The range of a result, over all its bands, taken from blocks that are fused for this alone.
class BlockRange {
 public:
  /// What the blocks are to be fused in, so that nothing is cut or rounded.
  static constexpr PixelDataType kFusedType = PDT_FLOAT64;

  /// @param masked 0 marks pixels without data in the fused blocks
  /// @param workers who look at rows; null: the caller alone
  BlockRange(int bandCount, bool masked, platform::Workers* workers);

  /// @param bands one buffer of kFusedType per band
  /// @param inside one byte per pixel, 0 outside the area of interest; empty where all are inside
  platform::RowRange RangeOf(void* const* bands, const CRect& rect, const std::vector<unsigned char>& inside) const;
  void Add(const platform::RowRange& part) { m_range.Add(part); }
  const platform::RowRange& Range() const { return m_range; }

 private:
  int m_bandCount;
  double m_noData;
  platform::RowRange m_range;
  platform::Workers* m_workers;
};

}  // namespace fusion
