#include "framework/resampling/sample_range.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "framework/resampling/kernels.h"
#include "framework/resampling/taps.h"
#include "platform/system/multiversion.h"

namespace fusion {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// Widens ranges by values, of which a NaN is neither less nor more than anything.
FUSION_MULTIVERSION
void Widen(const double* least, const double* most, int n, double* __restrict low, double* __restrict high) {
  for (int i = 0; i < n; ++i) {
    low[i] = least[i] < low[i] ? least[i] : low[i];
    high[i] = most[i] > high[i] ? most[i] : high[i];
  }
}

/// The extremes of the four taps of every place on both axes, each cut to the rectangle.
SampleLimits Around(const double* samples, int width, int height) {
  const auto row = [width](int y) { return static_cast<std::ptrdiff_t>(y) * width; };
  const auto size = static_cast<std::size_t>(row(height));
  std::vector<double> low(size, kInfinity);
  std::vector<double> high(size, -kInfinity);
  for (int y = 0; y < height; ++y) {
    for (int k = -1; k <= 2; ++k) {
      const int first = std::max(0, -k);
      const double* taps = samples + row(y) + first + k;
      Widen(taps, taps, width - std::abs(k), low.data() + row(y) + first, high.data() + row(y) + first);
    }
  }
  // One before the first, for positions off the rectangle.
  SampleLimits around{std::vector<double>(size + 1, kInfinity), std::vector<double>(size + 1, -kInfinity)};
  for (int y = 0; y < height; ++y) {
    for (int line = std::max(0, y - 1); line < std::min(height, y + 3); ++line) {
      Widen(low.data() + row(line), high.data() + row(line), width, around.least.data() + row(y) + 1,
            around.most.data() + row(y) + 1);
    }
  }
  return around;
}

/// The place among a rectangle's samples of each position, below 0 off it.
FUSION_MULTIVERSION
void FindPlaces(const double* x, const double* y, int n, const CRect& rect, std::int32_t* places) {
  const int left = rect.left;
  const int top = rect.top;
  const auto width = static_cast<std::uint32_t>(rect.Width());
  const auto height = static_cast<std::uint32_t>(rect.Height());
  for (int i = 0; i < n; ++i) {
    // Without a sign what lies before the first is beyond the last, too.
    const auto column = static_cast<std::uint32_t>(WholeOf(Sane(x[i]), left)) - static_cast<std::uint32_t>(left);
    const auto row = static_cast<std::uint32_t>(WholeOf(Sane(y[i]), top)) - static_cast<std::uint32_t>(top);
    const bool isOn = (column < width) & (row < height);
    places[i] = isOn ? static_cast<std::int32_t>(row * width + column) : -1;
  }
}

/// Cuts values to the limits of their places; where there is no sample there are no limits.
FUSION_MULTIVERSION
void Cut(const double* least, const double* most, const std::int32_t* places, int n, double* __restrict values) {
  for (int i = 0; i < n; ++i) {
    const double low = least[places[i]];
    const double high = most[places[i]];
    const double value = values[i];
    const double cut = value < low ? low : value > high ? high : value;
    values[i] = low <= high ? cut : value;
  }
}

}  // namespace

SampleRange::SampleRange(const double* const* bands, int bandCount, const CRect& rect, platform::Workers* workers)
    : m_rect(rect), m_bands(static_cast<std::size_t>(bandCount)) {
  platform::ForEach(workers, bandCount, [&](int b) {
    m_bands[static_cast<std::size_t>(b)] = Around(bands[b], rect.Width(), rect.Height());
  });
}

bool SampleRange::IsNeededBy(ResampleType type) {
  bool isNeeded = false;
  VisitKernel(type, [&]<typename Kernel>(Kernel) { isNeeded = Kernel::kSwings; });
  return isNeeded;
}

void SampleRange::Keep(const double* x, const double* y, int count, double* const* values) const {
  constexpr int kPiece = 512;
  std::int32_t places[kPiece];
  for (int first = 0; first < count; first += kPiece) {
    const int n = std::min(kPiece, count - first);
    FindPlaces(x + first, y + first, n, m_rect, places);
    for (std::size_t b = 0; b < m_bands.size(); ++b) {
      // Before the first sample stands what leaves every value alone.
      Cut(m_bands[b].least.data() + 1, m_bands[b].most.data() + 1, places, n, values[b] + first);
    }
  }
}

}  // namespace fusion
