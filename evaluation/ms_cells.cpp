#include "evaluation/ms_cells.h"

#include <algorithm>

#include "platform/raster/position_grid.h"

namespace fusion {

std::int64_t BufferCell(double position, int origin, int size) {
  // Beyond what an int holds the clamp decides, whichever the exact value.
  const double sane = position >= -1e9 && position <= 1e9 ? position : (position > 0.0 ? 1e9 : -1e9);
  const auto cell = static_cast<std::int64_t>(static_cast<int>(sane + 0.5)) - origin;
  return std::max<std::int64_t>(std::min<std::int64_t>(cell, std::int64_t{size} - 1), 0);
}

void Gather(const double* band, const std::int64_t* cells, int n, double* out) {
  for (int i = 0; i < n; ++i) out[i] = band[cells[i]];
}

MsCells::MsCells(const CRasterSource& fused, const CRasterSource& ms, const CReproject* reproject, int reprojectedShift)
    : m_toGround(fused.PixelToGround()),
      m_toPixel(ms.GroundToPixel()),
      m_msWidth(ms.GetWidth()),
      m_msHeight(ms.GetHeight()),
      m_reproject(reproject),
      m_shift(reprojectedShift),
      m_separable(!reproject && m_toGround.IsAxisAligned() && m_toPixel.IsAxisAligned()) {}

std::int64_t MsCells::RowStart(int y, const CRect& block, const CRect& read) const {
  const double gx = m_toGround.X(block.left + 0.5, y + 0.5);
  const double gy = m_toGround.Y(block.left + 0.5, y + 0.5);
  const double position = platform::SampleCoordinate(m_toPixel.Y(gx, gy), m_msHeight);
  return BufferCell(position, read.top, read.Height()) * read.Width();
}

const std::vector<std::int64_t>& MsCells::Columns(const CRect& block, const CRect& read) {
  const bool known = m_block.left == block.left && m_block.right == block.right && m_read.left == read.left &&
                     m_read.right == read.right && !m_columns.empty();
  if (known) return m_columns;
  m_block = block;
  m_read = read;
  m_columns.resize(static_cast<std::size_t>(block.Width()));
  for (std::size_t i = 0; i < m_columns.size(); ++i) {
    const double x = block.left + static_cast<double>(i) + 0.5;
    const double y = block.top + 0.5;
    const double column = m_toPixel.X(m_toGround.X(x, y), m_toGround.Y(x, y));
    m_columns[i] = BufferCell(platform::SampleCoordinate(column, m_msWidth), read.left, read.Width());
  }
  return m_columns;
}

void MsCells::Row(int y, const CRect& block, const CRect& read, std::int64_t* cells) {
  const auto n = static_cast<std::size_t>(block.Width());
  m_x.resize(n);
  m_y.resize(n);
  const double offset = m_reproject ? 0.0 : 0.5;
  const int shift = m_reproject ? m_shift : 0;
  for (std::size_t i = 0; i < n; ++i) {
    const double x = block.left + static_cast<double>(i) + shift + offset;
    m_x[i] = m_toGround.X(x, y + offset);
    m_y[i] = m_toGround.Y(x, y + offset);
  }
  if (m_reproject) {
    m_reproject->GetSrcPos(m_x.data(), m_y.data(), m_x.data(), m_y.data(), static_cast<int>(n));
  } else {
    platform::GroundToSamples(m_toPixel, m_msWidth, m_msHeight, static_cast<int>(n), m_x.data(), m_y.data());
  }
  for (std::size_t i = 0; i < n; ++i) {
    cells[i] = BufferCell(m_y[i], read.top, read.Height()) * read.Width() + BufferCell(m_x[i], read.left, read.Width());
  }
}

}  // namespace fusion
