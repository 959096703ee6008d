#include "platform/raster/bounding_box.h"

#include <algorithm>

CBoundingBox::CBoundingBox(double left, double top, double right, double bottom) {
  SetBoundingBox(left, top, right, bottom);
}

void CBoundingBox::SetBoundingBox(double left, double top, double right, double bottom) {
  m_dLeft = left;
  m_dTop = top;
  m_dRight = right;
  m_dBottom = bottom;
}

bool CBoundingBox::Intersect(const CBoundingBox& other, CBoundingBox& result) const {
  const double minX = std::max(MinX(), other.MinX());
  const double maxX = std::min(MaxX(), other.MaxX());
  const double minY = std::max(MinY(), other.MinY());
  const double maxY = std::min(MaxY(), other.MaxY());
  // Written so that a NaN is no overlap either.
  if (!(minX < maxX && minY < maxY)) return false;
  const bool eastward = m_dLeft <= m_dRight;
  const bool northward = m_dTop <= m_dBottom;
  result.SetBoundingBox(eastward ? minX : maxX, northward ? minY : maxY, eastward ? maxX : minX,
                        northward ? maxY : minY);
  return true;
}
