#pragma once

#include <cstdint>

#include "platform/validity/no_data_rule.h"

namespace fusion {

/// The hue is a fraction of a full turn, 0 to 1.
struct IhsColour {
  double intensity;
  double hue;
  double saturation;
};

/// The sector of the colour circle that a hue lies in, from red (0 degrees) to green, from green (120) to blue or from
/// blue (240) to red: the colour at its start is high, the one of the sector before is low, and the third one is the
/// rest of three times the intensity.
struct IhsShares {
  double start;  ///< 0, 120 or 240
  double low;
  double high;
};

/// The geometric model, see CIhsTranFusion.
IhsColour RgbToIhs(double red, double green, double blue);
IhsShares SharesOfIhs(double intensity, double hue, double saturation);

/// Three colours with pan in place of their intensity, bit for bit what the two functions above give pixel by pixel.
/// The rows written must not overlap any other.
void SubstituteIntensity(const double* pan, const double* red, const double* green, const double* blue, int n,
                         double* newRed, double* newGreen, double* newBlue);

/// Brings samples as they were read from a range to 1..254 and leaves no-data values as they are.
void ScaleToBytes(double minimum, double maximum, const platform::NoDataRule& isNoData, double* values,
                  std::int64_t count);

}  // namespace fusion
