#pragma once

#include <memory>
#include <string>

#include "platform/raster/raster_source.h"

/// Area-of-interest mask in the pixel coordinates of one raster: the union of all polygons of a vector file, even-odd
/// inside one polygon. A pixel is inside when its centre is.
class FUSION_API CRasterAOI {
 public:
  CRasterAOI();
  ~CRasterAOI();
  CRasterAOI(const CRasterAOI&) = delete;
  CRasterAOI& operator=(const CRasterAOI&) = delete;

  /// Loads the polygons, reprojected to the raster's coordinate system where theirs differs. False when the file does
  /// not open or holds no polygon.
  bool Load(const std::wstring& path, const CRasterSource& raster);
  /// Why the last Load failed, as the end of a sentence that begins with the file; empty where nothing is known.
  const std::wstring& GetLoadFailure() const;
  /// An area without bounds, for masks that only Restrict.
  void SetUnbounded();
  /// The pixel rectangle that covers the area, not clipped to the raster.
  CRect GetCoveringRect() const;

  /// Rasterises one rectangle for the IsInAOI calls that follow. 0: nothing inside, 1: partly, 3: wholly inside.
  int ReadCacheAoiBuffer(int left, int top, int width, int height);
  /// Leaves out the pixels of the last rectangle whose byte is 0, row by row. Answers as ReadCacheAoiBuffer.
  int Restrict(const unsigned char* keep);
  /// Whether a pixel of the last rectangle is inside; pixels outside that rectangle are not. May be called from
  /// several threads.
  bool IsInAOI(int column, int row) const;
  /// The same of count pixels of a row: 1 for each that is inside, else 0.
  void MarkRow(int left, int row, int count, unsigned char* inside) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};
