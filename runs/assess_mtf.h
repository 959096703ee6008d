#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "estimation/low_pass.h"
#include "runs/assess.h"

namespace fusion {

class AssessScene;

/// What the filters of the sensors leave at the Nyquist frequency of the multispectral pixels.
struct SensorGains {
  double bands;
  double pan;
};

/// Published ones, typical of multispectral bands and of pan; see DeviationOfGain.
inline constexpr SensorGains kTypicalGains{kUsualGain, 0.15};

/// Through which filters a scene is seen.
struct SceneGains {
  SensorGains reduced = kTypicalGains;  ///< that lead to reduced resolution
  SensorGains full = kTypicalGains;     ///< and at full resolution from pan's pixels to the multispectral ones
  std::string source;                   ///< estimated, given or published
  std::optional<AssessBlur> blur;       ///< where it was looked for
  std::string doubt;                    ///< why they are published ones, a sentence without its full stop; or empty
};

/// By how much more than pan the bands of a scene are blurred, as the detail of both tells. How much pan itself is
/// blurred it does not tell, nor, therefore, what either sensor has done to the ground.
struct SceneBlur {
  double width = 0.0;  ///< of the Gaussian that leads from pan to the bands, see PanBlur: the mean of two halves
  double apart = 0.0;  ///< difference of what the halves of the scene tell
  double score = 0.0;  ///< share of the low-passed pan's detail that the bands explain, in the half where it is less
  std::string doubt;   ///< why this is not to be relied on; empty where it is
};

/// Looks at both halves of the common ground by themselves. Throws RunFailure after a failed read.
/// @param watch called again and again, by the caller's thread; what it throws ends the search
SceneBlur MeasureBlur(AssessScene& scene, const std::function<void()>& watch);

/// What the bands let through at their Nyquist frequency of what pan shows there.
double GainBeyondPan(double width);

/// The gain of the bands' filter with which a pair that is degraded by the ratio of its pixels keeps the blur between
/// pan and bands, in pixels, while pan's filter has a gain of its own. Variances of Gaussians add up, and the degraded
/// pair still has what blur the pair had.
double GainThatKeeps(double width, double ratio, double panGain);

/// What is not given is taken from the images, and from the literature where they do not tell.
/// @param given the bands' gain, and pan's; or the first of them; or none
/// @param ratio of the pixels
/// @param watch as of MeasureBlur
SceneGains ChooseGains(AssessScene& scene, const std::vector<double>& given, double ratio,
                       const std::function<void()>& watch);

}  // namespace fusion
