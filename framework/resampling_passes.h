#pragma once

#include <cstdint>

namespace fusion {

// The inner loops of the row and the point resampler. They add in the order of ResamplePoint, so that every bit agrees.

/// Columns (or points) that work on rows of the passes at a time, few enough to stay in the first cache.
constexpr int kPassPiece = 64;

/// out[i] = the four samples from line + first[i] on, weighted with w0[i] to w3[i].
void CombineCubic(const double* line, const std::int32_t* first, const double* w0, const double* w1, const double* w2,
                  const double* w3, int n, double* out);
/// out[i] = four lines, weighted with w[0] to w[3].
void BlendCubic(const double* l0, const double* l1, const double* l2, const double* l3, const double* w, int n,
                double* out);
/// The same with weights of its own for each i.
void BlendCubicPoints(const double* const* lines, const double* const* weights, int n, double* out);

/// out[i] = the samples line[first[i]] and line[second[i]], each weighted with the distance to the other.
void CombineLinear(const double* line, const std::int32_t* first, const std::int32_t* second, const double* toFirst,
                   const double* toSecond, int n, double* out);
void BlendLinear(const double* upper, const double* lower, double toSecond, double toFirst, int n, double* out);
void BlendLinearPoints(const double* upper, const double* lower, const double* toSecond, const double* toFirst, int n,
                       double* out);

/// out[i] = line[index[i]]
void PickNearest(const double* line, const std::int32_t* index, int n, double* out);

/// The weights of MakeCubicTaps for positions at the given fractions of a pixel.
void CubicWeights(const double* fraction, int n, double* const* weights);

}  // namespace fusion
