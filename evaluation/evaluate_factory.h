#pragma once

#include <cstdint>

#include "evaluation/fusion_evaluate.h"

enum FusionEvaluateType : std::int32_t {
  FET_ENTROPY = 0,
  FET_STATISTIC = 1,
  FET_SNR = 2,
  FET_GRAD = 3,
};

class FUSION_API CFusEvaluateAlgorithmFactory {
 public:
  CFusEvaluateAlgorithmFactory();
  virtual ~CFusEvaluateAlgorithmFactory();
  CFusEvaluateAlgorithmFactory(const CFusEvaluateAlgorithmFactory&) = default;
  CFusEvaluateAlgorithmFactory& operator=(const CFusEvaluateAlgorithmFactory&) = default;

  /// A metric with a copy of the record and the reporter set; the caller owns it. Null for an unknown type.
  static CFusionEvaluate* CreateAlgorithm(FusionEvaluateType type, CBaseProgress* progress, FusionEvaluateParam* param);
};
