#include "quality/q2n.h"

#include <bit>
#include <cmath>
#include <limits>
#include <tuple>
#include <utility>

#include "quality/pair_moments.h"

namespace quality {
namespace {

/// The sign of the product of the units i and j of a hypercomplex number of n parts; the product's unit is i ^ j.
double SignOfProduct(std::size_t i, std::size_t j, std::size_t n) {
  double sign = 1.0;
  // (a, b)(c, d) = (a c - d* b, d a + b c*), half by half.
  for (std::size_t half = n / 2; half > 0; half /= 2) {
    const bool second = i >= half;
    const bool other = j >= half;
    const std::size_t a = second ? i - half : i;
    const std::size_t b = other ? j - half : j;
    // A conjugate changes the sign of every unit but 1.
    if (second && other) {
      if (b == 0) sign = -sign;
      std::tie(i, j) = std::pair(b, a);
    } else if (other) {
      std::tie(i, j) = std::pair(b, a);
    } else {
      if (second && b != 0) sign = -sign;
      std::tie(i, j) = std::pair(a, b);
    }
  }
  return sign;
}

/// signs[i * bands + j]: of unit i times the conjugate of unit j.
std::vector<double> ConjugateSigns(std::size_t bands) {
  const std::size_t n = std::bit_ceil(bands);
  std::vector<double> signs;
  for (std::size_t i = 0; i < bands; ++i) {
    for (std::size_t j = 0; j < bands; ++j) signs.push_back((j == 0 ? 1.0 : -1.0) * SignOfProduct(i, j, n));
  }
  return signs;
}

/// The values of a block's pixels, band by band, less their means.
struct Centred {
  std::vector<std::vector<double>> bands;
  double meanSquare = 0.0;  ///< of the hypercomplex mean
  double variance = 0.0;
};

Centred Centre(const Image& image, const std::vector<std::size_t>& pixels) {
  const auto n = static_cast<double>(pixels.size());
  Centred centred;
  for (const auto& band : image.bands) {
    double mean = 0.0;
    for (const std::size_t i : pixels) mean += band[i];
    mean /= n;
    centred.meanSquare += mean * mean;
    std::vector<double> values;
    values.reserve(pixels.size());
    double squares = 0.0;
    for (const std::size_t i : pixels) {
      values.push_back(band[i] - mean);
      squares += values.back() * values.back();
    }
    centred.variance += squares / n;
    centred.bands.push_back(std::move(values));
  }
  return centred;
}

/// The modulus of E[T F*] of two centred images.
double Covariance(const Centred& t, const Centred& f, const std::vector<double>& signs) {
  const std::size_t bands = t.bands.size();
  std::vector<double> parts(std::bit_ceil(bands), 0.0);
  for (std::size_t i = 0; i < bands; ++i) {
    for (std::size_t j = 0; j < bands; ++j) {
      double sum = 0.0;
      for (std::size_t k = 0; k < t.bands[i].size(); ++k) sum += t.bands[i][k] * f.bands[j][k];
      parts[i ^ j] += signs[i * bands + j] * sum;
    }
  }
  double squares = 0.0;
  for (const double part : parts) squares += part * part;
  return std::sqrt(squares) / static_cast<double>(t.bands[0].size());
}

double BlockQ2n(const Centred& t, const Centred& f, const std::vector<double>& signs) {
  const double squares = t.meanSquare + f.meanSquare;
  const double variances = t.variance + f.variance;
  const double structure = variances <= kNothing * squares ? 1.0 : 2.0 * Covariance(t, f, signs) / variances;
  const double luminance = squares == 0.0 ? 1.0 : 2.0 * std::sqrt(t.meanSquare) * std::sqrt(f.meanSquare) / squares;
  return structure * luminance;
}

}  // namespace

void Q2nSums::Add(const Image& truth, const Image& fused) {
  CheckComparable(truth, fused, true);
  if (truth.bands.empty()) return;
  const std::vector<double> signs = ConjugateSigns(truth.bands.size());
  const std::vector<unsigned char> common = CommonPixels(truth, fused);
  ForEachBlock(truth.width, truth.height, kBlock, [&](const Block& block) {
    const std::vector<std::size_t> pixels = PixelsOf(block, truth.width, common);
    if (pixels.empty()) return;
    const auto weight = static_cast<double>(pixels.size());
    m_sum += weight * BlockQ2n(Centre(truth, pixels), Centre(fused, pixels), signs);
    m_weight += weight;
  });
}

double Q2nSums::Value() const { return m_weight > 0.0 ? m_sum / m_weight : std::numeric_limits<double>::quiet_NaN(); }

double Q2n(const Image& truth, const Image& fused) {
  Q2nSums sums;
  sums.Add(truth, fused);
  return sums.Value();
}

}  // namespace quality
