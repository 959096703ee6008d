#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "framework/resampling/position_box.h"
#include "framework/resampling/taps.h"
#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/raster_types.h"

namespace fusion {

/// Resamples at arbitrary positions, bit for bit as ResamplePoint does, but many points at a time.
class PointResampler {
 public:
  PointResampler(ResampleType type, const double* const* bands, int bandCount, const CRect& rect);

  /// One row of values per band at count positions.
  void Resample(const double* x, const double* y, int count, double* const* out);

 private:
  using Row = std::array<double, kPassPiece>;

  template <typename Kernel>
  void ResampleInner(int n, double* const* out);
  /// Lays the samples of each bandsAtOnce bands beside each other, the last ones filled up with zeros.
  void InterleaveBands(int bandsAtOnce);

  ResampleType m_type;
  std::vector<const double*> m_bands;
  CRect m_rect;
  PositionBox m_inner;  ///< positions whose whole neighbourhood lies inside the rectangle
  std::vector<std::vector<double>> m_groups;
  // A piece of the row at work.
  Row m_x;
  Row m_y;
  std::array<std::int32_t, kPassPiece> m_isInner;
  PointTaps m_taps;
  Row m_unused;  ///< rows of the bands that a group is filled up with
  std::vector<double> m_point;
  std::vector<double*> m_out;
};

}  // namespace fusion
