#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "estimation/pan_grid.h"
#include "platform/statistics/band_figures.h"
#include "platform/statistics/running_covariance.h"
#include "runs/check.h"
#include "runs/scene_pair.h"

namespace fusion {

/// The figures of a band, of values one after another; NaN for no data.
class ValueFigures {
 public:
  /// @param count of the values that will come
  /// @param width of the rows that they come in
  ValueFigures(std::int64_t count, int width);

  void Add(const std::vector<double>& values, platform::Workers* workers);
  void Fill(CheckBand& band) const;
  /// Whether an end of the range holds far more values than what lies next to it: what was beyond it has been cut off.
  bool IsCutLow() const { return IsCut(m_low, -1.0); }
  bool IsCutHigh() const { return IsCut(m_high, 1.0); }

 private:
  struct End {
    double value;
    std::int64_t count = 0;
  };
  bool IsCut(const End& end, double direction) const;

  platform::BandFigures m_figures;
  std::int64_t m_all = 0;
  std::int64_t m_valid = 0;
  End m_low;
  End m_high;
  std::int64_t m_step;         ///< from one value that is kept to the next
  std::vector<double> m_some;  ///< values from all over the band
};

/// What a walk over both images sees.
struct PairFigures {
  CheckBand pan;
  std::vector<CheckBand> bands;
  bool isPanCutLow = false;
  bool isPanCutHigh = false;
  std::vector<bool> isCutLow;  ///< of the bands
  std::vector<bool> isCutHigh;
  double share = 0.0;    ///< of the common ground that was looked at
  double covered = 0.0;  ///< share of its multispectral pixels with data in all bands and in pan
  double zeros = 0.0;    ///< likewise with a 0 in all bands that counts as data
  double mixCorrelation = 0.0;
};

/// Walks over the common ground in strips of whole rows, of a large one over some that are spread evenly.
/// @param msArea, panArea the common ground in either image
/// @param tell is called after each strip with the share that is done
PairFigures WalkPair(ScenePair& pair, const PanGrid& grid, const CRect& msArea, const CRect& panArea,
                     platform::Workers* workers, const std::function<void(double done)>& tell);

}  // namespace fusion
