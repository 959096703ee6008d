#include "platform/processing/filtered_band.h"

#include <algorithm>
#include <cstdint>

#include "platform/algorithm/stored_row.h"
#include "platform/system/workers.h"
#include "platform/validity/gap_marks.h"

namespace platform {
namespace {

// Rows that are read at a time are still in the processor's cache when they are filtered,
constexpr std::int64_t kChunkValues = std::int64_t{1} << 17;
// and the rows under the kernel stay there when they are filtered some columns at a time.
constexpr int kTileWidth = 1024;

/// Some columns of a rectangle on their way through the kernel.
struct Tile {
  Columns columns;
  KernelPasses passes;
  StoredRow stored;
  bool gaps = false;
};

}  // namespace

FilteredBand::FilteredBand(const CRasterSource& source, int band, const Kernel& kernel)
    : m_source(source), m_band(band), m_kernel(kernel) {}

bool FilteredBand::Read(const CRect& rect, double* values, bool& gaps) const {
  gaps = false;
  const bool masked = m_source.IsMaskNoData();
  const int width = m_source.GetWidth();
  const int height = m_source.GetHeight();
  if (rect.left < 0 || rect.top < 0 || rect.right > width || rect.bottom > height || rect.Area() == 0) return false;

  const Columns read = {std::max(rect.left - m_kernel.centerX, 0),
                        std::min(rect.right + m_kernel.width - 1 - m_kernel.centerX, width)};
  const int step = static_cast<int>(std::clamp<std::int64_t>(kChunkValues / read.Width(), 1, rect.Height()));
  RowBuffer rows[2] = {{m_source, {m_band}, m_kernel.Halo(), step, read},
                       {m_source, {m_band}, m_kernel.Halo(), step, read}};
  std::vector<Tile> tiles;
  for (int left = rect.left; left < rect.right; left += kTileWidth) {
    const Columns columns = {left, std::min(left + kTileWidth, rect.right)};
    tiles.push_back({columns, KernelPasses(m_kernel, width, height, columns), StoredRow(PDT_FLOAT32, false, masked)});
  }
  int slot = 0;
  for (int first = rect.top; first < rect.bottom; first += step, slot = 1 - slot) {
    const int count = std::min(step, rect.bottom - first);
    const RowBuffer& chunk = rows[slot];
    if (!rows[slot].Load(first, count, rows[1 - slot])) return false;
    ForEach(m_source.GetWorkers(), static_cast<int>(tiles.size()), [&](int i) {
      Tile& tile = tiles[static_cast<std::size_t>(i)];
      for (int row = first; row < first + count; ++row) {
        double* out = values + std::ptrdiff_t{row - rect.top} * rect.Width() + (tile.columns.left - rect.left);
        if (masked) {
          tile.passes.ProcessRowWithGaps(chunk, row, out);
        } else {
          tile.passes.ProcessRow(chunk, row, out);
        }
        tile.stored.Pass(out, nullptr, tile.columns.Width());
        tile.gaps = tile.gaps || (masked && HasGap(out, static_cast<std::size_t>(tile.columns.Width())));
      }
    });
  }
  gaps = std::any_of(tiles.begin(), tiles.end(), [](const Tile& tile) { return tile.gaps; });
  return true;
}

}  // namespace platform
