#include "transform/ihs_model.h"

#include <cmath>

#include "platform/system/elementary.h"
#include "platform/system/multiversion.h"

namespace fusion {
namespace {

constexpr double kPi = 3.141592653589793;

// Comparisons choose between values that are computed anyway: a branch would keep the loop from vectorising. Their
// order decides what a NaN in one band does.

FUSION_ALWAYS_INLINE double CosineOfHue(double red, double green, double blue) {
  const double cosine =
      (red - (green + blue) * 0.5) / std::sqrt((red - blue) * (green - blue) + (red - green) * (red - green));
  // Rounding may carry the quotient just outside the range of the arc cosine.
  const double atLeast = cosine < -1.0 ? -1.0 : cosine;
  return atLeast > 1.0 ? 1.0 : atLeast;
}

FUSION_ALWAYS_INLINE IhsColour ToIhs(double red, double green, double blue, double cosine) {
  const double sum = red + green + blue;
  double smallest = green < red ? green : red;
  smallest = blue < smallest ? blue : smallest;
  double largest = red < green ? green : red;
  largest = largest < blue ? blue : largest;
  const bool isGrey = largest == smallest;

  const double saturation = 1.0 - 3.0 / sum * smallest;
  const double angle = platform::ArcCos(cosine) / kPi * 180.0;
  const double hue = (blue > green ? 360.0 - angle : angle) / 360.0;
  return {sum / 3.0, isGrey ? 0.0 : hue, isGrey ? 0.0 : saturation};
}

FUSION_ALWAYS_INLINE IhsShares ToShares(double intensity, double hue, double saturation) {
  constexpr double kDegree = kPi / 180.0;
  const double degrees = hue * 360.0;
  double start = degrees <= 240.0 ? 120.0 : 240.0;
  start = degrees <= 120.0 ? 0.0 : start;
  start = degrees > 0.0 ? start : 240.0;
  // The middle of a sector is a whole number of degrees, so both differences are those of the definition.
  const double above = platform::Cos((degrees - start) * kDegree);
  const double aside = platform::Cos((start + 60.0 - degrees) * kDegree);
  return {start, intensity * (1.0 - saturation), intensity * (1.0 + saturation * above / aside)};
}

/// noData is a NaN, which equals nothing, where there is none.
FUSION_MULTIVERSION(void, ScaleRow, (double minimum, double range, double noData, double* values, std::int64_t count),
                    (minimum, range, noData, values, count)) {
  for (std::int64_t i = 0; i < count; ++i) {
    const double v = values[i];
    const double scaled = (v - minimum) / range * 253.0 + 1.0;
    values[i] = v == noData ? v : scaled;
  }
}

}  // namespace

IhsColour RgbToIhs(double red, double green, double blue) {
  return ToIhs(red, green, blue, CosineOfHue(red, green, blue));
}

IhsShares SharesOfIhs(double intensity, double hue, double saturation) { return ToShares(intensity, hue, saturation); }

FUSION_MULTIVERSION(void, SubstituteIntensity,
                    (const double* pan, const double* red, const double* green, const double* blue, int n,
                     double* __restrict newRed, double* __restrict newGreen, double* __restrict newBlue),
                    (pan, red, green, blue, n, newRed, newGreen, newBlue)) {
  // Loops of their own for the long chains of dependent operations, so that more pixels are under way at a time; pieces
  // that stay in the nearest cache between them.
  constexpr int kPiece = 256;
  for (int first = 0; first < n; first += kPiece) {
    const int end = first + kPiece < n ? first + kPiece : n;
    for (int i = first; i < end; ++i) newRed[i] = CosineOfHue(red[i], green[i], blue[i]);
    for (int i = first; i < end; ++i) {
      const IhsColour colour = ToIhs(red[i], green[i], blue[i], newRed[i]);
      newRed[i] = colour.hue;
      newGreen[i] = colour.saturation;
    }
    for (int i = first; i < end; ++i) {
      const IhsShares s = ToShares(pan[i], newRed[i], newGreen[i]);
      const double rest = 3.0 * pan[i] - (s.high + s.low);
      newRed[i] = s.start == 0.0 ? s.high : (s.start == 120.0 ? s.low : rest);
      newGreen[i] = s.start == 0.0 ? rest : (s.start == 120.0 ? s.high : s.low);
      newBlue[i] = s.start == 0.0 ? s.low : (s.start == 120.0 ? rest : s.high);
    }
  }
}

void ScaleToBytes(double minimum, double maximum, const platform::NoDataRule& isNoData, double* values,
                  std::int64_t count) {
  ScaleRow(minimum, maximum - minimum, isNoData.AsRead(), values, count);
}

}  // namespace fusion
