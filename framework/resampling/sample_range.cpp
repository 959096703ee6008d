#include "framework/resampling/sample_range.h"

#include <algorithm>
#include <limits>

#include "framework/resampling/kernels.h"
#include "framework/resampling/taps.h"
#include "platform/system/multiversion.h"

namespace fusion {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr SampleLimits kNoLimits{-kInfinity, kInfinity};

/// The extremes of four rows, of which a NaN is neither less nor more than anything.
FUSION_MULTIVERSION(void, LeastAndMost,
                    (const double* const* least, const double* const* most, int n, double* __restrict low,
                     double* __restrict high),
                    (least, most, n, low, high)) {
  const double* l0 = least[0];
  const double* l1 = least[1];
  const double* l2 = least[2];
  const double* l3 = least[3];
  const double* m0 = most[0];
  const double* m1 = most[1];
  const double* m2 = most[2];
  const double* m3 = most[3];
  for (int i = 0; i < n; ++i) {
    double lowest = l0[i] < kInfinity ? l0[i] : kInfinity;
    lowest = l1[i] < lowest ? l1[i] : lowest;
    lowest = l2[i] < lowest ? l2[i] : lowest;
    low[i] = l3[i] < lowest ? l3[i] : lowest;
    double highest = m0[i] > -kInfinity ? m0[i] : -kInfinity;
    highest = m1[i] > highest ? m1[i] : highest;
    highest = m2[i] > highest ? m2[i] : highest;
    high[i] = m3[i] > highest ? m3[i] : highest;
  }
}

/// Where there is no sample the extremes are the wrong way round, and limit nothing.
FUSION_MULTIVERSION(void, Pair, (const double* least, const double* most, int n, SampleLimits* __restrict out),
                    (least, most, n, out)) {
  for (int i = 0; i < n; ++i) {
    const bool isThere = least[i] <= most[i];
    out[i].least = isThere ? least[i] : kNoLimits.least;
    out[i].most = isThere ? most[i] : kNoLimits.most;
  }
}

/// The extremes of the four taps of every place on both axes, each cut to the rectangle: as if its edges went on.
std::vector<SampleLimits> Around(const double* samples, int width, int height) {
  const auto row = [width](int y) { return static_cast<std::ptrdiff_t>(y) * width; };
  const auto wide = static_cast<std::size_t>(width);
  std::vector<double> line(wide + kMostTaps - 1);
  // Of the last rows what lies along them, and behind these what lies across.
  std::vector<double> low((kMostTaps + 1) * wide);
  std::vector<double> high((kMostTaps + 1) * wide);
  const auto take = [&](int y) {
    const double* from = samples + row(y);
    line.front() = from[0];
    std::copy_n(from, width, line.begin() + 1);
    std::fill(line.begin() + 1 + width, line.end(), from[width - 1]);
    const double* const taps[] = {line.data(), line.data() + 1, line.data() + 2, line.data() + 3};
    LeastAndMost(taps, taps, width, low.data() + row(y % kMostTaps), high.data() + row(y % kMostTaps));
  };
  std::vector<SampleLimits> around(static_cast<std::size_t>(row(height)) + 1);
  around.front() = kNoLimits;
  for (int y = 0, lines = 0; y < height; ++y) {
    for (; lines < std::min(height, y + 3); ++lines) take(lines);
    const double* least[kMostTaps];
    const double* most[kMostTaps];
    for (int k = 0; k < kMostTaps; ++k) {
      const int at = std::clamp(y - 1 + k, 0, height - 1) % kMostTaps;
      least[k] = low.data() + row(at);
      most[k] = high.data() + row(at);
    }
    double* lowest = low.data() + row(kMostTaps);
    double* highest = high.data() + row(kMostTaps);
    LeastAndMost(least, most, width, lowest, highest);
    Pair(lowest, highest, width, around.data() + 1 + row(y));
  }
  return around;
}

/// The place among a rectangle's samples of each position, below 0 off it.
FUSION_MULTIVERSION(void, FindPlaces,
                    (const double* x, const double* y, int n, const CRect& rect, std::int32_t* places),
                    (x, y, n, rect, places)) {
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

/// Cuts a value; a NaN stays one.
FUSION_ALWAYS_INLINE double Limited(double value, const SampleLimits& limits) {
  const double cut = limits.least > value ? limits.least : value;
  return limits.most < cut ? limits.most : cut;
}

/// Cuts values to the limits of their places.
FUSION_MULTIVERSION(void, Cut,
                    (const SampleLimits* limits, const std::int32_t* places, int n, double* __restrict values),
                    (limits, places, n, values)) {
  for (int i = 0; i < n; ++i) values[i] = Limited(values[i], limits[places[i]]);
}

/// The same of limits that are fetched.
FUSION_MULTIVERSION(void, Cut, (const SampleLimits* limits, int n, double* __restrict values), (limits, n, values)) {
  for (int i = 0; i < n; ++i) values[i] = Limited(values[i], limits[i]);
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
      Cut(m_bands[b].data() + 1, places, n, values[b] + first);
    }
  }
}

void RowLimits::SetColumns(const double* x, int count) {
  const auto n = static_cast<std::size_t>(count);
  m_columns.resize(n);
  const std::vector<double> first(n, m_range.m_rect.top);
  FindPlaces(x, first.data(), count, m_range.m_rect, m_columns.data());
  m_row = -1;
  m_bands.resize(m_range.m_bands.size());
  for (auto& limits : m_bands) limits.resize(n);
}

void RowLimits::Fetch(std::int64_t row) {
  m_row = row;
  const std::int64_t at = 1 + row * m_range.m_rect.Width();
  for (std::size_t b = 0; b < m_bands.size(); ++b) {
    const SampleLimits* limits = m_range.m_bands[b].data();
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
      m_bands[b][i] = limits[m_columns[i] < 0 ? 0 : at + m_columns[i]];
    }
  }
}

void RowLimits::Keep(double y, double* const* values) {
  const CRect& rect = m_range.m_rect;
  const std::int64_t row = std::int64_t{WholeOf(Sane(y), rect.top)} - rect.top;
  if (row < 0 || row >= rect.Height()) return;
  if (row != m_row) Fetch(row);
  const auto count = static_cast<int>(m_columns.size());
  for (std::size_t b = 0; b < m_bands.size(); ++b) {
    Cut(m_bands[b].data(), count, values[b]);
  }
}

}  // namespace fusion
