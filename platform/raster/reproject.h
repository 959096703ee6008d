#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/raster/raster_source.h"

/// Positions in a source raster for ground points of another coordinate system.
class FUSION_API CReproject {
 public:
  /// From ground points in the given coordinate system to the source raster. Null when it cannot be built: a closed
  /// source, either coordinate system unknown, or no transformation between them. The caller owns the object, which
  /// needs nothing of the source after this call. The last two arguments are ignored.
  static CReproject* Create(CRasterSource* source, const std::wstring& wkt, const void* reserved1,
                            const void* reserved2);
  ~CReproject();
  CReproject(const CReproject&) = delete;
  CReproject& operator=(const CReproject&) = delete;

  /// Samples the transformation over a ground box, so fine that bilinear interpolation in a cell stays within 0.01
  /// source pixel of the exact position. Cell sizes of 0 let it choose; after maxRefinements halvings that did not
  /// reach the accuracy, positions are exact. Positions outside the box are always exact.
  bool CreateGrid(const CBoundingBox& box, double cellX, double cellY, int maxRefinements);

  /// Sample coordinates (a whole number is a pixel centre, see platform::SampleCoordinate) of n ground points.
  /// @param edge samples around the source that are to belong to it
  bool GetSrcPos(const double* groundX, const double* groundY, double* sourceX, double* sourceY, int n,
                 int edge = 0) const;

  /// The source rectangle that covers a ground box, enlarged by 10 pixels for the kernels, clamped to the source.
  /// False, and rect untouched, where nothing of the source is left: a caller has nothing to read then.
  bool GetInImgEnveFromGeoOut(const CBoundingBox& box, CRect& rect, double reserved1, double reserved2) const;

  /// A box of the source's coordinate system carried to the other one: its outline with 21 points an edge, more where
  /// that reaches farther, and its inside where that does. Longitudes go on beyond 180 degrees rather than break off.
  bool Src2DestBox(const CBoundingBox& box, CBoundingBox& result, double reserved1, double reserved2) const;

  /// The extent of a raster in another coordinate system.
  static bool GetExtent(CRasterSource* source, const std::wstring& wkt, CBoundingBox& extent);

  /// What a raster covers of an image of another coordinate system, on the image's ground: nothing, one box, or two
  /// where the raster lies across the meridian at which the image begins and ends.
  static std::vector<CBoundingBox> CommonGround(const CRasterSource& image, CRasterSource* source);

 private:
  CReproject();
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};
