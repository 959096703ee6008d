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
  std::vector<double> ms;  ///< a row of the multispectral samples under the fused pixels
  std::vector<std::int32_t> bins;
};

/// Some rows of a block, and the multispectral cells under them.
struct SharedRows {
  int top;
  int bottom;
  int width;
  const std::vector<std::int64_t>& cells;  ///< of a row more, where the block has one

  const std::int64_t* Cells(int y) const {
    return cells.data() + static_cast<std::ptrdiff_t>(y - top) * static_cast<std::ptrdiff_t>(width);
  }
};

/// Calls work(room, i, rows) for count bands of a block, some rows after others, as platform::ForEachWith does it. A
/// band's sums go through its rows in their order, whoever takes them.
/// @param cells what each thread gets its own of
/// @param read what the multispectral buffers hold
template <typename Work>
void ForBands(platform::Workers* workers, int count, const MsCells& cells, const CRect& block, const CRect& read,
              const Work& work) {
  // So many that the bands find their cells, which cost more than themselves under reprojection, in the cache.
  constexpr int kCells = 1 << 17;
  const int width = block.Width();
  const int step = std::max(kCells / std::max(width, 1), 1);
  const auto makeRoom = [&] { return BandRoom{std::vector<double>(static_cast<std::size_t>(width)), {}}; };
  platform::SpareStates rooms(workers, makeRoom);
  const auto ownCells = [&] { return cells; };
  platform::SpareStates mappers(workers, ownCells);
  std::vector<std::int64_t> shared;
  for (int top = block.top; top < block.bottom; top += step) {
    const SharedRows rows{top, std::min(top + step, block.bottom), width, shared};
    const int mapped = std::min(rows.bottom + 1, block.bottom) - top;
    shared.resize(static_cast<std::size_t>(mapped) * static_cast<std::size_t>(width));
    platform::ForEachWith(
        workers, mapped, [&] { return mappers.Take(); },
        [&](auto& mapper, int i) {
          mapper->Row(top + i, block, read, shared.data() + static_cast<std::ptrdiff_t>(i) * width);
        });
    platform::ForEachWith(
        workers, count, [&] { return rooms.Take(); }, [&](auto& room, int i) { work(*room, i, rows); });
  }
}

}  // namespace fusion
