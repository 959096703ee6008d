#pragma once

#include <cstdint>

#include "platform/system/multiversion.h"

namespace fusion {

/// Positions at or behind the near corner and before the far one.
struct PositionBox {
  double left = 0.0;
  double top = 0.0;
  double right = 0.0;
  double bottom = 0.0;
};

/// Copies positions, those outside the box (or NaN) replaced by its near corner, and tells which were inside.
/// @return how many
FUSION_MULTIVERSION_INLINE(int, KeepInside,
                           (const PositionBox& box, const double* x, const double* y, int n, double* keptX,
                            double* keptY, std::int32_t* inside),
                           (box, x, y, n, keptX, keptY, inside)) {
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

}  // namespace fusion
