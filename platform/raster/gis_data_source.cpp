#include "platform/raster/gis_data_source.h"

CBoundingBox CGISDataSource::GetExtent(const CRasterSource* source) {
  return source->ImageToGround(CRect(0, 0, source->GetWidth(), source->GetHeight()));
}

std::wstring CGISDataSource::GetSpatialReferenceWKT(const CRasterSource* source) {
  return source->GetSpatialReferenceWKT();
}
