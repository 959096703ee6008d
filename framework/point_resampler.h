#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "framework/resampling.h"
#include "framework/resampling_passes.h"

namespace fusion {

/// Resamples at arbitrary positions, bit for bit as ResamplePoint does, but many points at a time.
class PointResampler {
 public:
  PointResampler(ResampleType type, const double* const* bands, int bandCount, const CRect& rect);

  /// One row of values per band at count positions.
  void Resample(const double* x, const double* y, int count, double* const* out);

 private:
  using Row = std::array<double, kPassPiece>;
  using Indices = std::array<std::int32_t, kPassPiece>;

  void ResampleNearest(int n, double* const* out);
  void ResampleLinear(int n, double* const* out);
  void ResampleCubic(int n, double* const* out);
  /// Calls work(samples, rows) for each group of bands.
  template <typename Work>
  void ForGroups(double* const* out, const Work& work);
  void InterleaveBands();

  ResampleType m_type;
  std::vector<const double*> m_bands;
  CRect m_rect;
  std::int64_t m_stride;
  PositionBox m_inner;  ///< positions whose whole neighbourhood lies inside the rectangle
  /// The samples of each kBandGroup bands, the last ones filled up with zeros, beside each other.
  std::vector<std::vector<double>> m_groups;
  // A piece of the row at work.
  Row m_x;
  Row m_y;
  std::array<std::int32_t, kPassPiece> m_isInner;
  Indices m_taps[4];
  Row m_columnWeights[4];
  Row m_rowWeights[4];
  Row m_unused;  ///< rows of the bands that a group is filled up with
  std::vector<double> m_point;
  std::vector<double*> m_out;
};

}  // namespace fusion
