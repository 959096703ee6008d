#include "platform/processing/band_level.h"

#include <algorithm>
#include <limits>

#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_algorithm.h"
#include "platform/system/multiversion.h"
#include "platform/validity/no_data.h"

namespace platform {
namespace {

struct Level {
  double noData;
  double low;
  double high;
  double outMin;
  double outMax;
};

FUSION_MULTIVERSION(void, LevelRow, (const double* values, double* out, int width, Level s), (values, out, width, s)) {
  for (int i = 0; i < width; ++i) {
    const double v = values[i];
    double leveled = (v - s.low) / (s.high - s.low) * (s.outMax - s.outMin) + s.outMin;
    leveled = v >= s.high ? s.outMax : leveled;
    leveled = v <= s.low ? s.outMin : leveled;
    out[i] = IsValidSample(v, s.noData) ? leveled : v;
  }
}

}  // namespace

BandLevel::BandLevel(PixelDataType type, double noData, double ratio)
    : m_type(type), m_noData(noData), m_ratio(ratio) {}

OrderStatistics& BandLevel::Order() {
  if (!m_order) m_order.emplace(m_type, m_ratio);
  return *m_order;
}

void BandLevel::Count(const double* values, const unsigned char* inside, int width) {
  Order().AddRow(values, inside, width, m_noData);
}

OrderStatistics::Part BandLevel::TakePart() { return Order().TakePart(); }

void BandLevel::Add(const OrderStatistics::Part& part) { Order().Add(part); }

void BandLevel::EndPass() {
  // Half the range of a double apart at most, so that the difference stays finite.
  constexpr double kFar = std::numeric_limits<double>::max() / 4.0;
  Order().EndPass();
  if (++m_passes < PassCount()) return;
  m_low = std::clamp(m_order->Low(), -kFar, kFar);
  m_high = std::clamp(m_order->High(), -kFar, kFar);
  m_order.reset();
}

void BandLevel::Apply(const double* values, int width, PixelDataType outType, double* out) const {
  double outMin = 0.0;
  double outMax = 1.0;
  if (!IsFloatType(outType)) CRasterAlgorithm::GetMaxMinVal(outType, outMax, outMin);
  LevelRow(values, out, width, {m_noData, m_low, m_high, outMin, outMax});
}

}  // namespace platform
