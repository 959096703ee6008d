#pragma once

#include <string>

#include "platform/raster/bounding_box.h"
#include "platform/raster/raster_source.h"

/// What any georeferenced data source can be asked.
class FUSION_API CGISDataSource {
 public:
  /// Ground box of the whole raster, in the raster's direction.
  static CBoundingBox GetExtent(const CRasterSource* source);
  static std::wstring GetSpatialReferenceWKT(const CRasterSource* source);
};
