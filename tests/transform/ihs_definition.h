#pragma once

#include <algorithm>
#include <cmath>

namespace ihs_definition {

constexpr double kPi = 3.141592653589793;

/// The transform and its inverse with pan in place of the intensity, written out from the tables with the C library's
/// functions.
inline void Substitute(double pan, double& red, double& green, double& blue) {
  const double smallest = std::min({red, green, blue});
  const double largest = std::max({red, green, blue});
  double h = 0.0;
  double s = 0.0;
  if (smallest != largest) {
    s = 1.0 - 3.0 / (red + green + blue) * smallest;
    double argument =
        (red - (green + blue) * 0.5) / std::sqrt((red - blue) * (green - blue) + (red - green) * (red - green));
    if (!std::isnan(argument)) argument = std::min(1.0, std::max(-1.0, argument));
    const double theta = std::acos(argument) / kPi * 180.0;
    h = blue > green ? (360.0 - theta) / 360.0 : theta / 360.0;
  }
  const double degrees = h * 360.0;
  const double c = kPi / 180.0;
  if (0.0 < degrees && degrees <= 120.0) {
    blue = pan * (1.0 - s);
    red = pan * (1.0 + s * std::cos(degrees * c) / std::cos((60.0 - degrees) * c));
    green = 3.0 * pan - (red + blue);
  } else if (120.0 < degrees && degrees <= 240.0) {
    red = pan * (1.0 - s);
    green = pan * (1.0 + s * std::cos((degrees - 120.0) * c) / std::cos((180.0 - degrees) * c));
    blue = 3.0 * pan - (red + green);
  } else {
    green = pan * (1.0 - s);
    blue = pan * (1.0 + s * std::cos((degrees - 240.0) * c) / std::cos((300.0 - degrees) * c));
    red = 3.0 * pan - (green + blue);
  }
}

}  // namespace ihs_definition
