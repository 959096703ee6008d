#pragma once

#include <cstdint>
#include <vector>

#include "evaluation/ms_cells.h"
#include "platform/system/workers.h"

namespace fusion {

/// What a thread works on a band with.
struct BandRoom {
  MsCells cells;
  std::vector<double> ms;  ///< a row of the multispectral samples under the fused pixels
  std::vector<std::int32_t> bins;
};

/// Calls work(room, i) for count bands of a block, each once, as platform::ForEachWith does it. A band's sums go
/// through its rows in their order, whoever takes them.
/// @param cells what each thread gets its own of
template <typename Work>
void ForBands(platform::Workers* workers, int count, const MsCells& cells, int width, const Work& work) {
  platform::ForEachWith(
      workers, count,
      [&] {
        return BandRoom{cells, std::vector<double>(static_cast<std::size_t>(width)), {}};
      },
      work);
}

}  // namespace fusion
