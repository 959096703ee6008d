#include "platform/raster/position_grid.h"

#include <algorithm>
#include <cstdint>

#include "platform/raster/affine.h"
#include "platform/system/multiversion.h"

namespace platform {
namespace {

/// Points that are worked off at a time, few enough to stay in the first cache.
constexpr int kPiece = 256;

/// For each point the number of its cell's first node, -1 outside the box, and the place in the cell.
FUSION_MULTIVERSION(void, LocatePoints,
                    (GroundCells cells, const double* groundX, const double* groundY, int n, std::int32_t* node,
                     double* fractionX, double* fractionY),
                    (cells, groundX, groundY, n, node, fractionX, fractionY)) {
  for (int i = 0; i < n; ++i) {
    const double u = (groundX[i] - cells.left) / cells.cellX;
    const double v = (groundY[i] - cells.top) / cells.cellY;
    const bool inside = (u >= 0.0) & (v >= 0.0) & (u <= cells.columns) & (v <= cells.rows);
    const double insideU = inside ? u : 0.0;
    const double insideV = inside ? v : 0.0;
    const int column = std::min(static_cast<int>(insideU), cells.columns - 1);
    const int row = std::min(static_cast<int>(insideV), cells.rows - 1);
    fractionX[i] = insideU - column;
    fractionY[i] = insideV - row;
    node[i] = inside ? row * (cells.columns + 1) + column : -1;
  }
}

/// One coordinate between the four nodes of a cell.
FUSION_MULTIVERSION(void, InterpolateCell,
                    (double a, double b, double c, double d, const double* fractionX, const double* fractionY, int n,
                     double* out),
                    (a, b, c, d, fractionX, fractionY, n, out)) {
  for (int i = 0; i < n; ++i) {
    const double fx = fractionX[i];
    const double fy = fractionY[i];
    out[i] = (a * (1.0 - fx) + b * fx) * (1.0 - fy) + (c * (1.0 - fx) + d * fx) * fy;
  }
}

}  // namespace

void PositionGrid::Interpolate(const double* groundX, const double* groundY, int n, double* x, double* y,
                               std::vector<int>& outside) const {
  std::int32_t node[kPiece];
  double fractionX[kPiece];
  double fractionY[kPiece];
  for (int first = 0; first < n; first += kPiece) {
    const int count = std::min(kPiece, n - first);
    LocatePoints(cells, groundX + first, groundY + first, count, node, fractionX, fractionY);
    // Neighbours mostly lie in the same cell.
    for (int begin = 0, end = 0; begin < count; begin = end) {
      while (end < count && node[end] == node[begin]) ++end;
      if (node[begin] < 0) {
        for (int i = first + begin; i < first + end; ++i) {
          x[i] = groundX[i];
          y[i] = groundY[i];
          outside.push_back(i);
        }
        continue;
      }
      const Point* upper = nodes.data() + node[begin];
      const Point* lower = upper + cells.columns + 1;
      InterpolateCell(upper[0].x, upper[1].x, lower[0].x, lower[1].x, fractionX + begin, fractionY + begin, end - begin,
                      x + first + begin);
      InterpolateCell(upper[0].y, upper[1].y, lower[0].y, lower[1].y, fractionX + begin, fractionY + begin, end - begin,
                      y + first + begin);
    }
  }
}

FUSION_MULTIVERSION(void, GroundToSamples,
                    (const Affine& groundToPixel, int width, int height, int n, double* x, double* y, int edge),
                    (groundToPixel, width, height, n, x, y, edge)) {
  for (int i = 0; i < n; ++i) {
    const double groundX = x[i];
    const double groundY = y[i];
    x[i] = SampleCoordinate(groundToPixel.X(groundX, groundY), width, edge);
    y[i] = SampleCoordinate(groundToPixel.Y(groundX, groundY), height, edge);
  }
}

FUSION_MULTIVERSION(void, ToSampleCoordinates, (double* corners, int n, int size, int edge), (corners, n, size, edge)) {
  for (int i = 0; i < n; ++i) corners[i] = SampleCoordinate(corners[i], size, edge);
}

}  // namespace platform
