#include "framework/run/block_buffers.h"

#include <algorithm>

namespace fusion {
namespace {

std::int64_t SlackOf(const CRect& rect) { return rect.Area() > 0 ? std::int64_t{rect.Width()} + 2 : 0; }

CRect OnRaster(const CRect& rect, const CRasterBand& band) {
  return {std::max(rect.left, 0), std::max(rect.top, 0), std::min(rect.right, band.GetWidth()),
          std::min(rect.bottom, band.GetHeight())};
}

/// Makes a larger rectangle of one that was read, its edges repeated.
void Spread(double* values, const CRect& read, const CRect& rect) {
  const std::ptrdiff_t from = read.Width();
  const std::ptrdiff_t to = rect.Width();
  const std::ptrdiff_t before = read.left - rect.left;
  const std::ptrdiff_t above = read.top - rect.top;
  const std::ptrdiff_t below = rect.bottom - read.bottom;
  double* const first = values + above * to;
  // From the last row on: none is moved over one that is still to be moved.
  for (std::ptrdiff_t row = read.Height() - 1; row >= 0; --row) {
    double* const line = first + row * to;
    std::copy_backward(values + row * from, values + (row + 1) * from, line + before + from);
    std::fill_n(line, before, line[before]);
    std::fill_n(line + before + from, to - before - from, line[before + from - 1]);
  }
  double* const last = first + (read.Height() - 1) * to;
  for (std::ptrdiff_t row = 0; row < above; ++row) std::copy_n(first, to, values + row * to);
  for (std::ptrdiff_t row = 1; row <= below; ++row) std::copy_n(last, to, last + row * to);
}

}  // namespace

CRect BlockGrid::Cell(int column, int row, int stepX, int stepY) const {
  // In 64 bits: the last block of a very large raster would otherwise overflow before it is clipped.
  const auto clip = [](std::int64_t value, int limit) {
    return static_cast<std::int32_t>(std::min<std::int64_t>(value, limit));
  };
  const std::int64_t x = static_cast<std::int64_t>(column) * stepX;
  const std::int64_t y = static_cast<std::int64_t>(row) * stepY;
  return Shift({static_cast<std::int32_t>(x), static_cast<std::int32_t>(y), clip(x + blockWidth, width),
                clip(y + blockHeight, height)},
               left, top);
}

CRect BlockGrid::Block(int column, int row) const {
  if (apart <= blockHeight) return Cell(column, row, blockWidth, blockHeight);
  // The multiples of the golden ratio lie evenly between two whole numbers, however many there are.
  constexpr std::uint32_t kGoldenRatio = 2654435769U;  // of 2^32
  const std::uint32_t share = static_cast<std::uint32_t>(row) * kGoldenRatio;
  const auto places = static_cast<std::uint64_t>(apart / blockHeight);
  const std::int64_t first = std::int64_t{row} * apart;
  const std::int64_t from = first + blockHeight * static_cast<std::int64_t>(share * places >> 32U);
  const auto blockTop = static_cast<int>(from < height ? from : first);
  BlockGrid moved = *this;
  moved.apart = 0;
  moved.top += blockTop;
  moved.height -= blockTop;
  return moved.Block(column, 0);
}

CRect BlockGrid::After(const CRect& block) const {
  const int column = (block.left - left) / blockWidth + 1;
  const int row = (block.top - top) / Step();
  if (column < Across()) return Block(column, row);
  return row + 1 < Down() ? Block(0, row + 1) : CRect();
}

BlockGrid PiecesOf(const CRect& block) {
  constexpr int kPixels = 1 << 18;
  const int width = std::max(block.Width(), 1);
  return {width, block.Height(), width, std::max(kPixels / width, 1)};
}

CRect Shift(const CRect& rect, int dx, int dy) {
  // A caller's offset may be anything: off the range of an int the rectangle collapses at its end.
  const auto add = [](std::int64_t value, int offset) {
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(value + offset, INT32_MIN, INT32_MAX));
  };
  return {add(rect.left, dx), add(rect.top, dy), add(rect.right, dx), add(rect.bottom, dy)};
}

