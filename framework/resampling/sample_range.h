#pragma once

#include <cstdint>
#include <vector>

#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/raster_types.h"
#include "platform/system/workers.h"

namespace fusion {

/// What a value is to lie between.
struct SampleLimits {
  double least;
  double most;
};

/// Keeps values that the bicubic kernel has made between the least and the largest of the samples it has made them
/// from, beyond which it swings beside sharp edges. Made once for a block, for all its rows.
class SampleRange {
 public:
  /// @param bands samples of rect; those that are NaN are none
  /// @param workers who share the bands; null: the caller alone
  SampleRange(const double* const* bands, int bandCount, const CRect& rect, platform::Workers* workers = nullptr);

  /// Whether a kernel makes values beyond its samples at all.
  static bool IsNeededBy(ResampleType type);

  /// Cuts one row of values per band at count positions. Values at positions off the rectangle are left alone.
  void Keep(const double* x, const double* y, int count, double* const* values) const;

 private:
  friend class RowLimits;

  CRect m_rect;
  /// Of each band the limits around each sample, those of the sixteen from the one before it on both axes to the two
  /// behind it; before the first sample stands what limits nothing.
  std::vector<std::vector<SampleLimits>> m_bands;
};

/// What SampleRange::Keep does, for rows whose columns all have the same positions: the limits at the columns are
/// fetched once for all rows that share them. One per thread.
class RowLimits {
 public:
  explicit RowLimits(const SampleRange& range) : m_range(range) {}

  /// Column positions of the rows that follow.
  void SetColumns(const double* x, int count);
  /// Cuts one row of values per band at the columns set and the row position y.
  void Keep(double y, double* const* values);

 private:
  void Fetch(std::int64_t row);

  const SampleRange& m_range;
  std::vector<std::int32_t> m_columns;  ///< of the rectangle, below 0 off it
  std::int64_t m_row = -1;              ///< of the rectangle, whose limits are at hand
  std::vector<std::vector<SampleLimits>> m_bands;
};

}  // namespace fusion
