#include "framework/overlap.h"

#include <algorithm>
#include <vector>

#include "platform/raster/coordinate_algorithm.h"
#include "platform/raster/gis_data_source.h"
#include "platform/raster/reproject.h"

namespace fusion {
namespace {

CRect Around(const CRect& a, const CRect& b) {
  if (a.Area() == 0 || b.Area() == 0) return a.Area() == 0 ? b : a;
  return {std::min(a.left, b.left), std::min(a.top, b.top), std::max(a.right, b.right), std::max(a.bottom, b.bottom)};
}

}  // namespace

std::optional<CRect> FindOverlap(const CRasterSource& pan, CRasterSource& ms, bool& needsReprojection) {
  needsReprojection = CCoordinateAlgorithm::IsNeededProject(pan, ms);
  std::vector<CBoundingBox> common;
  CBoundingBox overlap;
  if (needsReprojection) {
    common = CReproject::CommonGround(pan, &ms);
  } else if (CGISDataSource::GetExtent(&pan).Intersect(CGISDataSource::GetExtent(&ms), overlap)) {
    common.push_back(overlap);
  }
  if (common.empty()) return std::nullopt;
  CRect rect = pan.GroundToImage(common[0]);
  for (const CBoundingBox& part : common) rect = Around(rect, pan.GroundToImage(part));
  return rect;
}

}  // namespace fusion
