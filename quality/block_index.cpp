#include "quality/block_index.h"

#include <limits>
#include <stdexcept>

#include "quality/pair_moments.h"

namespace quality {
namespace {

PairMoments MomentsOf(const std::vector<double>& a, const std::vector<double>& b,
                      const std::vector<std::size_t>& pixels) {
  const auto n = static_cast<double>(pixels.size());
  PairMoments m;
  for (const std::size_t i : pixels) {
    m.meanA += a[i];
    m.meanB += b[i];
  }
  m.meanA /= n;
  m.meanB /= n;
  for (const std::size_t i : pixels) {
    const double da = a[i] - m.meanA;
    const double db = b[i] - m.meanB;
    m.varianceA += da * da;
    m.varianceB += db * db;
    m.covariance += da * db;
  }
  m.varianceA /= n;
  m.varianceB /= n;
  m.covariance /= n;
  return m;
}

}  // namespace

void BlockIndexSums::Add(const Image& first, std::size_t firstBand, const Image& second, std::size_t secondBand) {
  CheckComparable(first, second, false);
  if (firstBand >= first.bands.size() || secondBand >= second.bands.size()) {
    throw std::invalid_argument("an image has no such band");
  }
  const std::vector<unsigned char> common = CommonPixels(first, second);
  ForEachBlock(first.width, first.height, m_size, [&](const Block& block) {
    const std::vector<std::size_t> pixels = PixelsOf(block, first.width, common);
    if (pixels.empty()) return;
    const auto weight = static_cast<double>(pixels.size());
    m_sum += weight * QualityIndex(MomentsOf(first.bands[firstBand], second.bands[secondBand], pixels));
    m_weight += weight;
  });
}

double BlockIndexSums::Value() const {
  return m_weight > 0.0 ? m_sum / m_weight : std::numeric_limits<double>::quiet_NaN();
}

}  // namespace quality
