#pragma once

#include <cstdint>
#include <vector>

#include "platform/statistics/running_covariance.h"

namespace fusion {

/// What a fused band is made of: out(b) = sum over j of A(b, j) band(j) + l(b) q + k(b) pan, q being the pan image
/// low-passed onto the multispectral grid and resampled with the bands.
struct InjectionModel {
  std::vector<double> panGains;      ///< k
  std::vector<double> lowPassGains;  ///< l
  std::vector<double> bandGains;     ///< A, n x n, row-major
  std::vector<double> detailGains;   ///< g, the plain gains of pan's detail that the others start from

  /// Some of the model: what it does beyond keeping the bands is multiplied.
  InjectionModel Scaled(double factor) const;
};

/// Why a model is less than could be.
enum class InjectionDoubt {
  kNone,
  kNoDetail,    ///< pan shows nothing that could be injected: the bands stay as they are
  kFewSamples,  ///< too few for more than one gain a band
  kUnsolvable,  ///< likewise: a system without a solution
};

/// Predicts the details of n bands one level down from pan's detail, and what is left of them from all that is known
/// there (low-passed bands, pan's detail, low-passed pan) by a ridge regression that leaves the bands' means alone.
/// @param statistics of DetailMoments
/// @param correct false: nothing but one gain a band
InjectionModel FitInjection(const platform::RunningCovariance& statistics, int n, bool correct, InjectionDoubt& doubt);

/// How much wider than the blur pan is low-passed for the moments of the fit. With 1 a fused image is as sharp as pan;
/// more restores what pan's own optics took.
/// @param width of the blur, see PanBlur; @param ratio of the pixels
double RestoringWidth(bool isBox, double width, double ratio);

}  // namespace fusion
