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
  /// The taps of up to kPassPiece points whose whole neighbourhood lies inside the rectangle.
  struct Piece {
    int count = 0;
    std::array<int, kPassPiece> place;  ///< in the caller's rows
    Indices first;                      ///< linear index of the first tap
    Indices second;                     ///< bilinear: of the tap right of it
    Indices below;                      ///< bilinear: of both in the row below
    Indices belowSecond;
    Row columnFraction;
    Row rowFraction;
    Row columnToSecond;
    Row rowToSecond;
  };

  bool Place(double x, double y, Piece& piece, int place) const;
  void Finish(Piece& piece, double* const* out);
  void ResampleBand(const double* band, const Piece& piece, double* out);

  ResampleType m_type;
  std::vector<const double*> m_bands;
  CRect m_rect;
  std::int64_t m_stride;
  Piece m_piece;
  Row m_columnWeights[4];
  Row m_rowWeights[4];
  Row m_lines[4];
  std::vector<double> m_point;
};

}  // namespace fusion
