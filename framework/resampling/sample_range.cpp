#include "framework/resampling/sample_range.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "framework/resampling/kernels.h"
#include "framework/resampling/taps.h"

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
  std::vector<double> around(lines.size(), Extreme::kNone);
  for (int y = 0; y < height; ++y) {
    for (int line = std::max(0, y - 1); line < std::min(height, y + 3); ++line) {
      for (int x = 0; x < width; ++x) {
        double& extreme = around[static_cast<std::size_t>(row(y) + x)];
        extreme = Extreme::Of(extreme, lines[static_cast<std::size_t>(row(line) + x)]);
      }
    }
  }
  return around;
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
  for (int i = 0; i < count; ++i) {
    const std::int64_t column = std::int64_t{WholeOf(Sane(x[i]), m_rect.left)} - m_rect.left;
    const std::int64_t row = std::int64_t{WholeOf(Sane(y[i]), m_rect.top)} - m_rect.top;
    if (column < 0 || column >= m_rect.Width() || row < 0 || row >= m_rect.Height()) continue;
    const auto at = static_cast<std::size_t>(row * m_rect.Width() + column);
    for (std::size_t b = 0; b < m_bands.size(); ++b) {
      const double least = m_bands[b].least[at];
      const double most = m_bands[b].most[at];
      // Where there is no sample there are no limits.
      if (!(least <= most)) continue;
      double& value = values[b][i];
      value = value < least ? least : value > most ? most : value;
    }
  }
}

}  // namespace fusion
