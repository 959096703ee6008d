#pragma once

#include "platform/system/export.h"

/// A ground rectangle that keeps its direction: left may lie east of right, top below bottom.
class FUSION_API CBoundingBox {
 public:
  CBoundingBox() = default;
  CBoundingBox(double left, double top, double right, double bottom);

  void SetBoundingBox(double left, double top, double right, double bottom);

  /// Common area in this box's direction; false, and result untouched, where the boxes only touch or lie apart.
  bool Intersect(const CBoundingBox& other, CBoundingBox& result) const;

  double MinX() const { return m_dLeft < m_dRight ? m_dLeft : m_dRight; }
  double MaxX() const { return m_dLeft < m_dRight ? m_dRight : m_dLeft; }
  double MinY() const { return m_dTop < m_dBottom ? m_dTop : m_dBottom; }
  double MaxY() const { return m_dTop < m_dBottom ? m_dBottom : m_dTop; }

  double m_dLeft = 0.0;
  double m_dTop = 0.0;
  double m_dRight = 0.0;
  double m_dBottom = 0.0;
};
