#include "platform/algorithm/row_buffer.h"

#include <algorithm>
#include <utility>

namespace platform {

RowBuffer::RowBuffer(const CRasterSource& input, std::vector<int> bands, int halo, int chunkRows)
    : RowBuffer(input, std::move(bands), halo, chunkRows, {0, input.GetWidth()}) {}

RowBuffer::RowBuffer(const CRasterSource& input, std::vector<int> bands, int halo, int chunkRows,
                     const Columns& columns)
    : m_input(input),
      m_bands(std::move(bands)),
      m_left(columns.left),
      m_width(columns.Width()),
      m_height(input.GetHeight()),
      m_halo(halo),
      m_rows(m_bands.size()) {
  const auto rows = static_cast<std::size_t>(chunkRows) + 2 * static_cast<std::size_t>(halo);
  for (auto& band : m_rows) band.resize(rows * static_cast<std::size_t>(m_width));
  m_cache.Reserve(CacheRoom::BytesToShare(input, chunkRows));
}

double* RowBuffer::At(int index, int row) {
  return m_rows[static_cast<std::size_t>(index)].data() + static_cast<std::ptrdiff_t>(row - m_top) * m_width;
}

const double* RowBuffer::Row(int index, int row) const {
  row = std::clamp(row, 0, m_height - 1);
  return m_rows[static_cast<std::size_t>(index)].data() + static_cast<std::ptrdiff_t>(row - m_top) * m_width;
}

bool RowBuffer::Load(int first, int count, const RowBuffer& before) {
  m_top = std::max(0, first - m_halo);
  m_bottom = m_top;
  const int bottom = std::min(m_height - m_halo, first + count) + m_halo;
  const int keep = m_top >= before.m_top && m_top < before.m_bottom ? before.m_bottom - m_top : 0;
  for (int i = 0; i < BandCount(); ++i) {
    if (keep > 0) std::copy_n(before.Row(i, m_top), static_cast<std::ptrdiff_t>(keep) * m_width, At(i, m_top));
    if (m_top + keep < bottom && !ReadRows(i, m_top + keep, bottom)) return false;
  }
  m_bottom = bottom;
  return true;
}

bool RowBuffer::ReadRows(int index, int first, int end) {
  CRasterBand* band = m_input.GetRasterBand(m_bands[static_cast<std::size_t>(index)]);
  return band &&
         band->ReadBlock(m_left, first, m_width, end - first, At(index, first), m_width, end - first, PDT_FLOAT64) == 0;
}

}  // namespace platform
