#include "framework/run/block_range.h"

#include <limits>

namespace fusion {

BlockRange::BlockRange(int bandCount, bool masked)
    : m_bandCount(bandCount), m_range(masked ? 0.0 : std::numeric_limits<double>::quiet_NaN()) {}

void BlockRange::Count(void* const* bands, const CRect& rect, const std::vector<unsigned char>& inside) {
  const std::int64_t width = rect.Width();
  for (int b = 0; b < m_bandCount; ++b) {
    const auto* values = static_cast<const double*>(bands[b]);
    if (!values) continue;
    if (inside.empty()) {
      m_range.Add(values, width * rect.Height());
      continue;
    }
    m_inside.clear();
    for (std::size_t i = 0; i < inside.size(); ++i) {
      if (inside[i]) m_inside.push_back(values[i]);
    }
    m_range.Add(m_inside.data(), static_cast<std::int64_t>(m_inside.size()));
  }
}

}  // namespace fusion
