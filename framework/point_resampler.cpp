#include "framework/point_resampler.h"

#include <algorithm>

namespace fusion {

PointResampler::PointResampler(ResampleType type, const double* const* bands, int bandCount, const CRect& rect)
    : m_type(type),
      m_bands(bands, bands + bandCount),
      m_rect(rect),
      m_stride(static_cast<std::int64_t>(rect.right) - rect.left),
      m_point(static_cast<std::size_t>(bandCount)) {}

/// Adds a point to the piece; false where it has to be resampled by itself.
bool PointResampler::Place(double x, double y, Piece& piece, int place) const {
  // Linear indices of a larger rectangle would not fit.
  if (m_rect.Area() > INT32_MAX) return false;
  const auto at = static_cast<std::size_t>(piece.count);
  const auto index = [this](std::int64_t row, std::int64_t column) {
    return static_cast<std::int32_t>(row * m_stride + column);
  };
  if (m_type == RT_BICUBIC) {
    if (!BicubicFitsColumn(x, m_rect) || !BicubicFitsRow(y, m_rect)) return false;
    const int column = static_cast<int>(x);
    const int row = static_cast<int>(y);
    const std::int64_t firstColumn = std::int64_t{column} - m_rect.left - 1;
    const std::int64_t firstRow = std::int64_t{row} - m_rect.top - 1;
    if (firstColumn < 0 || firstRow < 0 || firstRow + 4 > m_rect.Height()) return false;
    piece.first[at] = index(firstRow, firstColumn);
    piece.columnFraction[at] = x - column;
    piece.rowFraction[at] = y - row;
  } else if (m_type == RT_BILINEAR) {
    if (!BilinearFitsColumn(x, m_rect) || !BilinearFitsRow(y, m_rect)) return false;
    const LinearTaps c = MakeLinearTaps(x, m_rect.left);
    const LinearTaps r = MakeLinearTaps(y, m_rect.top);
    if (c.first < 0 || r.first < 0 || c.second >= m_stride || r.second >= m_rect.Height()) return false;
    piece.first[at] = index(r.first, c.first);
    piece.second[at] = index(r.first, c.second);
    piece.below[at] = index(r.second, c.first);
    piece.belowSecond[at] = index(r.second, c.second);
    piece.columnFraction[at] = c.toFirst;
    piece.columnToSecond[at] = c.toSecond;
    piece.rowFraction[at] = r.toFirst;
    piece.rowToSecond[at] = r.toSecond;
  } else if (m_type == RT_NEAREST) {
    const std::int64_t column = MakeNearestTap(x, m_rect.left, m_rect.Width()).index;
    const std::int64_t row = MakeNearestTap(y, m_rect.top, m_rect.Height()).index;
    if (column >= m_stride || row >= m_rect.Height()) return false;
    piece.first[at] = index(row, column);
  } else {
    return false;
  }
  piece.place[at] = place;
  ++piece.count;
  return true;
}

void PointResampler::ResampleBand(const double* band, const Piece& piece, double* out) {
  const int n = piece.count;
  if (m_type == RT_BICUBIC) {
    for (std::size_t j = 0; j < 4; ++j) {
      CombineCubic(band + static_cast<std::int64_t>(j) * m_stride, piece.first.data(), m_columnWeights[0].data(),
                   m_columnWeights[1].data(), m_columnWeights[2].data(), m_columnWeights[3].data(), n,
                   m_lines[j].data());
    }
    const double* const lines[] = {m_lines[0].data(), m_lines[1].data(), m_lines[2].data(), m_lines[3].data()};
    const double* const weights[] = {m_rowWeights[0].data(), m_rowWeights[1].data(), m_rowWeights[2].data(),
                                     m_rowWeights[3].data()};
    BlendCubicPoints(lines, weights, n, out);
  } else if (m_type == RT_BILINEAR) {
    CombineLinear(band, piece.first.data(), piece.second.data(), piece.columnFraction.data(),
                  piece.columnToSecond.data(), n, m_lines[0].data());
    CombineLinear(band, piece.below.data(), piece.belowSecond.data(), piece.columnFraction.data(),
                  piece.columnToSecond.data(), n, m_lines[1].data());
    BlendLinearPoints(m_lines[0].data(), m_lines[1].data(), piece.rowToSecond.data(), piece.rowFraction.data(), n, out);
  } else {
    PickNearest(band, piece.first.data(), n, out);
  }
}

void PointResampler::Finish(Piece& piece, double* const* out) {
  if (piece.count == 0) return;
  if (m_type == RT_BICUBIC) {
    double* const columns[] = {m_columnWeights[0].data(), m_columnWeights[1].data(), m_columnWeights[2].data(),
                               m_columnWeights[3].data()};
    double* const rows[] = {m_rowWeights[0].data(), m_rowWeights[1].data(), m_rowWeights[2].data(),
                            m_rowWeights[3].data()};
    CubicWeights(piece.columnFraction.data(), piece.count, columns);
    CubicWeights(piece.rowFraction.data(), piece.count, rows);
  }
  const bool together = piece.place[static_cast<std::size_t>(piece.count - 1)] - piece.place[0] == piece.count - 1;
  Row values;
  for (std::size_t b = 0; b < m_bands.size(); ++b) {
    if (together) {
      ResampleBand(m_bands[b], piece, out[b] + piece.place[0]);
      continue;
    }
    ResampleBand(m_bands[b], piece, values.data());
    for (std::size_t i = 0; i < static_cast<std::size_t>(piece.count); ++i) out[b][piece.place[i]] = values[i];
  }
  piece.count = 0;
}

void PointResampler::Resample(const double* x, const double* y, int count, double* const* out) {
  for (int i = 0; i < count; ++i) {
    if (!Place(x[i], y[i], m_piece, i)) {
      std::fill(m_point.begin(), m_point.end(), 0.0);
      ResamplePoint(m_type, x[i], y[i], m_bands.data(), static_cast<int>(m_bands.size()), m_rect, m_point.data());
      for (std::size_t b = 0; b < m_point.size(); ++b) out[b][i] = m_point[b];
    }
    if (m_piece.count == kPassPiece) Finish(m_piece, out);
  }
  Finish(m_piece, out);
}

}  // namespace fusion
