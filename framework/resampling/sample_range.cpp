#include "framework/resampling/sample_range.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "framework/resampling/kernels.h"
#include "framework/resampling/taps.h"
#include "platform/system/multiversion.h"

namespace fusion {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct Less {
  static constexpr double kNone = kInfinity;
  static double Of(double a, double b) { return b < a ? b : a; }
};
struct More {
  static constexpr double kNone = -kInfinity;
  static double Of(double a, double b) { return b > a ? b : a; }
};

/// The extreme of the four taps of every place on both axes, each cut to the rectangle.
template <typename Extreme>
std::vector<double> Around(const double* samples, int width, int height) {
  const auto row = [width](int y) { return static_cast<std::ptrdiff_t>(y) * width; };
  std::vector<double> lines(static_cast<std::size_t>(row(height)), Extreme::kNone);
  for (int y = 0; y < height; ++y) {
    for (int k = -1; k <= 2; ++k) {
      const int end = std::min(width, width - k);
      // A NaN is neither less nor more than anything.
      for (int x = std::max(0, -k); x < end; ++x) {
        double& extreme = lines[static_cast<std::size_t>(row(y) + x)];
        extreme = Extreme::Of(extreme, samples[row(y) + x + k]);
      }
    }
  }
  // One before the first, for positions off the rectangle.
  std::vector<double> around(lines.size() + 1, Extreme::kNone);
  for (int y = 0; y < height; ++y) {
    for (int line = std::max(0, y - 1); line < std::min(height, y + 3); ++line) {
      for (int x = 0; x < width; ++x) {
        double& extreme = around[static_cast<std::size_t>(row(y) + x + 1)];
        extreme = Extreme::Of(extreme, lines[static_cast<std::size_t>(row(line) + x)]);
      }
    }
  }
  return around;
}

/// The place among a rectangle's samples of each position, below 0 off it.
FUSION_MULTIVERSION
void FindPlaces(const double* x, const double* y, int n, const CRect& rect, std::int64_t* places) {
  const int left = rect.left;
  const int top = rect.top;
  const std::int64_t width = rect.Width();
  const std::int64_t height = rect.Height();
  for (int i = 0; i < n; ++i) {
    const std::int64_t column = std::int64_t{WholeOf(Sane(x[i]), left)} - left;
    const std::int64_t row = std::int64_t{WholeOf(Sane(y[i]), top)} - top;
    const bool isOn = (column >= 0) & (column < width) & (row >= 0) & (row < height);
    places[i] = isOn ? row * width + column : -1;
  }
}

/// Cuts values to the limits of their places; where there is no sample there are no limits.
FUSION_MULTIVERSION
void Cut(const double* least, const double* most, const std::int64_t* places, int n, double* __restrict values) {
  for (int i = 0; i < n; ++i) {
    const double low = least[places[i]];
    const double high = most[places[i]];
    const double value = values[i];
    const double cut = value < low ? low : value > high ? high : value;
    values[i] = low <= high ? cut : value;
  }
}

}  // namespace

SampleRange::SampleRange(const double* const* bands, int bandCount, const CRect& rect) : m_rect(rect) {
  for (int b = 0; b < bandCount; ++b) {
    m_bands.push_back(
        {Around<Less>(bands[b], rect.Width(), rect.Height()), Around<More>(bands[b], rect.Width(), rect.Height())});
  }
}

bool SampleRange::IsNeededBy(ResampleType type) {
  bool isNeeded = false;
  VisitKernel(type, [&]<typename Kernel>(Kernel) { isNeeded = Kernel::kSwings; });
  return isNeeded;
}

void SampleRange::Keep(const double* x, const double* y, int count, double* const* values) const {
  constexpr int kPiece = 512;
  std::int64_t places[kPiece];
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
