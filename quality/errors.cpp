#include "quality/errors.h"

#include <cmath>
#include <limits>

namespace quality {

void ErrorSums::Add(const Image& truth, const Image& fused) {
  CheckComparable(truth, fused, true);
  m_bands.resize(truth.bands.size());
  const std::size_t n = truth.PixelCount();
  const std::vector<unsigned char> common = CommonPixels(truth, fused);
  for (std::size_t i = 0; i < n; ++i) {
    if (common.empty() || common[i] != 0) ++m_count;
  }
  for (std::size_t b = 0; b < m_bands.size(); ++b) {
    Band sums;
    const auto& t = truth.bands[b];
    const auto& f = fused.bands[b];
    for (std::size_t i = 0; i < n; ++i) {
      if (!common.empty() && common[i] == 0) continue;
      const double difference = f[i] - t[i];
      sums.truth += t[i];
      sums.difference += difference;
      sums.square += difference * difference;
    }
    m_bands[b].truth += sums.truth;
    m_bands[b].difference += sums.difference;
    m_bands[b].square += sums.square;
  }
}

std::vector<double> ErrorSums::Rmse() const {
  std::vector<double> errors;
  for (const Band& band : m_bands) errors.push_back(std::sqrt(band.square / static_cast<double>(m_count)));
  return errors;
}

std::vector<double> ErrorSums::Bias() const {
  std::vector<double> shifts;
  for (const Band& band : m_bands) shifts.push_back(band.difference / band.truth);
  return shifts;
}

double ErrorSums::Ergas(double ratio) const {
  if (m_bands.empty() || m_count == 0) return std::numeric_limits<double>::quiet_NaN();
  const auto n = static_cast<double>(m_count);
  double sum = 0.0;
  for (const Band& band : m_bands) {
    const double mean = band.truth / n;
    sum += band.square / n / (mean * mean);
  }
  return 100.0 / ratio * std::sqrt(sum / static_cast<double>(m_bands.size()));
}

namespace {

ErrorSums SumsOf(const Image& truth, const Image& fused) {
  ErrorSums sums;
  sums.Add(truth, fused);
  return sums;
}

}  // namespace

double Ergas(const Image& truth, const Image& fused, double ratio) { return SumsOf(truth, fused).Ergas(ratio); }
std::vector<double> Rmse(const Image& truth, const Image& fused) { return SumsOf(truth, fused).Rmse(); }
std::vector<double> Bias(const Image& truth, const Image& fused) { return SumsOf(truth, fused).Bias(); }

}  // namespace quality
