#pragma once

#include <vector>

#include "platform/raster/affine.h"

namespace platform {

/// A ground box cut into equal cells.
struct GroundCells {
  double left = 0.0;
  double top = 0.0;
  double cellX = 0.0;
  double cellY = 0.0;
  int columns = 0;
  int rows = 0;
};

/// Positions in a source raster at the corners of the cells, and between them by bilinear interpolation.
struct PositionGrid {
  struct Point {
    double x;
    double y;
  };

  GroundCells cells;
  std::vector<Point> nodes;  ///< (columns + 1) x (rows + 1)

  bool IsEmpty() const { return nodes.empty(); }
  /// Positions of n ground points, which may be written over them. Points outside the box stay what they are; their
  /// numbers are added to the list.
  void Interpolate(const double* groundX, const double* groundY, int n, double* x, double* y,
                   std::vector<int>& outside) const;
};

/// The sample coordinates of n ground points on an image, in place.
void GroundToSamples(const Affine& groundToPixel, int width, int height, int n, double* x, double* y, int edge = 0);
/// SampleCoordinate of n corner-based coordinates, in place.
void ToSampleCoordinates(double* corners, int n, int size, int edge = 0);

}  // namespace platform
