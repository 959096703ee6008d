#pragma once

#include <cmath>
#include <functional>
#include <vector>

#include "platform/raster/bounding_box.h"
#include "platform/raster/position_grid.h"

namespace platform {

/// Smallest and largest coordinates of the points that are finite.
struct Envelope {
  double minX = INFINITY;
  double minY = INFINITY;
  double maxX = -INFINITY;
  double maxY = -INFINITY;

  void Add(const PositionGrid::Point& p);
  bool IsEmpty() const { return !(minX <= maxX && minY <= maxY); }
};

/// Carries boxes from one coordinate system into another by points of their outline and of their inside, which may
/// reach farther: a pole lies in the middle of a box of polar coordinates and at the end of all latitudes.
class BoxCarrier {
 public:
  using Point = PositionGrid::Point;
  /// Points in place; NaN where one has no image.
  using Transform = std::function<void(std::vector<Point>&)>;

  /// @param back the other direction of the transformation
  /// @param fullTurn of the target's longitudes, in its units; 0 where the target is not geographic
  BoxCarrier(Transform transform, const Transform& back, double fullTurn);

  /// Images of points of the box: of its outline, edge after edge, each with one point more than intervals, then of its
  /// inside. Longitudes count from half a turn before the middle; where the box holds a pole, or lies across the
  /// meridian opposite to the middle, points at both ends of the turn are added.
  std::vector<Point> Carry(const CBoundingBox& box, int intervals, double middle) const;

  /// The box around the image, its longitudes without a break: left may be -181, or right 181.
  Envelope EnvelopeOf(const CBoundingBox& box, int intervals) const;

  double FullTurn() const { return m_fullTurn; }

 private:
  struct Pole {
    Point place;  ///< in the system of the boxes
    double latitude;
  };
  bool GoesAround(const std::vector<Point>& outline, int intervals) const;

  Transform m_transform;
  double m_fullTurn;
  std::vector<Pole> m_poles;
};

/// What two boxes have in common, in the direction of the first: of longitudes with a full turn that is not 0, the
/// second counts wherever whole turns bring it.
std::vector<CBoundingBox> CommonParts(const CBoundingBox& box, const CBoundingBox& other, double fullTurn);

}  // namespace platform
