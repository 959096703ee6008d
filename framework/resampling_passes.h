#pragma once

#include <cstdint>

#include "platform/raster/raster_types.h"

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

/// out[i] = the samples line[first[i]] and line[second[i]], each weighted with the distance to the other.
void CombineLinear(const double* line, const std::int32_t* first, const std::int32_t* second, const double* toFirst,
                   const double* toSecond, int n, double* out);
void BlendLinear(const double* upper, const double* lower, double toSecond, double toFirst, int n, double* out);

/// out[i] = line[index[i]]
void PickNearest(const double* line, const std::int32_t* index, int n, double* out);

/// Positions at or behind the near corner and before the far one.
struct PositionBox {
  double left = 0.0;
  double top = 0.0;
  double right = 0.0;
  double bottom = 0.0;
};

/// Copies positions, those outside the box (or NaN) replaced by its near corner, and tells which were inside.
/// @return how many
int KeepInside(const PositionBox& box, const double* x, const double* y, int n, double* keptX, double* keptY,
               std::int32_t* inside);

/// Bands that are worked on together where every point has taps of its own.
constexpr int kBandGroup = 4;

/// Linear indices, in the rectangle, of the first of the sixteen taps of each position, and the weights of
/// MakeCubicTaps.
void PlaceCubic(const double* x, const double* y, int n, const CRect& rect, std::int32_t* first,
                double* const* columnWeights, double* const* rowWeights);
/// One row for each band of a group: sixteen taps and weights of its own for each i. The samples of a group lie beside
/// each other; stride counts pixels.
void CombineCubicPoints(const double* samples, std::int64_t stride, const std::int32_t* first,
                        const double* const* columnWeights, const double* const* rowWeights, int n, double* const* out);
/// The same of four taps: their linear indices, left and right of the upper row, then of the lower one, and of columns
/// and of rows the distances to the first and to the second.
void CombineLinearPoints(const double* samples, const std::int32_t* const* taps, const double* const* columnWeights,
                         const double* const* rowWeights, int n, double* const* out);

}  // namespace fusion
