#include "framework/run/block_range.h"

#include <limits>

#include "framework/run/block_buffers.h"

namespace fusion {

BlockRange::BlockRange(int bandCount, bool masked, platform::Workers* workers)
    : m_bandCount(bandCount),
      m_noData(masked ? 0.0 : std::numeric_limits<double>::quiet_NaN()),
      m_range(m_noData),
      m_workers(workers) {}

platform::RowRange BlockRange::RangeOf(void* const* bands, const CRect& rect,
                                       const std::vector<unsigned char>& inside) const {
  platform::RowRange whole(m_noData);
  const BlockGrid pieces = PiecesOf(rect);
  const auto look = [&](std::vector<double>& kept, int i) {
    platform::RowRange range(m_noData);
    const CRect piece = pieces.Block(0, i);
    const std::int64_t first = std::int64_t{piece.top} * piece.Width();
    for (int b = 0; b < m_bandCount; ++b) {
      const auto* values = static_cast<const double*>(bands[b]);
      if (!values) continue;
      if (inside.empty()) {
        range.Add(values + first, piece.Area());
        continue;
      }
      kept.clear();
      for (std::int64_t p = first; p < first + piece.Area(); ++p) {
        if (inside[static_cast<std::size_t>(p)]) kept.push_back(values[p]);
      }
      range.Add(kept.data(), static_cast<std::int64_t>(kept.size()));
    }
    return range;
  };
  platform::FoldInOrder(
      m_workers, pieces.Count(), [] { return std::vector<double>(); }, look,
      [&](const platform::RowRange& range) { whole.Add(range); });
  return whole;
}

}  // namespace fusion
