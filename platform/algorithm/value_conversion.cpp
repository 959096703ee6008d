#include "platform/algorithm/value_conversion.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "platform/raster/raster_algorithm.h"
#include "platform/system/multiversion.h"

namespace platform {
namespace {

/// One conversion with everything that does not depend on the value worked out.
struct Limits {
  double low;
  double high;
  bool rescale;
  double sourceMin;
  double sourceRange;
  double outMax;
};

template <typename T>
Limits LimitsFor(const ValueConversion& conversion) {
  // A range wider than the type is cut to it, since a conversion beyond the type has no defined result.
  return {std::max(conversion.Low(), static_cast<double>(std::numeric_limits<T>::lowest())),
          std::min(conversion.High(), static_cast<double>(std::numeric_limits<T>::max())),
          conversion.IsRescaling(),
          conversion.m_dSrcMin,
          conversion.m_dSrcMax - conversion.m_dSrcMin,
          conversion.m_dOutMax};
}

/// Truncates a value inside the type's range. 32-bit integers suffice for every type and vectorise everywhere.
template <typename T>
FUSION_ALWAYS_INLINE T Truncate(double value) {
  if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(value);
  } else if constexpr (std::is_same_v<T, std::uint32_t>) {
    // The subtraction is exact for the upper half, so the fraction is cut and never rounded.
    constexpr double kHalf = 2147483648.0;
    const bool upper = value >= kHalf;
    const auto whole = static_cast<std::int32_t>(upper ? value - kHalf : value);
    return static_cast<std::uint32_t>(whole) + (upper ? 0x80000000U : 0U);
  } else {
    return static_cast<T>(static_cast<std::int32_t>(value));
  }
}

template <typename T>
FUSION_ALWAYS_INLINE T ClampAndTruncate(double value, double low, double high) {
  value = value < low ? low : value;
  value = value > high ? high : value;
  if constexpr (!std::is_floating_point_v<T>) value = value == value ? value : 0.0;
  return Truncate<T>(value);
}

FUSION_ALWAYS_INLINE double Stretch(double value, double sourceMin, double sourceRange, double outMax) {
  return (value - sourceMin) / sourceRange * outMax;
}

template <typename T>
FUSION_ALWAYS_INLINE void ConvertValues(Limits limits, const double* values, T* out, std::size_t n) {
  const double low = limits.low;
  const double high = limits.high;
  if (!limits.rescale) {
    for (std::size_t i = 0; i < n; ++i) out[i] = ClampAndTruncate<T>(values[i], low, high);
    return;
  }
  for (std::size_t i = 0; i < n; ++i) {
    out[i] = ClampAndTruncate<T>(Stretch(values[i], limits.sourceMin, limits.sourceRange, limits.outMax), low, high);
  }
}

// Plain functions, since a template cannot be compiled for several instruction sets.
FUSION_MULTIVERSION(void, Convert, (Limits limits, const double* values, std::uint8_t* out, std::size_t n),
                    (limits, values, out, n)) {
  ConvertValues(limits, values, out, n);
}
FUSION_MULTIVERSION(void, Convert, (Limits limits, const double* values, std::uint16_t* out, std::size_t n),
                    (limits, values, out, n)) {
  ConvertValues(limits, values, out, n);
}
FUSION_MULTIVERSION(void, Convert, (Limits limits, const double* values, std::int16_t* out, std::size_t n),
                    (limits, values, out, n)) {
  ConvertValues(limits, values, out, n);
}
FUSION_MULTIVERSION(void, Convert, (Limits limits, const double* values, std::uint32_t* out, std::size_t n),
                    (limits, values, out, n)) {
  ConvertValues(limits, values, out, n);
}
FUSION_MULTIVERSION(void, Convert, (Limits limits, const double* values, std::int32_t* out, std::size_t n),
                    (limits, values, out, n)) {
  ConvertValues(limits, values, out, n);
}
FUSION_MULTIVERSION(void, Convert, (Limits limits, const double* values, float* out, std::size_t n),
                    (limits, values, out, n)) {
  ConvertValues(limits, values, out, n);
}
FUSION_MULTIVERSION(void, Convert, (Limits limits, const double* values, double* out, std::size_t n),
                    (limits, values, out, n)) {
  ConvertValues(limits, values, out, n);
}

template <typename T>
void ConvertSingle(const ValueConversion& conversion, double value, T& out) {
  ConvertValues(LimitsFor<T>(conversion), &value, &out, 1);
}

}  // namespace

ValueConversion ValueConversion::FullRange(PixelDataType type) {
  ValueConversion conversion;
  CRasterAlgorithm::GetMaxMinVal(type, conversion.m_dOutMax, conversion.m_dOutMin);
  return conversion;
}

bool ValueConversion::IsRescaling() const {
  constexpr double kSame = 1e-8;
  return m_bStretch && (std::abs(m_dSrcMin - m_dOutMin) > kSame || std::abs(m_dSrcMax - m_dOutMax) > kSame);
}

double ValueConversion::Rescale(double value) const {
  return IsRescaling() ? Stretch(value, m_dSrcMin, m_dSrcMax - m_dSrcMin, m_dOutMax) : value;
}

void ValueConversion::ConvertRow(PixelDataType type, const double* values, void* out, std::size_t n) const {
  DispatchPixelType(type, [&](auto element) {
    using T = decltype(element);
    platform::Convert(LimitsFor<T>(*this), values, static_cast<T*>(out), n);
    return true;
  });
}

void ValueConversion::ConvertOne(double value, unsigned char& out) const { ConvertSingle(*this, value, out); }
void ValueConversion::ConvertOne(double value, unsigned short& out) const { ConvertSingle(*this, value, out); }
void ValueConversion::ConvertOne(double value, short& out) const { ConvertSingle(*this, value, out); }
void ValueConversion::ConvertOne(double value, unsigned int& out) const { ConvertSingle(*this, value, out); }
void ValueConversion::ConvertOne(double value, int& out) const { ConvertSingle(*this, value, out); }
void ValueConversion::ConvertOne(double value, float& out) const { ConvertSingle(*this, value, out); }
void ValueConversion::ConvertOne(double value, double& out) const { ConvertSingle(*this, value, out); }

}  // namespace platform
