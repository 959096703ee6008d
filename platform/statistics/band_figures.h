#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

#include "platform/statistics/row_statistics.h"

namespace platform {

/// Values in a window of a pass over a whole band. The last bits of the figures depend on it.
constexpr std::int64_t kStatisticsWindow = std::int64_t{1} << 20;

/// Range and moments of a band, of which window after window is added, each row by row.
class BandFigures {
 public:
  /// @param noData value to leave out besides NaN and infinities; NaN for none
  explicit BandFigures(double noData = std::numeric_limits<double>::quiet_NaN()) : m_moments(noData), m_range(noData) {}

  void Add(const double* values, std::int64_t count) {
    // In pieces that stay in the processor's cache for both.
    constexpr std::int64_t kPiece = std::int64_t{1} << 14;
    for (std::int64_t i = 0; i < count; i += kPiece) {
      m_moments.Add(values + i, std::min(kPiece, count - i));
      m_range.Add(values + i, std::min(kPiece, count - i));
    }
  }

  /// Whether no value counted.
  bool IsEmpty() const { return m_range.IsEmpty(); }
  double Minimum() const { return m_range.Minimum(); }
  double Maximum() const { return m_range.Maximum(); }
  double Mean() const { return m_moments.Mean(); }
  double StdDev() const { return m_moments.StdDev(); }

 private:
  RowStatistics m_moments;
  RowRange m_range;
};

}  // namespace platform
