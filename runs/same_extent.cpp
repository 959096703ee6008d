#include "runs/same_extent.h"

namespace fusion {

bool LooksLikeSameExtent(const CRasterSource& pan, const CRasterSource& ms) {
  return !pan.HasGeoTransform() && !ms.HasGeoTransform() && pan.GetWidth() % ms.GetWidth() == 0 &&
         pan.GetHeight() % ms.GetHeight() == 0;
}

std::unique_ptr<platform::VirtualRaster> SpanPan(const CRasterSource& pan, const CRasterSource& ms,
                                                 const std::wstring& msFile) {
  const CBoundingBox box = pan.ImageToGround(CRect(0, 0, pan.GetWidth(), pan.GetHeight()));
  const double width = (box.m_dRight - box.m_dLeft) / ms.GetWidth();
  const double height = (box.m_dBottom - box.m_dTop) / ms.GetHeight();
  const double geoTransform[6] = {box.m_dLeft, width, 0.0, box.m_dTop, 0.0, height};
  const std::wstring wkt = pan.GetSpatialReferenceWKT();
  return std::make_unique<platform::VirtualRaster>(msFile, std::vector<int>{}, geoTransform, &wkt);
}

}  // namespace fusion
