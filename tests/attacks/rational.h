#pragma once

#include <string>
#include <vector>

#include "tests/attacks/corpus.h"
#include "tests/support/reference_kernel.h"

namespace attacks {

/// Rational polynomials that place an image, as satellites' images bring them.
struct Rational {
  // Offsets and scales: of lines, samples, latitudes, longitudes and heights.
  std::vector<double> offsets;
  std::vector<double> scales;
  // Twenty coefficients each: lines' numerator and denominator, samples' numerator and denominator.
  std::vector<std::vector<double>> coefficients;
};

/// Polynomials of the first degree for an even grid of degrees: the first pixel's corner, and the size of all.
Rational RationalOf(int width, int height, double west, double north, double pixel);

/// How an image brings them.
enum class Carrier { kTag, kRpb, kText };
constexpr Carrier kCarriers[] = {Carrier::kTag, Carrier::kRpb, Carrier::kText};

/// A GeoTIFF that says nothing of its place.
void MakeUnplaced(const test_support::TemporaryFolder& folder, const std::string& name, const reference::Image& image);

/// The text of a file beside the image, which a carrier of files is.
std::string TextOf(const Rational& rational, Carrier carrier);
/// The name of that file.
std::string CompanionOf(const std::string& image, Carrier carrier);
/// Gives them to a GeoTIFF that has no place of its own.
void Give(const test_support::TemporaryFolder& folder, const std::string& image, const Rational& rational,
          Carrier carrier);

/// Polynomials of nonsense, cut short, beyond the globe, and good ones.
Corpus RationalPolynomials(const test_support::TemporaryFolder& folder);

}  // namespace attacks
