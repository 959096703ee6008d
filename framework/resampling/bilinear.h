#pragma once

#include <cstddef>
#include <cstdint>

#include "framework/resampling/band_group.h"
#include "framework/resampling/nearest.h"
#include "framework/resampling/taps.h"
#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/raster_types.h"
#include "platform/system/multiversion.h"

namespace fusion {

/// The two samples around the position on each axis, each weighted with the distance to the other.
struct Bilinear {
  static constexpr ResampleType kType = RT_BILINEAR;
  static constexpr const char* kName = "bilinear";
  using Simpler = Nearest;
  static constexpr bool kSwings = false;
  static bool FitsColumn(double x, const CRect& rect) {
    const int ix = static_cast<int>(Sane(x));
    return ix < rect.right - 1 && (ix >= 0 || BeginsOnEdge(x, rect.left));
  }
  static bool FitsRow(double y, const CRect& rect) {
    const int iy = static_cast<int>(Sane(y));
    return iy < rect.bottom - 1 && (iy >= 0 || BeginsOnEdge(y, rect.top));
  }
  /// Whether the first tap lies on the image's repeated edge.
  static bool BeginsOnEdge(double position, int first) { return RepeatsEdge(first) && position >= first; }

  static constexpr int kTaps = 2;
  static constexpr int kBefore = 0;
  static constexpr int kBehind = 2;  // one, were it not for sums that are rounded up
  static Taps<kTaps> MakeTaps(double position, int origin, int /*size*/) {
    const double local = position - origin;
    const auto first = std::int64_t{WholeOf(position, origin)} - origin;
    const auto second = std::int64_t{WholeOf(position + 1.0, origin)} - origin;
    const double toFirst = local - static_cast<double>(first);
    const double toSecond = static_cast<double>(second) - local;
    return {{first, second}, {toSecond, toFirst}};
  }
  static double Combine(const double* weight, const double* samples) {
    return weight[0] * samples[0] + weight[1] * samples[1];
  }

  static void CombineLine(const double* line, const ColumnTaps& taps, int n, double* out) {
    const std::int32_t* first = taps.index[0];
    const std::int32_t* second = taps.index[1];
    const double* toFirst = taps.weight[1];
    const double* toSecond = taps.weight[0];
    for (int i = 0; i < n; ++i) out[i] = toFirst[i] * line[second[i]] + toSecond[i] * line[first[i]];
  }
  FUSION_MULTIVERSION_MEMBER(void, BlendLines, (const double* const* lines, const double* weight, int n, double* out),
                             (lines, weight, n, out)) {
    const double* upper = lines[0];
    const double* lower = lines[1];
    const double toSecond = weight[0];
    const double toFirst = weight[1];
    for (int i = 0; i < n; ++i) out[i] = upper[i] * toSecond + lower[i] * toFirst;
  }

  static constexpr int kBandsAtOnce = kBandGroup;
  /// Indices of the four taps: left and right of the upper row, then of the lower one.
  static void PlacePoints(const double* x, const double* y, int n, const CRect& rect, PointTaps& taps) {
    const std::int64_t stride = rect.Width();
    for (int i = 0; i < n; ++i) {
      const auto c = MakeTaps(x[i], rect.left, rect.Width());
      const auto r = MakeTaps(y[i], rect.top, rect.Height());
      for (int j = 0; j < 2; ++j) {
        for (int k = 0; k < 2; ++k) {
          taps.index[2 * j + k][i] = static_cast<std::int32_t>(r.index[j] * stride + c.index[k]);
        }
        taps.columnWeight[j][i] = c.weight[j];
        taps.rowWeight[j][i] = r.weight[j];
      }
    }
  }
  FUSION_MULTIVERSION_MEMBER(void, CombinePoints,
                             (const double* samples, [[maybe_unused]] const CRect& rect, const PointTaps& taps, int n,
                              double* const* out),
                             (samples, rect, taps, n, out)) {
    BandGroup values[kPassPiece];
    for (int i = 0; i < n; ++i) {
      BandGroup lines[2];
      for (int j = 0; j < 2; ++j) {
        BandGroup first;
        BandGroup second;
        LoadGroup(samples + std::ptrdiff_t{taps.index[2 * j][i]} * kBandGroup, first);
        LoadGroup(samples + std::ptrdiff_t{taps.index[2 * j + 1][i]} * kBandGroup, second);
        Mix(second, taps.columnWeight[1][i], first, taps.columnWeight[0][i], lines[j]);
      }
      Mix(lines[0], taps.rowWeight[0][i], lines[1], taps.rowWeight[1][i], values[i]);
    }
    StoreGroups(values, n, out);
  }
};

}  // namespace fusion
