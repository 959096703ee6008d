#pragma once

#include <memory>
#include <string>
#include <vector>

#include "estimation/pan_grid.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/virtual_raster.h"
#include "platform/system/workers.h"
#include "quality/image.h"
#include "runs/assess.h"

namespace fusion {

class Notices;

/// An image with its place on the ground. Samples without data are NaN.
struct PlacedImage {
  quality::Image image;
  double geoTransform[6] = {};
  std::wstring wkt;
};

/// Both images of a scene, and the parts of it that are looked at.
class AssessScene {
 public:
  /// Throws RunFailure for wrong usage and for an image that cannot be used.
  AssessScene(const AssessRequest& request, Notices& notices);

  /// Who take the measures.
  platform::Workers* Workers() const { return m_workers.get(); }

  /// In multispectral pixels, of sizes that the ratio divides.
  const std::vector<CRect>& Tiles() const { return m_tiles; }
  /// The multispectral pixels on common ground.
  const CRect& Common() const { return m_common; }
  /// Of the common ground that the tiles cover.
  double Share() const { return m_share; }
  /// Multispectral over pan pixels, rounded.
  int RatioX() const { return m_ratioX; }
  int RatioY() const { return m_ratioY; }
  const PanGrid& Grid() const { return *m_grid; }
  /// A label for each chosen band.
  const std::vector<std::string>& BandLabels() const { return m_labels; }
  int MsWidth() const { return m_ms.GetWidth(); }
  int MsHeight() const { return m_ms.GetHeight(); }
  /// What samples of a tile are stored as: a float type that holds those of both images.
  PixelDataType StoredType() const;

  /// The chosen multispectral bands of a rectangle.
  PlacedImage ReadMs(const CRect& rect);
  PlacedImage ReadPan(const CRect& rect);

 private:
  void Declare(CRasterSource& source, std::wstring& file, double value);
  void ChooseBands(const AssessRequest& request);
  void SettleExtent(const AssessRequest& request, Notices& notices);
  void SettleGrid();
  void ChooseTiles(const CRect& common, int most);
  PlacedImage Read(CRasterSource& source, const std::vector<int>& bands, const CRect& rect) const;

  std::vector<std::unique_ptr<platform::VirtualRaster>> m_views;
  std::shared_ptr<platform::Workers> m_workers;
  std::wstring m_panFile;
  std::wstring m_msFile;
  CRasterSource m_pan;
  CRasterSource m_ms;
  int m_panBand = 0;
  std::vector<int> m_bands;
  std::vector<std::string> m_labels;
  bool m_reproject = false;
  std::unique_ptr<PanGrid> m_grid;
  int m_ratioX = 0;
  int m_ratioY = 0;
  CRect m_common;
  std::vector<CRect> m_tiles;
  double m_share = 0.0;
};

}  // namespace fusion
