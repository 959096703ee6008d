#include "runs/detail_map.h"

#include <algorithm>
#include <cmath>

namespace fusion {

DetailMap::DetailMap(const CRect& rect, int side)
    : m_rect(rect),
      m_side(side),
      m_width((rect.Width() + side - 1) / side),
      m_height((rect.Height() + side - 1) / side),
      m_changes(static_cast<std::size_t>(m_width) * static_cast<std::size_t>(m_height), 0.0),
      m_known(m_changes.size(), 0.0),
      m_looked(m_changes.size(), 0.0) {}

void DetailMap::AddRow(int y, const std::vector<double>& samples) {
  const std::size_t row = static_cast<std::size_t>((y - m_rect.top) / m_side) * static_cast<std::size_t>(m_width);
  for (std::size_t x = 1; x < samples.size(); ++x) {
    const std::size_t i = row + x / static_cast<std::size_t>(m_side);
    ++m_looked[i];
    if (!std::isfinite(samples[x]) || !std::isfinite(samples[x - 1])) continue;
    ++m_known[i];
    // The root keeps single bright edges from deciding.
    m_changes[i] += std::sqrt(std::fabs(samples[x] - samples[x - 1]));
  }
}

CRect DetailMap::Best(int width, int height, const std::vector<CRect>& others) const {
  const int across = std::clamp(width / m_side, 1, m_width);
  const int down = std::clamp(height / m_side, 1, m_height);
  const auto changes = Sums(m_changes);
  const auto known = Sums(m_known);
  const auto looked = Sums(m_looked);
  const auto start = [](int at, int size, int all, int from) {
    return from + std::clamp(at, 0, std::max(all - size, 0));
  };
  const auto window = [&](int blockX, int blockY) {
    const int x = start(blockX * m_side, width, m_rect.Width(), m_rect.left);
    const int y = start(blockY * m_side, height, m_rect.Height(), m_rect.top);
    return CRect(x, y, std::min(x + width, m_rect.right), std::min(y + height, m_rect.bottom));
  };
  double best = -1.0;
  CRect found(0, 0, 0, 0);
  for (int y = 0; y + down <= m_height; ++y) {
    for (int x = 0; x + across <= m_width; ++x) {
      const auto in = [&](const std::vector<double>& sums) {
        const auto at = [&](int i, int j) {
          return sums[static_cast<std::size_t>(j) * static_cast<std::size_t>(m_width + 1) +
                      static_cast<std::size_t>(i)];
        };
        return at(x + across, y + down) - at(x, y + down) - at(x + across, y) + at(x, y);
      };
      const double share = in(looked) > 0.0 ? in(known) / in(looked) : 0.0;
      const double value = in(changes) / std::max(in(looked), 1.0) * share * share * share * share;
      if (value <= best) continue;
      const CRect here = window(x, y);
      const bool isTaken = std::any_of(others.begin(), others.end(), [&](const CRect& other) {
        return here.left < other.right && other.left < here.right && here.top < other.bottom && other.top < here.bottom;
      });
      if (isTaken) continue;
      best = value;
      found = here;
    }
  }
  return found;
}

std::vector<double> DetailMap::Sums(const std::vector<double>& values) const {
  const std::size_t stride = static_cast<std::size_t>(m_width) + 1;
  std::vector<double> sums(stride * static_cast<std::size_t>(m_height + 1), 0.0);
  for (std::size_t y = 0; y < static_cast<std::size_t>(m_height); ++y) {
    for (std::size_t x = 0; x + 1 < stride; ++x) {
      sums[(y + 1) * stride + x + 1] =
          values[y * (stride - 1) + x] + sums[y * stride + x + 1] + sums[(y + 1) * stride + x] - sums[y * stride + x];
    }
  }
  return sums;
}

}  // namespace fusion
