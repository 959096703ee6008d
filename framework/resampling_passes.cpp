#include "framework/resampling_passes.h"

#include <algorithm>

#include "framework/resampling.h"
#include "platform/system/multiversion.h"

namespace fusion {

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
void BlendCubicPoints(const double* const* lines, const double* const* weights, int n, double* out) {
  const double* l0 = lines[0];
  const double* l1 = lines[1];
  const double* l2 = lines[2];
  const double* l3 = lines[3];
  const double* w0 = weights[0];
  const double* w1 = weights[1];
  const double* w2 = weights[2];
  const double* w3 = weights[3];
  for (int i = 0; i < n; ++i) out[i] = 0.0 + w0[i] * l0[i] + w1[i] * l1[i] + w2[i] * l2[i] + w3[i] * l3[i];
}

FUSION_MULTIVERSION
void BlendLinearPoints(const double* upper, const double* lower, const double* toSecond, const double* toFirst, int n,
                       double* out) {
  for (int i = 0; i < n; ++i) out[i] = upper[i] * toSecond[i] + lower[i] * toFirst[i];
}

FUSION_MULTIVERSION
void CubicWeights(const double* fraction, int n, double* const* weights) {
  for (int k = 0; k < 4; ++k) {
    double* w = weights[k];
    for (int i = 0; i < n; ++i) w[i] = CubicWeight(fraction[i] + 1 - k);
  }
}

}  // namespace fusion
