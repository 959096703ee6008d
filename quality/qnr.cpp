#include "quality/qnr.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace quality {
namespace {

constexpr int kFineBlock = 32;
constexpr int kLeastBlock = 8;

}  // namespace

NoReferenceSums::NoReferenceSums(int ratio) {
  if (ratio < 1) throw std::invalid_argument("multispectral pixels are no smaller than pan's");
  m_coarse = std::max(kFineBlock / ratio, kLeastBlock);
  m_fine = m_coarse * ratio;
}

void NoReferenceSums::Add(const Image& pan, const Image& fused, const Image& low, const Image& ms) {
  const std::size_t bands = ms.bands.size();
  if (fused.bands.size() != bands || pan.bands.size() != 1 || low.bands.size() != 1) {
    throw std::invalid_argument("images of different numbers of bands are not comparable");
  }
  Grow(m_spectral, bands * (bands - 1) / 2, m_fine, m_coarse);
  Grow(m_spatial, bands, m_fine, m_coarse);
  auto pair = m_spectral.begin();
  for (std::size_t b = 0; b < bands; ++b) {
    for (std::size_t c = b + 1; c < bands; ++c, ++pair) {
      pair->fine.Add(fused, b, fused, c);
      pair->coarse.Add(ms, b, ms, c);
    }
    m_spatial[b].fine.Add(fused, b, pan, 0);
    m_spatial[b].coarse.Add(ms, b, low, 0);
  }
}

double NoReferenceSums::DLambda() const { return MeanDifference(m_spectral); }
double NoReferenceSums::DS() const { return MeanDifference(m_spatial); }
double NoReferenceSums::Qnr() const { return (1.0 - DLambda()) * (1.0 - DS()); }

double NoReferenceSums::MeanDifference(const std::vector<Pair>& pairs) {
  if (pairs.empty()) return std::numeric_limits<double>::quiet_NaN();
  double sum = 0.0;
  for (const Pair& pair : pairs) sum += std::fabs(pair.fine.Value() - pair.coarse.Value());
  return sum / static_cast<double>(pairs.size());
}

void NoReferenceSums::Grow(std::vector<Pair>& pairs, std::size_t count, int fine, int coarse) {
  if (pairs.empty()) pairs.assign(count, {BlockIndexSums(fine), BlockIndexSums(coarse)});
}

double KhanDLambda(const Image& ms, const Image& fusedLow) { return 1.0 - Q2n(ms, fusedLow); }

double HybridQnr(double khanDLambda, double dS) { return (1.0 - khanDLambda) * (1.0 - dS); }

}  // namespace quality
