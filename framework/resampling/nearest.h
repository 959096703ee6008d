#pragma once

#include <algorithm>
#include <cstdint>

#include "framework/resampling/taps.h"
#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/raster_types.h"

namespace fusion {

/// The sample nearest to the position. What a kernel says of itself is told here; the others follow.
struct Nearest {
  static constexpr ResampleType kType = RT_NEAREST;
  static constexpr const char* kName = "nearest";
  /// The kernel that takes over where the neighbourhood does not fit; void where it always does.
  using Simpler = void;
  /// Whether values may lie beyond the samples that they are made from.
  static constexpr bool kSwings = false;
  static bool FitsColumn(double /*x*/, const CRect& /*rect*/) { return true; }
  static bool FitsRow(double /*y*/, const CRect& /*rect*/) { return true; }

  /// Taps on an axis, and how far from the whole number in a position, cut to it, they reach at most.
  static constexpr int kTaps = 1;
  static constexpr int kBefore = 0;
  static constexpr int kBehind = 1;
  /// @param origin first sample of the rectangle on that axis
  /// @param size its number of samples
  static Taps<kTaps> MakeTaps(double position, int origin, int size) {
    const std::int64_t index = static_cast<std::int64_t>(static_cast<int>(Sane(position) + 0.5)) - origin;
    // The upper clamp is one past the last sample.
    const std::int64_t cut = index > size ? size : index;
    return {{cut < 0 ? 0 : cut}, {1.0}};
  }
  /// One axis: the value at the position, of the samples at its taps.
  static double Combine(const double* /*weight*/, const double* samples) { return samples[0]; }

  // The same for many positions at a time. These loops add in the order of Combine, so that every bit agrees.

  /// out[i] = a line's samples, combined at column i.
  static void CombineLine(const double* line, const ColumnTaps& taps, int n, double* out) {
    const std::int32_t* index = taps.index[0];
    for (int i = 0; i < n; ++i) out[i] = line[index[i]];
  }
  /// out[i] = the combined lines at a row's taps, combined.
  static void BlendLines(const double* const* lines, const double* /*weight*/, int n, double* out) {
    std::copy_n(lines[0], n, out);
  }

  /// Bands that CombinePoints works on, their samples beside each other.
  static constexpr int kBandsAtOnce = 1;
  /// The taps of up to kPassPiece points whose whole neighbourhood lies inside the rectangle.
  static void PlacePoints(const double* x, const double* y, int n, const CRect& rect, PointTaps& taps) {
    const std::int64_t stride = rect.Width();
    for (int i = 0; i < n; ++i) {
      const std::int64_t column = MakeTaps(x[i], rect.left, rect.Width()).index[0];
      const std::int64_t row = MakeTaps(y[i], rect.top, rect.Height()).index[0];
      taps.index[0][i] = static_cast<std::int32_t>(row * stride + column);
    }
  }
  /// One row of values for each of the bands.
  static void CombinePoints(const double* samples, const CRect& /*rect*/, const PointTaps& taps, int n,
                            double* const* out) {
    const std::int32_t* index = taps.index[0];
    double* row = out[0];
    for (int i = 0; i < n; ++i) row[i] = samples[index[i]];
  }
};

}  // namespace fusion
