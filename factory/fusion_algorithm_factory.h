#pragma once

#include <cstdint>

#include "framework/fusion.h"

/// The algorithms that the factory makes, by their published numbers.
enum FusionType : std::int32_t {
  FT_IHS = 0,
  FT_WEIGHT = 1,
  FT_BROVEY = 2,
  FT_MULTIPLE = 3,
  FT_PRIN_COMPONENT = 4,
  FT_SIMPLE_PAN_SHARPENING = 5,
};

/// Makes fusion algorithms by number. The pipelines from file to file and Bayesian fusion, which need records of their
/// own, are made by their constructors.
class FUSION_API CFusionAlgorithmFactory {
 public:
  CFusionAlgorithmFactory();
  virtual ~CFusionAlgorithmFactory();
  CFusionAlgorithmFactory(const CFusionAlgorithmFactory&) = default;
  CFusionAlgorithmFactory& operator=(const CFusionAlgorithmFactory&) = default;

  /// @param progress reporter of the run, not owned; may be null
  /// @param param copied; of FT_SIMPLE_PAN_SHARPENING an HpfFusionParam that names the smoothed pan image
  /// @return an algorithm that the caller owns; null for an unknown type
  static CFusion* CreateAlgorithm(FusionType type, CBaseProgress* progress, FusionParam* param);
};
