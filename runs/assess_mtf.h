#pragma once

#include <string>

namespace fusion {

class AssessScene;

/// By how much more than pan the bands of a scene are blurred, as the detail of both tells. How much pan itself is
/// blurred it does not tell, nor, therefore, what either sensor has done to the ground.
struct SceneBlur {
  double width = 0.0;  ///< of the Gaussian that leads from pan to the bands, see PanBlur: the mean of two halves
  double apart = 0.0;  ///< difference of what the halves of the scene tell
  double score = 0.0;  ///< share of the low-passed pan's detail that the bands explain, in the half where it is less
  std::string doubt;   ///< why this is not to be relied on; empty where it is
};

/// Looks at both halves of the common ground by themselves. Throws RunFailure after a failed read.
SceneBlur MeasureBlur(AssessScene& scene);

/// What the bands let through at their Nyquist frequency of what pan shows there.
double GainBeyondPan(double width);

/// The gain of the bands' filter with which a pair that is degraded by the ratio of its pixels keeps the blur between
/// pan and bands, in pixels, while pan's filter has a gain of its own. Variances of Gaussians add up, and the degraded
/// pair still has what blur the pair had.
double GainThatKeeps(double width, double ratio, double panGain);

}  // namespace fusion
