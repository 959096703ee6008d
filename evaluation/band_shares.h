#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "evaluation/ms_cells.h"
#include "platform/system/workers.h"

namespace fusion {

/// What a thread works on a band with.
struct BandRoom {
  explicit BandRoom(std::size_t width) : ms(width), msValid(width), valid(width), bins(width) {}

  std::vector<double> ms;       ///< a row of the multispectral samples under the fused pixels
  std::vector<double> msValid;  ///< for each of them whether it is valid, 1 or 0
  double msSum = 0.0;           ///< of the valid ones
  std::int64_t msCount = 0;
  std::vector<double> valid;  ///< for each fused pixel of a row whether it counts, 1 or 0
  std::vector<std::int32_t> bins;
};

/// Some rows of a block, and the multispectral cells under them and a row more, where the block has one.
struct SharedRows {
  int top;
  int bottom;
  int width;
  const std::int64_t* cells;   ///< of each row; of all of them without their starts where these are told
  const std::int64_t* starts;  ///< of each row, which all of its cells are counted from; else null

  void Gather(const double* band, int y, double* out) const {
    const std::ptrdiff_t row = y - top;
    if (starts) {
      fusion::Gather(band + starts[row], cells, width, out);
    } else {
      fusion::Gather(band, cells + row * width, width, out);
    }
  }
  /// Whether the same multispectral samples lie under a row as under the one above it.
  bool Repeats(int y) const { return starts && y > top && starts[y - top] == starts[y - top - 1]; }
};

/// Calls work(room, i, rows) for count bands of a block, some rows after others, as platform::ForEachWith does it. A
/// band's sums go through its rows in their order, whoever takes them.
/// @param cells what each thread gets its own of
/// @param read what the multispectral buffers hold
template <typename Work>
void ForBands(platform::Workers* workers, int count, MsCells& cells, const CRect& block, const CRect& read,
              const Work& work) {
  // So many that the bands find their cells, which cost more than themselves under reprojection, in the cache.
  constexpr int kCells = 1 << 17;
  const int width = block.Width();
  const int step = std::max(kCells / std::max(width, 1), 1);
  const auto makeRoom = [&] { return BandRoom(static_cast<std::size_t>(width)); };
  platform::SpareStates rooms(workers, makeRoom);
  const auto ownCells = [&] { return cells; };
  platform::SpareStates mappers(workers, ownCells);
  std::vector<std::int64_t> mapped;
  for (int top = block.top; top < block.bottom; top += step) {
    const int bottom = std::min(top + step, block.bottom);
    const int mappedRows = std::min(bottom + 1, block.bottom) - top;
    SharedRows rows{top, bottom, width, nullptr, nullptr};
    if (cells.InRows()) {
      mapped.clear();
      for (int i = 0; i < mappedRows; ++i) mapped.push_back(cells.RowStart(top + i, block, read));
      rows.cells = cells.Columns(block, read).data();
      rows.starts = mapped.data();
    } else {
      mapped.resize(static_cast<std::size_t>(mappedRows) * static_cast<std::size_t>(width));
      platform::ForEachWith(
          workers, mappedRows, [&] { return mappers.Take(); },
          [&](auto& mapper, int i) {
            mapper->Row(top + i, block, read, mapped.data() + static_cast<std::ptrdiff_t>(i) * width);
          });
      rows.cells = mapped.data();
    }
    platform::ForEachWith(
        workers, count, [&] { return rooms.Take(); }, [&](auto& room, int i) { work(*room, i, rows); });
  }
}

}  // namespace fusion
