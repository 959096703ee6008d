#include "quality/spatial_correlation.h"

#include <cmath>
#include <limits>

namespace quality {
namespace {

/// Nine marks around a pixel that is not at the edge.
bool AllCount(const std::vector<unsigned char>& counts, std::size_t i, std::size_t width) {
  if (counts.empty()) return true;
  const auto inRow = [&](std::size_t k) { return counts[k - 1] != 0 && counts[k] != 0 && counts[k + 1] != 0; };
  return inRow(i - width) && inRow(i) && inRow(i + width);
}

double Detail(const std::vector<double>& band, std::size_t i, std::size_t width) {
  double sum = 0.0;
  for (const std::size_t row : {i - width, i, i + width}) sum += band[row - 1] + band[row] + band[row + 1];
  return 9.0 * band[i] - sum;
}

}  // namespace

void DetailSums::Add(const Image& truth, const Image& fused) {
  CheckComparable(truth, fused, true);
  m_bands.resize(truth.bands.size());
  const std::vector<unsigned char> common = CommonPixels(truth, fused);
  const auto width = static_cast<std::size_t>(truth.width);
  const auto height = static_cast<std::size_t>(truth.height);
  std::vector<std::size_t> inner;
  for (std::size_t y = 1; y + 1 < height; ++y) {
    for (std::size_t x = 1; x + 1 < width; ++x) {
      if (AllCount(common, y * width + x, width)) inner.push_back(y * width + x);
    }
  }
  m_count += static_cast<std::int64_t>(inner.size());
  for (std::size_t b = 0; b < m_bands.size(); ++b) {
    Band sums;
    for (const std::size_t i : inner) {
      const double t = Detail(truth.bands[b], i, width);
      const double f = Detail(fused.bands[b], i, width);
      sums.truth += t;
      sums.fused += f;
      sums.truthSquare += t * t;
      sums.fusedSquare += f * f;
      sums.product += t * f;
    }
    m_bands[b].truth += sums.truth;
    m_bands[b].fused += sums.fused;
    m_bands[b].truthSquare += sums.truthSquare;
    m_bands[b].fusedSquare += sums.fusedSquare;
    m_bands[b].product += sums.product;
  }
}

double DetailSums::Correlation() const {
  const auto n = static_cast<double>(m_count);
  double sum = 0.0;
  for (const Band& band : m_bands) {
    const double truth = band.truthSquare - band.truth * band.truth / n;
    const double fused = band.fusedSquare - band.fused * band.fused / n;
    if (!(truth > 0.0) || !(fused > 0.0)) return std::numeric_limits<double>::quiet_NaN();
    sum += (band.product - band.truth * band.fused / n) / (std::sqrt(truth) * std::sqrt(fused));
  }
  return m_bands.empty() ? std::numeric_limits<double>::quiet_NaN() : sum / static_cast<double>(m_bands.size());
}

double SpatialCorrelation(const Image& truth, const Image& fused) {
  DetailSums sums;
  sums.Add(truth, fused);
  return sums.Correlation();
}

}  // namespace quality
