#include "platform/statistics/clipped_moments.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include "platform/validity/no_data.h"

namespace platform {
namespace {

/// A value's bits as a number that grows with the value.
std::uint64_t Sortable(double value) {
  constexpr std::uint64_t kSign = std::uint64_t{1} << 63;
  const auto bits = std::bit_cast<std::uint64_t>(value);
  return bits & kSign ? ~bits : bits | kSign;
}

}  // namespace

ClippedMoments::ClippedMoments(double noData) : m_noData(noData), m_all(noData), m_pages(std::size_t{1} << kPageBits) {}

void ClippedMoments::Add(const double* values, std::int64_t count) {
  m_all.Add(values, count);
  for (std::int64_t i = 0; i < count; ++i) {
    const double v = values[i];
    if (!IsValidSample(v, m_noData)) continue;
    const std::uint64_t key = Sortable(v) >> (64 - kPageBits - kBinBits);
    auto& page = m_pages[key >> kBinBits];
    if (!page) page = std::make_unique<Page>();
    Bin& bin = (*page)[key & ((1U << kBinBits) - 1)];
    bin.sum += v;
    ++bin.count;
  }
}

double ClippedMoments::Widening() const {
  if (m_outliers == 0 || !(m_stdDev > 0.0)) return 1.0;
  const double widening = m_all.StdDev() / m_stdDev;
  // The squares of the largest values are no numbers.
  return std::isfinite(widening) ? widening : std::numeric_limits<double>::infinity();
}

template <typename Visit>
void ClippedMoments::ForBins(const Visit& visit) const {
  for (const auto& page : m_pages) {
    if (!page) continue;
    for (const Bin& bin : *page) {
      if (bin.count > 0) visit(bin);
    }
  }
}

double ClippedMoments::ValueOfRank(std::int64_t rank) const {
  double value = 0.0;
  std::int64_t before = 0;
  ForBins([&](const Bin& bin) {
    if (before <= rank) value = bin.Mean();
    before += bin.count;
  });
  return value;
}

void ClippedMoments::Settle() {
  constexpr std::int64_t kPermille = 1000;
  m_mean = m_all.Mean();
  m_stdDev = m_all.StdDev();
  m_outliers = 0;
  const std::int64_t count = m_all.Count();
  const double low = ValueOfRank(count / kPermille);
  const double high = ValueOfRank(count - 1 - count / kPermille);
  const double least = low - (high - low);
  const double most = high + (high - low);
  // What is nearly everywhere the same has no range that others could lie beyond.
  if (!(low < high)) return;
  double sum = 0.0;
  ForBins([&](const Bin& bin) {
    const double value = bin.Mean();
    if (value < least || value > most) m_outliers += bin.count;
    sum += std::clamp(value, least, most) * static_cast<double>(bin.count);
  });
  if (m_outliers == 0) return;
  m_mean = sum / static_cast<double>(count);
  double squares = 0.0;
  ForBins([&](const Bin& bin) {
    const double deviation = std::clamp(bin.Mean(), least, most) - m_mean;
    squares += deviation * deviation * static_cast<double>(bin.count);
  });
  m_stdDev = std::sqrt(squares / static_cast<double>(count));
}

}  // namespace platform
