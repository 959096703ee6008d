#pragma once

#include <limits>
#include <numbers>

namespace test_support {

inline constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
inline constexpr double kPi = std::numbers::pi;

}  // namespace test_support
