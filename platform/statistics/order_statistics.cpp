#include "platform/statistics/order_statistics.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <type_traits>
#include <utility>

#include "platform/raster/pixel_type.h"
#include "platform/statistics/survey.h"
#include "platform/validity/no_data.h"

namespace platform {
namespace {

constexpr int kPassBits = 16;
constexpr std::uint64_t kBins = std::uint64_t{1} << kPassBits;

template <typename T>
using Bits = std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t>;

/// An unsigned integer in the order of the values.
template <typename T>
std::uint64_t KeyOf(double value) {
  if constexpr (std::is_floating_point_v<T>) {
    constexpr Bits<T> kSign = Bits<T>{1} << (sizeof(T) * 8 - 1);
    const auto bits = std::bit_cast<Bits<T>>(static_cast<T>(value));
    return bits & kSign ? static_cast<Bits<T>>(~bits) : bits | kSign;
  } else {
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(value) - std::numeric_limits<T>::min());
  }
}

template <typename T>
double FromKey(std::uint64_t key) {
  if constexpr (std::is_floating_point_v<T>) {
    constexpr Bits<T> kSign = Bits<T>{1} << (sizeof(T) * 8 - 1);
    const auto ordered = static_cast<Bits<T>>(key);
    return static_cast<double>(std::bit_cast<T>(ordered & kSign ? ordered ^ kSign : static_cast<Bits<T>>(~ordered)));
  } else {
    return static_cast<double>(static_cast<std::int64_t>(key) + std::numeric_limits<T>::min());
  }
}

/// Sample types that the platform does not know are read as doubles.
PixelDataType KnownType(PixelDataType type) { return IsPixelType(type) ? type : PDT_FLOAT64; }

}  // namespace

OrderStatistics::OrderStatistics(PixelDataType type, double ratio)
    : m_type(KnownType(type)), m_ratio(ratio), m_shift((PassCount(type) - 1) * kPassBits) {
  m_low.histogram.resize(kBins);
  m_high.histogram.resize(kBins);
}

int OrderStatistics::PassCount(PixelDataType type) {
  return (PixelSize(KnownType(type)) * 8 + kPassBits - 1) / kPassBits;
}

void OrderStatistics::AddRow(const double* values, const unsigned char* inside, int width, double noData) {
  DispatchPixelType(m_type, [&](auto element) {
    for (int i = 0; i < width; ++i) {
      if (!IsValidSample(values[i], noData) || (inside && !inside[i])) continue;
      const std::uint64_t key = KeyOf<decltype(element)>(values[i]);
      Tally(key, m_low);
      // Until the first bits are settled both ends share one histogram.
      if (!m_isFirstPass) Tally(key, m_high);
    }
    return true;
  });
}

void OrderStatistics::Tally(std::uint64_t key, Target& target) const {
  const std::uint64_t bits = key >> m_shift;
  if (m_isFirstPass || bits / kBins == (target.key >> m_shift) / kBins) ++target.histogram[bits % kBins];
}

OrderStatistics::Part OrderStatistics::TakePart() {
  Part part;
  for (int end = 0; end < 2; ++end) {
    std::vector<std::int64_t>& histogram = (end == 0 ? m_low : m_high).histogram;
    for (std::size_t bin = 0; bin < histogram.size(); ++bin) {
      if (histogram[bin] == 0) continue;
      part.bins[end].push_back(static_cast<std::uint32_t>(bin));
      part.counts[end].push_back(std::exchange(histogram[bin], 0));
    }
  }
  return part;
}

void OrderStatistics::Add(const Part& part) {
  for (int end = 0; end < 2; ++end) {
    std::vector<std::int64_t>& histogram = (end == 0 ? m_low : m_high).histogram;
    CheckSurveyed(part.counts[end].size() == part.bins[end].size());
    for (std::size_t i = 0; i < part.bins[end].size(); ++i) {
      CheckSurveyed(part.bins[end][i] < histogram.size());
      histogram[part.bins[end][i]] += part.counts[end][i];
    }
  }
}

void OrderStatistics::Forget() {
  for (Target* target : {&m_low, &m_high}) std::fill(target->histogram.begin(), target->histogram.end(), 0);
}

void OrderStatistics::EndPass() {
  if (m_isFirstPass) {
    for (const std::int64_t n : m_low.histogram) m_count += n;
    m_low.rank = static_cast<std::int64_t>(m_ratio * static_cast<double>(m_count));
    m_high.rank = m_count - 1 - m_low.rank;
    m_high.histogram = m_low.histogram;
    m_isFirstPass = false;
  }
  Resolve(m_low);
  Resolve(m_high);
  m_shift -= kPassBits;
}

void OrderStatistics::Resolve(Target& target) const {
  std::uint64_t bin = 0;
  while (bin + 1 < kBins && target.rank >= target.histogram[bin]) target.rank -= target.histogram[bin++];
  if (m_count > 0) target.key |= bin << m_shift;
  target.histogram.assign(kBins, 0);
}

double OrderStatistics::ValueOf(std::uint64_t key) const {
  double value = 0.0;
  if (m_count == 0) return value;
  DispatchPixelType(m_type, [&](auto element) {
    value = FromKey<decltype(element)>(key);
    return true;
  });
  return value;
}

}  // namespace platform
