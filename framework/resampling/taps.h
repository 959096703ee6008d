#pragma once

#include <cstdint>

namespace fusion {

/// The taps that a kernel may have on an axis, and the samples in a row that they may lie within.
constexpr int kMostTaps = 4;

/// A rectangle that begins before the image's first sample repeats the image's edges, and positions lie there, too.
inline bool RepeatsEdge(int first) { return first < 0; }

/// The whole number in a position, cut to it, as kernels take it; before the image's first sample the one below.
inline int WholeOf(double position, int first) {
  const int whole = static_cast<int>(position);
  return whole - static_cast<int>(RepeatsEdge(first) & (position < whole));
}

/// The taps of one axis: samples in ascending order, counted from the rectangle's first, and a weight for each.
template <int N>
struct Taps {
  std::int64_t index[N];
  double weight[N];
};

/// The taps of many columns: for each tap one row.
struct ColumnTaps {
  const std::int32_t* index[kMostTaps];
  const double* weight[kMostTaps];
};

/// Columns (or points) that are worked on at a time, few enough to stay in the first cache.
constexpr int kPassPiece = 64;

/// The taps of up to kPassPiece points.
struct PointTaps {
  std::int32_t index[kMostTaps][kPassPiece];  ///< linear indices in the rectangle, those that the kernel asks for
  double columnWeight[kMostTaps][kPassPiece];
  double rowWeight[kMostTaps][kPassPiece];
};

/// Positions that no image can hold would not survive the conversion to int.
inline double Sane(double position) {
  constexpr double kFar = 1073741824.0;
  return ((position >= -kFar) & (position <= kFar)) ? position : -1e9;
}

}  // namespace fusion
