#pragma once

#include <memory>
#include <string>
#include <vector>

#include "estimation/pan_grid.h"
#include "platform/system/workers.h"
#include "quality/image.h"
#include "runs/assess.h"
#include "runs/ms_files.h"
#include "runs/scene_pair.h"

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

  /// The files of the multispectral image.
  const std::vector<std::string>& MsFiles() const { return m_ms.Files(); }
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
  /// What the multispectral image says of the chosen bands.
  std::vector<platform::BandDescription> Described() const { return m_pair.Described(); }
  /// A label for each chosen band.
  const std::vector<std::string>& BandLabels() const { return m_pair.Labels(); }
  int MsWidth() const { return m_pair.Ms().GetWidth(); }
  int MsHeight() const { return m_pair.Ms().GetHeight(); }
  /// What samples of a tile are stored as: a float type that holds those of both images.
  PixelDataType StoredType() const;

  /// The chosen multispectral bands of a rectangle.
  PlacedImage ReadMs(const CRect& rect);
  PlacedImage ReadPan(const CRect& rect);
  /// A tile for the search for blur and shift.
  RegistrationTile ReadTile(const CRect& rect) { return m_pair.ReadTile(rect, m_grid->Positions(rect), *m_grid); }

 private:
  void SettleGrid();
  void ChooseTiles(const CRect& common, int most);
  static PlacedImage Placed(const CRasterSource& source, std::vector<std::vector<double>> bands, const CRect& rect);

  std::shared_ptr<platform::Workers> m_workers;
  MsImage m_ms;
  ScenePair m_pair;
  bool m_reproject = false;
  std::unique_ptr<PanGrid> m_grid;
  int m_ratioX = 0;
  int m_ratioY = 0;
  CRect m_common;
  std::vector<CRect> m_tiles;
  double m_share = 0.0;
};

}  // namespace fusion
