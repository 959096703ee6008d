#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <tuple>
#include <utility>
#include <vector>

#include "estimation/pan_grid.h"
#include "platform/system/workers.h"

namespace fusion {

/// A part of the common ground, as the search looks at it.
struct RegistrationTile {
  PanPositions positions;                  ///< of its multispectral pixels
  std::vector<std::vector<double>> bands;  ///< their values, row by row; a NaN for one without data
  CRect panRect;                           ///< what was read of pan around them
  std::vector<double> pan;                 ///< its values, likewise
};

struct RegistrationResult {
  PanBlur blur;
  double shiftX = 0.0;  ///< pan pixels by which the multispectral image is to be moved; 0 where that is not accepted
  double shiftY = 0.0;
  bool accepted = false;
  double agreement = 0.0;  ///< share of the tiles in which the shift found is better than none
  double score = 0.0;      ///< share of the low-passed pan's detail that the detail of the bands explains

  template <typename Archive>
  void Exchange(Archive& archive) {
    archive(blur.isBox, blur.width, shiftX, shiftY, accepted, agreement, score);
  }
};

/// Where the detail of both images agrees best.
struct RegistrationShift {
  double x = 0.0;  ///< pan pixels by which the multispectral image is to be moved
  double y = 0.0;
  double score = 0.0;
};

/// Finds the blur between pan and the multispectral bands, and their shift, from the detail that both show: pan
/// low-passed at the right place by the right amount has the detail of the bands.
class Registration {
 public:
  /// @param workers who look at tiles; null: the caller alone
  Registration(std::vector<RegistrationTile> tiles, const PanGrid& grid, platform::Workers* workers);

  /// Called by the caller's thread before each place that is looked at. What it throws ends the search.
  void SetWatch(std::function<void()> watch) { m_watch = std::move(watch); }

  /// The most that a shift may be on either axis, in pan pixels; tiles hold the pan pixels that it needs.
  static double LargestShift(const PanGrid& grid);
  /// The part of pan that the search may look at for a tile.
  static CRect Reads(const PanPositions& positions, const PanGrid& grid);

  /// @param searchesShift false: the blur only
  RegistrationResult Find(bool searchesShift);
  /// Pixels that a shift must be found from, or a blur.
  static constexpr std::int64_t kLeastEvidence = 500;
  /// Climbs from a shift to the best one around it, and on to the top between the steps of the climb. No threshold
  /// keeps the images where they are.
  RegistrationShift Locate(const PanBlur& blur, double shiftX, double shiftY);
  /// Whether a blur is a Gaussian, and no end of those that are looked at.
  static bool IsInside(const PanBlur& blur);
  /// Pixels of which both images show the detail.
  std::int64_t Evidence(const PanBlur& blur, double shiftX, double shiftY) const;
  /// Of all tiles together.
  double Score(const PanBlur& blur, double shiftX, double shiftY);
  /// The share of the tiles, those with enough data, that score higher with a blur and shift than with a blur alone; 0
  /// where all of them have too little data to tell.
  double Agreement(const PanBlur& first, const PanBlur& blur, double shiftX, double shiftY);

  const std::vector<RegistrationTile>& Tiles() const { return m_tiles; }
  /// Pan low-passed onto a tile's pixels.
  std::vector<double> Degraded(const RegistrationTile& tile, const PanBlur& blur, double shiftX, double shiftY) const;

 private:
  /// Second moments of a tile's details: those of the bands, then pan's.
  struct Moments {
    std::int64_t count = 0;
    std::vector<double> values;
  };
  using Place = std::tuple<bool, double, double, double>;

  PanBlur Scan(double shiftX, double shiftY);
  void Climb(const PanBlur& blur, double& shiftX, double& shiftY);
  std::vector<Moments> MomentsOfTiles(const PanBlur& blur, double shiftX, double shiftY) const;
  Moments MomentsOf(std::size_t index, const PanBlur& blur, double shiftX, double shiftY) const;

  std::vector<RegistrationTile> m_tiles;
  std::vector<std::vector<std::vector<double>>> m_details;  ///< of each tile's bands
  const PanGrid& m_grid;
  platform::Workers* m_workers;
  std::function<void()> m_watch;
  int m_bands;
  std::map<Place, double> m_scores;  ///< of where the search has been
};

/// A tile's detail: each value less the mean over 3 x 3, NaN where not all nine are valid.
std::vector<double> DetailOf(const std::vector<double>& values, int width, int height);

/// The share of pan's detail that a least-squares combination of the bands' detail explains.
/// @param moments (n + 1) x (n + 1) second moments of the details of n bands and of pan
double DetailScore(const std::vector<double>& moments, int n);

/// The places at which to look at an area of multispectral pixels: at most 16 tiles of about 48 to 128 pixels square,
/// fewer and smaller ones where pan pixels are many to a multispectral one, or each pixel has a place of its own.
std::vector<CRect> ChooseTiles(const CRect& area, const PanGrid& grid);

}  // namespace fusion
