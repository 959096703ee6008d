#pragma once

#include <string>

namespace platform {

/// What a stage of a run is, beside the title that is published for it: a name that stays as it is.
struct Stage {
  std::string name;  ///< English, one of those below or that of a method; empty for a stage without one
  int number = 0;    ///< its place in its pipeline, counted from 1; 0 outside one
  int count = 0;     ///< of the pipeline's places

  bool operator==(const Stage&) const = default;
};

/// The names of the library's own stages.
namespace stages {

inline constexpr char kFiltering[] = "filtering";
inline constexpr char kSecondFiltering[] = "second filtering";
inline constexpr char kGreenMix[] = "green mix";
inline constexpr char kHighPassFusion[] = "high-pass fusion";
inline constexpr char kSharpening[] = "sharpening";
inline constexpr char kSpectralCorrection[] = "spectral correction";
inline constexpr char kSpectralMatching[] = "spectral matching";
inline constexpr char kLevelAdjustment[] = "level adjustment";
inline constexpr char kModelEstimation[] = "model estimation";
inline constexpr char kCorrelation[] = "correlation";
inline constexpr char kPanStatistics[] = "pan statistics";
inline constexpr char kFormatConversion[] = "format conversion";

}  // namespace stages
}  // namespace platform
