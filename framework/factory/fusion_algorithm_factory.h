#pragma once

#include <cstdint>

#include "framework/fusion.h"

enum FusionType : std::int32_t {
  FT_IHS = 0,
  FT_WEIGHT = 1,
  FT_BROVEY = 2,
  FT_MULTIPLE = 3,
  FT_PRIN_COMPONENT = 4,
  FT_SIMPLE_PAN_SHARPENING = 5,
};

class FUSION_API CFusionAlgorithmFactory {
 public:
  CFusionAlgorithmFactory();
  virtual ~CFusionAlgorithmFactory();
  CFusionAlgorithmFactory(const CFusionAlgorithmFactory&) = default;
  CFusionAlgorithmFactory& operator=(const CFusionAlgorithmFactory&) = default;

  /// An algorithm with a copy of the record and the reporter set; the caller owns it. Null for an unknown type.
  static CFusion* CreateAlgorithm(FusionType type, CBaseProgress* progress, FusionParam* param);
};
