#include "platform/validity/no_data.h"

#include "platform/system/multiversion.h"

namespace platform {

FUSION_MULTIVERSION(void, MarkInvalid, (double* values, std::int64_t count, double noData), (values, count, noData)) {
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  for (std::int64_t i = 0; i < count; ++i) values[i] = IsValidSample(values[i], noData) ? values[i] : kNaN;
}

}  // namespace platform
