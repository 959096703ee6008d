#include "quality/sharpness.h"

#include <cmath>
#include <stdexcept>

namespace quality {
namespace {

double SumOfGradients(const std::vector<double>& band, std::size_t width, std::size_t height,
                      const std::vector<unsigned char>& counts) {
  double sum = 0.0;
  for (std::size_t y = 0; y + 1 < height; ++y) {
    for (std::size_t x = 0; x + 1 < width; ++x) {
      const std::size_t i = y * width + x;
      if (!counts.empty() && (counts[i] == 0 || counts[i + 1] == 0 || counts[i + width] == 0)) continue;
      const double dx = band[i + 1] - band[i];
      const double dy = band[i + width] - band[i];
      sum += std::sqrt((dx * dx + dy * dy) / 2.0);
    }
  }
  return sum;
}

}  // namespace

void GradientSums::Add(const Image& pan, const Image& fused) {
  CheckComparable(pan, fused, false);
  if (pan.bands.size() != 1) throw std::invalid_argument("a pan image has one band");
  const std::vector<unsigned char> common = CommonPixels(pan, fused);
  const auto width = static_cast<std::size_t>(pan.width);
  const auto height = static_cast<std::size_t>(pan.height);
  // Both over the same pixels, whose number cancels.
  m_pan += SumOfGradients(pan.bands[0], width, height, common);
  for (const auto& band : fused.bands) m_fused += SumOfGradients(band, width, height, common);
  m_bands = fused.bands.size();
}

double GradientSums::Sharpness() const { return m_fused / static_cast<double>(m_bands) / m_pan; }

double Sharpness(const Image& pan, const Image& fused) {
  GradientSums sums;
  sums.Add(pan, fused);
  return sums.Sharpness();
}

}  // namespace quality
