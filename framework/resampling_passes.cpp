#include "framework/resampling_passes.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include "framework/resampling.h"
#include "platform/system/multiversion.h"

namespace fusion {
namespace {

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
FUSION_ALWAYS_INLINE void StoreGroups(const BandGroup* values, int n, int at, double* const* out) {
  for (int b = 0; b < kBandGroup; ++b) {
    for (int i = 0; i < n; ++i) out[b][at + i] = values[i][b];
  }
}

}  // namespace

FUSION_MULTIVERSION
void CombineCubic(const double* line, const std::int32_t* first, const double* w0, const double* w1, const double* w2,
                  const double* w3, int n, double* out) {
  // The four taps of a column are fetched together, which is faster than gathering each tap of several columns.
  double taps[kPassPiece][4];
  for (int begin = 0; begin < n; begin += kPassPiece) {
    const int count = std::min(kPassPiece, n - begin);
    for (int i = 0; i < count; ++i) std::copy_n(line + first[begin + i], 4, taps[i]);
    for (int i = 0; i < count; ++i) {
      const int at = begin + i;
      out[at] = 0.0 + w0[at] * taps[i][0] + w1[at] * taps[i][1] + w2[at] * taps[i][2] + w3[at] * taps[i][3];
    }
  }
}

FUSION_MULTIVERSION
void BlendCubic(const double* l0, const double* l1, const double* l2, const double* l3, const double* w, int n,
                double* out) {
  const double w0 = w[0];
  const double w1 = w[1];
  const double w2 = w[2];
  const double w3 = w[3];
  for (int i = 0; i < n; ++i) out[i] = 0.0 + w0 * l0[i] + w1 * l1[i] + w2 * l2[i] + w3 * l3[i];
}

void CombineLinear(const double* line, const std::int32_t* first, const std::int32_t* second, const double* toFirst,
                   const double* toSecond, int n, double* out) {
  for (int i = 0; i < n; ++i) out[i] = toFirst[i] * line[second[i]] + toSecond[i] * line[first[i]];
}

FUSION_MULTIVERSION
void BlendLinear(const double* upper, const double* lower, double toSecond, double toFirst, int n, double* out) {
  for (int i = 0; i < n; ++i) out[i] = upper[i] * toSecond + lower[i] * toFirst;
}

void PickNearest(const double* line, const std::int32_t* index, int n, double* out) {
  for (int i = 0; i < n; ++i) out[i] = line[index[i]];
}

FUSION_MULTIVERSION
int KeepInside(const PositionBox& box, const double* x, const double* y, int n, double* keptX, double* keptY,
               std::int32_t* inside) {
  const PositionBox b = box;
  int count = 0;
  for (int i = 0; i < n; ++i) {
    const bool in = (x[i] >= b.left) & (y[i] >= b.top) & (x[i] < b.right) & (y[i] < b.bottom);
    keptX[i] = in ? x[i] : b.left;
    keptY[i] = in ? y[i] : b.top;
    inside[i] = in;
    count += in;
  }
  return count;
}

FUSION_MULTIVERSION
void PlaceCubic(const double* x, const double* y, int n, const CRect& rect, std::int32_t* first,
                double* const* columnWeights, double* const* rowWeights) {
  const int left = rect.left;
  const int top = rect.top;
  const int stride = rect.Width();
  for (int i = 0; i < n; ++i) {
    first[i] = (static_cast<int>(y[i]) - top - 1) * stride + static_cast<int>(x[i]) - left - 1;
  }
  for (int k = 0; k < 4; ++k) {
    double* column = columnWeights[k];
    double* row = rowWeights[k];
    for (int i = 0; i < n; ++i) column[i] = CubicWeight(x[i] - static_cast<int>(x[i]) + 1 - k);
    for (int i = 0; i < n; ++i) row[i] = CubicWeight(y[i] - static_cast<int>(y[i]) + 1 - k);
  }
}

FUSION_MULTIVERSION
void CombineCubicPoints(const double* samples, std::int64_t stride, const std::int32_t* first,
                        const double* const* columnWeights, const double* const* rowWeights, int n,
                        double* const* out) {
  BandGroup values[kPassPiece];
  for (int begin = 0; begin < n; begin += kPassPiece) {
    const int count = std::min(kPassPiece, n - begin);
    for (int i = 0; i < count; ++i) {
      const int at = begin + i;
      const double* taps = samples + std::ptrdiff_t{first[at]} * kBandGroup;
      BandGroup sum{};
      for (int j = 0; j < 4; ++j, taps += stride * kBandGroup) {
        BandGroup line{};
        for (int k = 0; k < 4; ++k) {
          BandGroup tap;
          LoadGroup(taps + kBandGroup * k, tap);
          AddScaled(tap, columnWeights[k][at], line);
        }
        AddScaled(line, rowWeights[j][at], sum);
      }
      values[i] = sum;
    }
    StoreGroups(values, count, begin, out);
  }
}

FUSION_MULTIVERSION
void CombineLinearPoints(const double* samples, const std::int32_t* const* taps, const double* const* columnWeights,
                         const double* const* rowWeights, int n, double* const* out) {
  BandGroup values[kPassPiece];
  for (int begin = 0; begin < n; begin += kPassPiece) {
    const int count = std::min(kPassPiece, n - begin);
    for (int i = 0; i < count; ++i) {
      const int at = begin + i;
      BandGroup lines[2];
      for (int j = 0; j < 2; ++j) {
        BandGroup first;
        BandGroup second;
        LoadGroup(samples + std::ptrdiff_t{taps[2 * j][at]} * kBandGroup, first);
        LoadGroup(samples + std::ptrdiff_t{taps[2 * j + 1][at]} * kBandGroup, second);
        Mix(second, columnWeights[0][at], first, columnWeights[1][at], lines[j]);
      }
      Mix(lines[0], rowWeights[1][at], lines[1], rowWeights[0][at], values[i]);
    }
    StoreGroups(values, count, begin, out);
  }
}

}  // namespace fusion
