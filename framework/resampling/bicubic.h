#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "framework/resampling/band_group.h"
#include "framework/resampling/bilinear.h"
#include "framework/resampling/keys.h"
#include "framework/resampling/taps.h"
#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/raster_types.h"
#include "platform/system/multiversion.h"

namespace fusion {

/// Cubic convolution, see KeysWeight.
struct Bicubic {
  static constexpr ResampleType kType = RT_BICUBIC;
  static constexpr const char* kName = "bicubic";
  using Simpler = Bilinear;
  static constexpr bool kSwings = true;
  static bool FitsColumn(double x, const CRect& rect) {
    const int ix = static_cast<int>(Sane(x));
    return ix + 1 < rect.right - 1 && (ix >= 1 || BeginsOnEdge(x, rect.left));
  }
  static bool FitsRow(double y, const CRect& rect) {
    const int iy = static_cast<int>(Sane(y));
    // Unlike for columns, equality is allowed: the fourth row may lie just behind the rectangle and then counts as 0.
    return iy + 1 <= rect.bottom - 1 && (iy >= 1 || BeginsOnEdge(y, rect.top));
  }
  /// Whether the first tap lies on the image's repeated edge.
  static bool BeginsOnEdge(double position, int first) { return RepeatsEdge(first) && position >= first + 1; }

  static double Weight(double t) { return KeysWeight(t); }
  static constexpr int kTaps = 4;
  static constexpr int kBefore = 1;
  static constexpr int kBehind = 2;
  static Taps<kTaps> MakeTaps(double position, int origin, int /*size*/) {
    const int whole = WholeOf(position, origin);
    const double fraction = position - whole;
    Taps<kTaps> taps;
    for (int k = 0; k < 4; ++k) {
      taps.index[k] = static_cast<std::int64_t>(whole) - origin - 1 + k;
      taps.weight[k] = Weight(fraction + 1 - k);
    }
    return taps;
  }
  static double Combine(const double* weight, const double* samples) {
    double sum = 0.0;
    for (int k = 0; k < 4; ++k) sum += weight[k] * samples[k];
    return sum;
  }

  FUSION_MULTIVERSION_MEMBER(void, CombineLine, (const double* line, const ColumnTaps& columns, int n, double* out),
                             (line, columns, n, out)) {
    const std::int32_t* first = columns.index[0];
    const double* w0 = columns.weight[0];
    const double* w1 = columns.weight[1];
    const double* w2 = columns.weight[2];
    const double* w3 = columns.weight[3];
    // The four taps of a column are fetched together, those of four columns turned round: gathering takes longer.
    int i = 0;
    for (; i + kBandGroup <= n; i += kBandGroup) {
      BandGroup t0, t1, t2, t3;
      LoadGroup(line + first[i], t0);
      LoadGroup(line + first[i + 1], t1);
      LoadGroup(line + first[i + 2], t2);
      LoadGroup(line + first[i + 3], t3);
      Transpose(t0, t1, t2, t3);
      BandGroup sum{};
      AddProducts(w0 + i, t0, sum);
      AddProducts(w1 + i, t1, sum);
      AddProducts(w2 + i, t2, sum);
      AddProducts(w3 + i, t3, sum);
      StoreGroup(sum, out + i);
    }
    for (; i < n; ++i) {
      const double weight[] = {w0[i], w1[i], w2[i], w3[i]};
      out[i] = Combine(weight, line + first[i]);
    }
  }
  FUSION_MULTIVERSION_MEMBER(void, BlendLines, (const double* const* lines, const double* weight, int n, double* out),
                             (lines, weight, n, out)) {
    const double* l0 = lines[0];
    const double* l1 = lines[1];
    const double* l2 = lines[2];
    const double* l3 = lines[3];
    const double w0 = weight[0];
    const double w1 = weight[1];
    const double w2 = weight[2];
    const double w3 = weight[3];
    for (int i = 0; i < n; ++i) out[i] = 0.0 + w0 * l0[i] + w1 * l1[i] + w2 * l2[i] + w3 * l3[i];
  }

  static constexpr int kBandsAtOnce = kBandGroup;
  /// The index of the first of the sixteen taps.
  FUSION_MULTIVERSION_MEMBER(void, PlacePoints,
                             (const double* x, const double* y, int n, const CRect& rect, PointTaps& taps),
                             (x, y, n, rect, taps)) {
    const int left = rect.left;
    const int top = rect.top;
    const int stride = rect.Width();
    std::int32_t* first = taps.index[0];
    for (int i = 0; i < n; ++i) {
      first[i] = (static_cast<int>(y[i]) - top - 1) * stride + static_cast<int>(x[i]) - left - 1;
    }
    for (int k = 0; k < 4; ++k) {
      double* column = taps.columnWeight[k];
      double* row = taps.rowWeight[k];
      for (int i = 0; i < n; ++i) column[i] = Weight(x[i] - static_cast<int>(x[i]) + 1 - k);
      for (int i = 0; i < n; ++i) row[i] = Weight(y[i] - static_cast<int>(y[i]) + 1 - k);
    }
  }
  FUSION_MULTIVERSION_MEMBER(void, CombinePoints,
                             (const double* samples, const CRect& rect, const PointTaps& taps, int n,
                              double* const* out),
                             (samples, rect, taps, n, out)) {
    const std::ptrdiff_t stride = std::ptrdiff_t{rect.Width()} * kBandGroup;
    BandGroup values[kPassPiece];
    for (int i = 0; i < n; ++i) {
      const double* at = samples + std::ptrdiff_t{taps.index[0][i]} * kBandGroup;
      BandGroup sum{};
      for (int j = 0; j < 4; ++j, at += stride) {
        BandGroup line{};
        for (int k = 0; k < 4; ++k) {
          BandGroup tap;
          LoadGroup(at + kBandGroup * k, tap);
          AddScaled(tap, taps.columnWeight[k][i], line);
        }
        AddScaled(line, taps.rowWeight[j][i], sum);
      }
      values[i] = sum;
    }
    StoreGroups(values, n, out);
  }
};

}  // namespace fusion
