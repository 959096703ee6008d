#pragma once

#include <cstdint>
#include <vector>

#include "framework/resampling/point_resampler.h"
#include "framework/resampling/taps.h"
#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/raster_types.h"

namespace fusion {

/// Resamples whole rows, bit for bit as ResamplePoint does point by point.
///
/// Where a column's position depends on the column alone and a row's on the row alone, SetColumns computes the taps of
/// all columns once, and the pass along a multispectral row is done once and reused for every output row that needs it.
class RowResampler {
 public:
  RowResampler(ResampleType type, const double* const* bands, int bandCount, const CRect& rect);

  /// Column positions of the rows that follow.
  void SetColumns(const double* x, int count);
  /// One row of values per band at the columns set and the row position y.
  void ResampleRow(double y, double* const* out);
  /// One row of values per band at arbitrary positions.
  void ResamplePoints(const double* x, const double* y, int count, double* const* out) {
    m_points.Resample(x, y, count, out);
  }

 private:
  struct Line {
    std::int64_t row = -1;
    std::vector<double> values;  ///< fast columns, band after band
  };

  template <typename Kernel>
  void PlaceColumns();
  /// Answers false for a row whose neighbourhood does not lie inside.
  template <typename Kernel>
  bool ResampleFast(double y, double* const* out);
  template <typename Kernel>
  const double* CombineLine(std::int64_t row);
  void ResampleSlow(double y, int from, int to, double* const* out);
  int FastCount() const { return m_fastEnd - m_fastBegin; }

  ResampleType m_type;
  std::vector<const double*> m_bands;
  CRect m_rect;
  std::int64_t m_stride;
  std::vector<double> m_x;
  int m_fastBegin = 0;  ///< columns whose whole neighbourhood lies inside the rectangle
  int m_fastEnd = 0;
  std::vector<std::int32_t> m_index[kMostTaps];  ///< each tap of the fast columns
  std::vector<double> m_weight[kMostTaps];
  Line m_lines[kMostTaps];  ///< the last rows combined along their columns, by row modulo kMostTaps
  std::vector<double> m_point;
  PointResampler m_points;
};

}  // namespace fusion
