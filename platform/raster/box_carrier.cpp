#include "platform/raster/box_carrier.h"

#include <algorithm>
#include <utility>

namespace platform {
namespace {

using Point = PositionGrid::Point;

/// Points along the four edges of a box, edge after edge.
std::vector<Point> Outline(const CBoundingBox& box, int intervals) {
  std::vector<Point> points;
  const auto edge = [&](double x0, double y0, double x1, double y1) {
    for (int i = 0; i <= intervals; ++i) {
      const double t = static_cast<double>(i) / intervals;
      points.push_back({x0 + (x1 - x0) * t, y0 + (y1 - y0) * t});
    }
  };
  edge(box.m_dLeft, box.m_dTop, box.m_dRight, box.m_dTop);
  edge(box.m_dLeft, box.m_dBottom, box.m_dRight, box.m_dBottom);
  edge(box.m_dLeft, box.m_dTop, box.m_dLeft, box.m_dBottom);
  edge(box.m_dRight, box.m_dTop, box.m_dRight, box.m_dBottom);
  return points;
}

/// Points of a grid inside a box, equally far apart in both directions; none in a box too thin for one.
void AddInside(const CBoundingBox& box, std::vector<Point>& points) {
  constexpr double kMost = 20.0;
  const double width = box.MaxX() - box.MinX();
  const double height = box.MaxY() - box.MinY();
  const double longest = std::max(width, height);
  if (!(longest > 0.0 && std::isfinite(longest))) return;
  const int columns = static_cast<int>(std::ceil(kMost * width / longest));
  const int rows = static_cast<int>(std::ceil(kMost * height / longest));
  for (int r = 1; r < rows; ++r) {
    for (int c = 1; c < columns; ++c)
      points.push_back({box.MinX() + width * c / columns, box.MinY() + height * r / rows});
  }
}

bool Holds(const CBoundingBox& box, const Point& p) {
  return p.x >= box.MinX() && p.x <= box.MaxX() && p.y >= box.MinY() && p.y <= box.MaxY();
}

Envelope Around(const std::vector<Point>& points) {
  Envelope envelope;
  for (const Point& p : points) envelope.Add(p);
  return envelope;
}

}  // namespace

void Envelope::Add(const Point& p) {
  if (!std::isfinite(p.x) || !std::isfinite(p.y)) return;
  minX = std::min(minX, p.x);
  maxX = std::max(maxX, p.x);
  minY = std::min(minY, p.y);
  maxY = std::max(maxY, p.y);
}

BoxCarrier::BoxCarrier(Transform transform, const Transform& back, double fullTurn)
    : m_transform(std::move(transform)), m_fullTurn(fullTurn) {
  if (fullTurn == 0.0) return;
  for (const double latitude : {-0.25 * fullTurn, 0.25 * fullTurn}) {
    std::vector<Point> pole = {{0.0, latitude}};
    back(pole);
    m_poles.push_back({pole[0], latitude});
  }
}

/// Whether longitudes jump somewhere on the outline: once where a pole lies inside, twice where only the meridian does
/// on which the count begins and ends.
bool BoxCarrier::GoesAround(const std::vector<Point>& outline, int intervals) const {
  const auto length = static_cast<std::size_t>(intervals) + 1;
  for (std::size_t i = 1; i < 4 * length; ++i) {
    if (i % length != 0 && std::fabs(outline[i].x - outline[i - 1].x) > 0.5 * m_fullTurn) return true;
  }
  return false;
}

std::vector<Point> BoxCarrier::Carry(const CBoundingBox& box, int intervals, double middle) const {
  std::vector<Point> points = Outline(box, intervals);
  AddInside(box, points);
  m_transform(points);
  if (m_fullTurn == 0.0) return points;
  for (Point& p : points) p.x += m_fullTurn * std::nearbyint((middle - p.x) / m_fullTurn);
  bool around = GoesAround(points, intervals);
  for (const Pole& pole : m_poles) {
    if (!Holds(box, pole.place)) continue;
    points.push_back({middle, pole.latitude});
    around = true;
  }
  if (!around) return points;
  const Envelope envelope = Around(points);
  for (const double half : {-0.5 * m_fullTurn, 0.5 * m_fullTurn}) {
    points.push_back({middle + half, envelope.minY});
    points.push_back({middle + half, envelope.maxY});
  }
  return points;
}

Envelope BoxCarrier::EnvelopeOf(const CBoundingBox& box, int intervals) const {
  std::vector<Point> centre = {{0.5 * (box.m_dLeft + box.m_dRight), 0.5 * (box.m_dTop + box.m_dBottom)}};
  m_transform(centre);
  const double middle = std::isfinite(centre[0].x) ? centre[0].x : 0.0;
  const Envelope envelope = Around(Carry(box, intervals, middle));
  // All around, the usual count is as good as any.
  const bool isWhole = m_fullTurn > 0.0 && envelope.maxX - envelope.minX > 0.999999 * m_fullTurn;
  return isWhole ? Around(Carry(box, intervals, 0.0)) : envelope;
}

std::vector<CBoundingBox> CommonParts(const CBoundingBox& box, const CBoundingBox& other, double fullTurn) {
  double first = 0.0;
  double last = 0.0;
  if (fullTurn > 0.0) {
    // Bounded, since a box may be anything.
    constexpr double kMostTurns = 3.0;
    first = std::clamp(std::floor((box.MinX() - other.MaxX()) / fullTurn), -kMostTurns, kMostTurns);
    last = std::clamp(std::ceil((box.MaxX() - other.MinX()) / fullTurn), -kMostTurns, kMostTurns);
  }
  std::vector<CBoundingBox> parts;
  for (double turns = first; turns <= last; turns += 1.0) {
    const double shift = turns * fullTurn;
    CBoundingBox common;
    if (box.Intersect({other.m_dLeft + shift, other.m_dTop, other.m_dRight + shift, other.m_dBottom}, common)) {
      parts.push_back(common);
    }
  }
  return parts;
}

}  // namespace platform
