#include "platform/raster/coordinate_algorithm.h"

#include <ogr_spatialref.h>

#include "platform/raster/gdal_access.h"
#include "platform/raster/raster_source.h"

bool CCoordinateAlgorithm::IsValidCoordinate(const std::wstring& wkt) {
  OGRSpatialReference crs;
  return platform::ReadWkt(wkt, crs) && (crs.IsProjected() || crs.IsGeographic());
}

bool CCoordinateAlgorithm::IsSameCoordinate(const std::wstring& first, const std::wstring& second) {
  OGRSpatialReference a;
  OGRSpatialReference b;
  return platform::ReadWkt(first, a) && platform::ReadWkt(second, b) && a.IsSame(&b);
}

bool CCoordinateAlgorithm::IsNeededProject(const std::wstring& panFile, const std::wstring& msFile, bool& needed) {
  CRasterSource pan;
  CRasterSource ms;
  if (!pan.Open(panFile, GDA_READ, true) || !ms.Open(msFile, GDA_READ, true)) return false;
  needed = IsNeededProject(pan, ms);
  return true;
}

bool CCoordinateAlgorithm::IsNeededProject(const CRasterSource& pan, const CRasterSource& ms) {
  const std::wstring panWkt = pan.GetSpatialReferenceWKT();
  const std::wstring msWkt = ms.GetSpatialReferenceWKT();
  return IsValidCoordinate(panWkt) && IsValidCoordinate(msWkt) && !IsSameCoordinate(panWkt, msWkt);
}
