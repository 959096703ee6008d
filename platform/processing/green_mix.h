#pragma once

#include "platform/raster/raster_source.h"

namespace platform {

/// The green that a sensor without true green lacks: 0.9 x green + 0.1 x near infrared in images whose first four bands
/// are blue, green, red and near infrared.
class GreenMix {
 public:
  static constexpr int kGreen = 1;
  static constexpr int kNearInfrared = 3;

  static bool AppliesTo(const CRasterSource& input) { return input.GetBandCount() > kNearInfrared; }

  GreenMix() = default;
  explicit GreenMix(const CRasterSource& input);
  /// NaN: none.
  GreenMix(double greenNoData, double nearInfraredNoData)
      : m_greenNoData(greenNoData), m_nearInfraredNoData(nearInfraredNoData) {}

  /// One row; green is left alone where either band is no-data. out may be green itself.
  void Apply(const double* green, const double* nearInfrared, double* out, int width) const;

 private:
  double m_greenNoData = 0.0;
  double m_nearInfraredNoData = 0.0;
};

}  // namespace platform
