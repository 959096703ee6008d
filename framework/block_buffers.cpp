#include "framework/block_buffers.h"

#include <algorithm>

namespace fusion {

CRect BlockGrid::Cell(int column, int row, int stepX, int stepY) const {
  // In 64 bits: the last block of a very large raster would otherwise overflow before it is clipped.
  const auto clip = [](std::int64_t value, int limit) {
    return static_cast<std::int32_t>(std::min<std::int64_t>(value, limit));
  };
  const std::int64_t left = static_cast<std::int64_t>(column) * stepX;
  const std::int64_t top = static_cast<std::int64_t>(row) * stepY;
  return {static_cast<std::int32_t>(left), static_cast<std::int32_t>(top), clip(left + blockWidth, width),
          clip(top + blockHeight, height)};
}

CRect Shift(const CRect& rect, int dx, int dy) {
  // A caller's offset may be anything: off the range of an int the rectangle collapses at its end.
  const auto add = [](std::int64_t value, int offset) {
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(value + offset, INT32_MIN, INT32_MAX));
  };
  return {add(rect.left, dx), add(rect.top, dy), add(rect.right, dx), add(rect.bottom, dy)};
}

BandBuffers::BandBuffers(std::size_t count, std::int64_t capacity)
    : m_buffers(count), m_pointers(count, nullptr), m_held(count), m_capacity(capacity) {
  Allocate();
}

void BandBuffers::Allocate() {
  for (auto& buffer : m_buffers) buffer.reset();
  std::fill(m_held.begin(), m_held.end(), CRect());
  for (std::size_t i = 0; i < m_buffers.size(); ++i) {
    m_buffers[i] = std::make_unique_for_overwrite<double[]>(static_cast<std::size_t>(m_capacity + m_slack));
    m_pointers[i] = m_buffers[i].get();
  }
}

void BandBuffers::Reserve(const CRect& rect) {
  const std::int64_t area = rect.Area();
  const std::int64_t slack = area > 0 ? std::int64_t{rect.Width()} + 2 : 0;
  if (area + slack <= m_capacity + m_slack) return;
  m_capacity = std::max(area, m_capacity);
  m_slack = std::max(slack, m_slack);
  Allocate();
}

bool BandBuffers::Read(std::size_t i, CRasterBand* band, const CRect& rect) {
  if (!band) return false;
  Reserve(rect);
  m_held[i] = CRect();
  double* values = m_pointers[i];
  if (band->ReadBlock(rect.left, rect.top, rect.Width(), rect.Height(), values, rect.Width(), rect.Height(),
                      PDT_FLOAT64) != 0) {
    return false;
  }
  std::fill_n(values + rect.Area(), rect.Width() + 2, 0.0);
  return true;
}

bool BandBuffers::ReadOn(std::size_t i, CRasterBand* band, const CRect& rect) {
  if (!band) return false;
  Reserve(rect);
  const CRect held = m_held[i];
  const bool goesOn = held.Area() > 0 && held.left == rect.left && held.right == rect.right && held.top <= rect.top &&
                      held.bottom > rect.top && held.bottom <= rect.bottom;
  if (!goesOn) {
    if (!Read(i, band, rect)) return false;
    m_held[i] = rect;
    return true;
  }
  double* values = m_pointers[i];
  const std::ptrdiff_t width = rect.Width();
  const std::ptrdiff_t kept = held.bottom - rect.top;
  const std::ptrdiff_t first = rect.top - held.top;
  if (first > 0) std::copy(values + first * width, values + (first + kept) * width, values);
  m_held[i] = CRect();
  const int fresh = rect.bottom - held.bottom;
  if (fresh > 0 && band->ReadBlock(rect.left, held.bottom, rect.Width(), fresh, values + kept * width, rect.Width(),
                                   fresh, PDT_FLOAT64) != 0) {
    return false;
  }
  std::fill_n(values + rect.Area(), rect.Width() + 2, 0.0);
  m_held[i] = rect;
  return true;
}

}  // namespace fusion
