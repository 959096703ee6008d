#pragma once

#include <cmath>
#include <limits>

namespace platform {

/// Whether a value is a band's declared no-data value, in a form that loops can keep.
struct NoDataRule {
  bool declared = false;
  bool asFloat = false;  ///< 32-bit float bands compare in float
  double value = 0.0;

  bool operator()(double v) const {
    if (!declared) return false;
    if (std::isnan(value)) return std::isnan(v);
    return asFloat ? static_cast<float>(v) == static_cast<float>(value) : v == value;
  }

  /// The value as the band's samples show it when they are read as doubles; NaN where none is declared.
  double AsRead() const {
    if (!declared) return std::numeric_limits<double>::quiet_NaN();
    return asFloat ? static_cast<double>(static_cast<float>(value)) : value;
  }
};

}  // namespace platform