CRect BeyondEdges(const CRect& rect, int rasterWidth, int rasterHeight) {
  if (rect.Area() == 0) return rect;
  constexpr int kReach = kRepeatedEdge;
  return {rect.left <= 0 ? -kReach : rect.left, rect.top <= 0 ? -kReach : rect.top,
          rect.right >= rasterWidth ? rasterWidth + kReach : rect.right,
          rect.bottom >= rasterHeight ? rasterHeight + kReach : rect.bottom};
}

BandBuffers::BandBuffers(std::size_t count, std::int64_t capacity)
    : m_buffers(count),
      m_expected(count),
      m_pointers(count, nullptr),
      m_held(count),
      m_gaps(count, 0),
      m_capacity(capacity) {
  Allocate();
}

BandBuffers::Buffer BandBuffers::NewBuffer() const {
  return std::make_unique_for_overwrite<double[]>(static_cast<std::size_t>(m_capacity + m_slack));
}

void BandBuffers::WaitForReader() {
  if (m_reader) m_reader->Wait();
}

void BandBuffers::Allocate() {
  WaitForReader();
  for (auto& expected : m_expected) expected = Expected();
  for (auto& buffer : m_buffers) buffer.reset();
  std::fill(m_held.begin(), m_held.end(), CRect());
  for (std::size_t i = 0; i < m_buffers.size(); ++i) {
    m_buffers[i] = NewBuffer();
    m_pointers[i] = m_buffers[i].get();
  }
}

bool BandBuffers::Fits(const CRect& rect) const { return rect.Area() + SlackOf(rect) <= m_capacity + m_slack; }

void BandBuffers::Reserve(const CRect& rect) {
  if (Fits(rect)) return;
  m_capacity = std::max(rect.Area(), m_capacity);
  m_slack = std::max(SlackOf(rect), m_slack);
  Allocate();
}

bool BandBuffers::ReadInto(double* values, std::size_t i, CRasterBand& band, const CRect& rect,
                           unsigned char& gaps) const {
  bool any = false;
  const CRect read = m_repeatsEdges ? OnRaster(rect, band) : rect;
  const bool done = m_readSamples ? m_readSamples(band, static_cast<int>(i), read, values, any)
                                  : band.ReadSamples(read, values, any) == 0;
  if (!done) return false;
  gaps = any;
  if (m_afterRead) m_afterRead(band, static_cast<int>(i), values, read.Area());
  if (!(read == rect)) Spread(values, read, rect);
  std::fill_n(values + rect.Area(), SlackOf(rect), 0.0);
  return true;
}

void BandBuffers::Expect(std::size_t i, CRasterBand* band, const CRect& rect, platform::TaskQueue& reader) {
  if (!band || rect.Area() == 0 || !Fits(rect)) return;
  Expected& expected = m_expected[i];
  if (expected.band) WaitForReader();
  m_reader = &reader;
  if (!expected.values) expected.values = NewBuffer();
  expected.band = band;
  expected.rect = rect;
  reader.Add([this, &expected, i] {
    expected.read = ReadInto(expected.values.get(), i, *expected.band, expected.rect, expected.gaps);
  });
}

bool BandBuffers::TakeExpected(std::size_t i, const CRasterBand* band, const CRect& rect, bool& read) {
  Expected& expected = m_expected[i];
  if (!expected.band) return false;
  WaitForReader();
  const bool same = expected.band == band && expected.rect == rect;
  expected.band = nullptr;
  if (!same) return false;
  std::swap(m_buffers[i], expected.values);
  m_pointers[i] = m_buffers[i].get();
  m_gaps[i] = expected.gaps;
  read = expected.read;
  return true;
}

bool BandBuffers::Read(std::size_t i, CRasterBand* band, const CRect& rect) {
  if (!band) return false;
  Reserve(rect);
  m_held[i] = CRect();
  bool read = false;
  return TakeExpected(i, band, rect, read) ? read : ReadInto(m_pointers[i], i, *band, rect, m_gaps[i]);
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
