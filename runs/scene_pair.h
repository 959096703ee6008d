#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "estimation/registration.h"
#include "platform/raster/raster_description.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/virtual_raster.h"

namespace fusion {

class Notices;

/// Two images as a user names them. Texts are UTF-8.
struct PairNames {
  std::string pan;
  std::string ms;
  std::vector<int> bands;  ///< multispectral, counted from 1; empty: all but alpha
  int panBand = 1;         ///< counted from 1
  bool sameExtent = false;
  std::optional<double> noData;  ///< of inputs that declare none
};

/// A pan and a multispectral image opened to be looked at: samples without data are NaN, and images without a
/// georeference lie where a run would lay them.
class ScenePair {
 public:
  /// How the images are laid on each other.
  enum class Placing {
    kByGround,
    kSameExtent,       ///< as covering the same ground, because that was asked for
    kTakenSameExtent,  ///< or because neither says where it lies
    kByPixels,         ///< on their pixel coordinates: one of them has no georeference
  };

  /// Throws RunFailure for wrong usage and for an image that cannot be used.
  ScenePair(const PairNames& names, Notices& notices);

  CRasterSource& Pan() { return m_pan; }
  CRasterSource& Ms() { return m_ms; }
  const CRasterSource& Ms() const { return m_ms; }
  const CRasterSource& Pan() const { return m_pan; }
  int PanBand() const { return m_panBand; }
  /// The chosen multispectral bands, counted from 0, and a label for each.
  const std::vector<int>& Bands() const { return m_bands; }
  const std::vector<std::string>& Labels() const { return m_labels; }
  /// What the image says of them.
  std::vector<platform::BandDescription> Described() const { return platform::RasterDescription(m_ms, m_bands).bands; }
  Placing HowPlaced() const { return m_placing; }

  // Samples row by row. They throw RunFailure after a failed read.
  std::vector<double> ReadPan(const CRect& rect);
  /// Of the chosen bands.
  std::vector<std::vector<double>> ReadMs(const CRect& rect);
  /// What the search for blur and shift looks at.
  /// @param positions of the rectangle's pixels in the pan image
  RegistrationTile ReadTile(const CRect& rect, const PanPositions& positions, const PanGrid& grid);

 private:
  void ChooseBands(const PairNames& names);
  void Declare(CRasterSource& source, std::wstring& file, double value);
  void SettleExtent(const PairNames& names, Notices& notices);

  std::vector<std::unique_ptr<platform::VirtualRaster>> m_views;
  std::wstring m_panFile;
  std::wstring m_msFile;
  CRasterSource m_pan;
  CRasterSource m_ms;
  int m_panBand = 0;
  std::vector<int> m_bands;
  std::vector<std::string> m_labels;
  Placing m_placing = Placing::kByGround;
};

}  // namespace fusion
