#pragma once

#include <array>
#include <cstring>

#include "platform/system/multiversion.h"

namespace fusion {

/// Bands that are worked on together where every point has taps of its own.
constexpr int kBandGroup = 4;

// One value of each band of a group. The compiler is told that they make a vector: left to itself it makes vectors of
// neighbouring points, whose taps it must bring together first.
#if defined(__GNUC__)
using BandGroup = double __attribute__((vector_size(kBandGroup * sizeof(double))));
#else
using BandGroup = std::array<double, kBandGroup>;
#endif

// Vectors come and go by reference: how they would be passed by value depends on the instruction set.

FUSION_ALWAYS_INLINE void LoadGroup(const double* samples, BandGroup& group) {
  std::memcpy(&group, samples, sizeof group);
}

FUSION_ALWAYS_INLINE void StoreGroup(const BandGroup& group, double* samples) {
  std::memcpy(samples, &group, sizeof group);
}

FUSION_ALWAYS_INLINE void AddScaled(const BandGroup& values, double weight, BandGroup& sum) {
  for (int b = 0; b < kBandGroup; ++b) sum[b] += weight * values[b];
}

FUSION_ALWAYS_INLINE void Mix(const BandGroup& a, double weightA, const BandGroup& b, double weightB, BandGroup& out) {
  for (int i = 0; i < kBandGroup; ++i) out[i] = weightA * a[i] + weightB * b[i];
}

FUSION_ALWAYS_INLINE void AddProducts(const double* weights, const BandGroup& values, BandGroup& sum) {
  BandGroup weight;
  LoadGroup(weights, weight);
  for (int i = 0; i < kBandGroup; ++i) sum[i] += weight[i] * values[i];
}

/// Four groups become four others: the first values of all, the second ones, and so on.
FUSION_ALWAYS_INLINE void Transpose(BandGroup& a, BandGroup& b, BandGroup& c, BandGroup& d) {
#if defined(__GNUC__)
  const BandGroup even01 = __builtin_shufflevector(a, b, 0, 4, 2, 6);
  const BandGroup odd01 = __builtin_shufflevector(a, b, 1, 5, 3, 7);
  const BandGroup even23 = __builtin_shufflevector(c, d, 0, 4, 2, 6);
  const BandGroup odd23 = __builtin_shufflevector(c, d, 1, 5, 3, 7);
  a = __builtin_shufflevector(even01, even23, 0, 1, 4, 5);
  b = __builtin_shufflevector(odd01, odd23, 0, 1, 4, 5);
  c = __builtin_shufflevector(even01, even23, 2, 3, 6, 7);
  d = __builtin_shufflevector(odd01, odd23, 2, 3, 6, 7);
#else
  const BandGroup from[] = {a, b, c, d};
  for (int i = 0; i < kBandGroup; ++i) {
    a[i] = from[i][0];
    b[i] = from[i][1];
    c[i] = from[i][2];
    d[i] = from[i][3];
  }
#endif
}

/// From points side by side to one row for each band.
FUSION_ALWAYS_INLINE void StoreGroups(const BandGroup* values, int n, double* const* out) {
  int i = 0;
  for (; i + kBandGroup <= n; i += kBandGroup) {
    BandGroup a = values[i];
    BandGroup b = values[i + 1];
    BandGroup c = values[i + 2];
    BandGroup d = values[i + 3];
    Transpose(a, b, c, d);
    StoreGroup(a, out[0] + i);
    StoreGroup(b, out[1] + i);
    StoreGroup(c, out[2] + i);
    StoreGroup(d, out[3] + i);
  }
  for (; i < n; ++i) {
    for (int b = 0; b < kBandGroup; ++b) out[b][i] = values[i][b];
  }
}

}  // namespace fusion
