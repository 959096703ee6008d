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

FUSION_ALWAYS_INLINE void AddScaled(const BandGroup& values, double weight, BandGroup& sum) {
  for (int b = 0; b < kBandGroup; ++b) sum[b] += weight * values[b];
}

FUSION_ALWAYS_INLINE void Mix(const BandGroup& a, double weightA, const BandGroup& b, double weightB, BandGroup& out) {
  for (int i = 0; i < kBandGroup; ++i) out[i] = weightA * a[i] + weightB * b[i];
}

/// From points side by side to one row for each band.
FUSION_ALWAYS_INLINE void StoreGroups(const BandGroup* values, int n, double* const* out) {
  for (int b = 0; b < kBandGroup; ++b) {
    for (int i = 0; i < n; ++i) out[b][i] = values[i][b];
  }
}

}  // namespace fusion
