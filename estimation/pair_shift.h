#pragma once

#include <functional>
#include <vector>

#include "estimation/registration.h"

namespace fusion {

/// How a multispectral image lies to its pan image, and by how much more it is blurred.
struct PairShift {
  PanBlur blur;
  double x = 0.0;  ///< pan pixels by which the multispectral image is to be moved: the median of the windows that tell
  double y = 0.0;
  double spreadX = 0.0;  ///< of the windows around it: the median distance, as the deviation of normal ones
  double spreadY = 0.0;
  int windows = 0;       ///< that tell; 0 where the detail of the images has nothing in common
  double score = 0.0;    ///< share of the low-passed pan's detail that the bands' detail explains, all windows together
  double inPlace = 0.0;  ///< the same with the image where it says it lies
  bool isFar = false;    ///< whether it lies beyond the reach of Registration, found on whole pixels first
};

/// Measures it as Registration does, in every window by itself too, and looks farther: at moves by whole multispectral
/// pixels, up to 16 of them, or a quarter of a window.
/// @param windows multispectral rectangles, of ChooseTiles
/// @param read a window's tile; the positions may lie beside those of its pixels
/// @param workers who look at windows; null: the caller alone
/// @param watch called often by the caller's thread; what it throws ends the search
PairShift MeasureShift(const std::vector<CRect>& windows, const PanGrid& grid,
                       const std::function<RegistrationTile(const CRect&, const PanPositions&)>& read,
                       platform::Workers* workers, const std::function<void()>& watch = {});

}  // namespace fusion
