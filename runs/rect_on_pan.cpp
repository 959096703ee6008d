#include "runs/rect_on_pan.h"

#include <cmath>

#include "runs/run_failure.h"

namespace fusion {
namespace {

/// Whether a step of one pixel of the fused image is one of the pan image on the ground, but for rounding.
bool HaveSamePixels(const CRasterSource& pan, const CRasterSource& fused) {
  const double* p = pan.PixelToGround().t;
  const double* f = fused.PixelToGround().t;
  constexpr double kTolerance = 0.01;
  return std::fabs(f[1] - p[1]) <= kTolerance * std::fabs(p[1]) &&
         std::fabs(f[5] - p[5]) <= kTolerance * std::fabs(p[5]);
}

}  // namespace

CRect RectOnPan(const CRasterSource& pan, const CRasterSource& fused) {
  if (!HaveSamePixels(pan, fused)) throw UsageError("The fused image's pixels are not those of the pan image.");
  double groundX = 0.0;
  double groundY = 0.0;
  fused.ImageToGround(0, 0, groundX, groundY);
  const double column = std::round(pan.GroundToPixel().X(groundX, groundY));
  const double row = std::round(pan.GroundToPixel().Y(groundX, groundY));
  const bool inside = column >= 0.0 && row >= 0.0 && column + fused.GetWidth() <= pan.GetWidth() &&
                      row + fused.GetHeight() <= pan.GetHeight();
  if (!inside) throw UsageError("The fused image does not lie inside the pan image.");
  const auto left = static_cast<int>(column);
  const auto top = static_cast<int>(row);
  return {left, top, left + fused.GetWidth(), top + fused.GetHeight()};
}

}  // namespace fusion
