#include "quality/sam.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace quality {

void AngleSums::Add(const Image& truth, const Image& fused) {
  CheckComparable(truth, fused, true);
  const std::vector<unsigned char> common = CommonPixels(truth, fused);
  const std::size_t n = truth.PixelCount();
  std::vector<double> products(n, 0.0);
  std::vector<double> truths(n, 0.0);
  std::vector<double> fuseds(n, 0.0);
  for (std::size_t b = 0; b < truth.bands.size(); ++b) {
    const auto& t = truth.bands[b];
    const auto& f = fused.bands[b];
    for (std::size_t i = 0; i < n; ++i) {
      products[i] += t[i] * f[i];
      truths[i] += t[i] * t[i];
      fuseds[i] += f[i] * f[i];
    }
  }
  double sum = 0.0;
  for (std::size_t i = 0; i < n; ++i) {
    const double lengths = std::sqrt(truths[i]) * std::sqrt(fuseds[i]);
    if ((!common.empty() && common[i] == 0) || !(lengths > 0.0)) continue;
    sum += std::acos(std::clamp(products[i] / lengths, -1.0, 1.0));
    ++m_count;
  }
  m_sum += sum;
}

double AngleSums::Degrees() const {
  if (m_count == 0) return std::numeric_limits<double>::quiet_NaN();
  return m_sum / static_cast<double>(m_count) * 180.0 / std::numbers::pi;
}

double Sam(const Image& truth, const Image& fused) {
  AngleSums sums;
  sums.Add(truth, fused);
  return sums.Degrees();
}

}  // namespace quality
