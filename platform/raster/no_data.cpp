#include "platform/raster/no_data.h"

#include "platform/system/multiversion.h"

namespace platform {

FUSION_MULTIVERSION
void MarkInvalid(double* values, std::int64_t count, double noData) {
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  // The difference of an infinity with itself is a NaN.
  for (std::int64_t i = 0; i < count; ++i) {
    const double v = values[i];
    values[i] = ((v - v == 0.0) & (v != noData)) ? v : kNaN;
  }
}

}  // namespace platform
