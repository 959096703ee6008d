#pragma once

#include <cstdint>

#include "evaluation/fusion_evaluate.h"

/// The metrics that the factory makes, by their published numbers.
enum FusionEvaluateType : std::int32_t {
  FET_ENTROPY = 0,
  FET_STATISTIC = 1,
  FET_SNR = 2,
  FET_GRAD = 3,
};

/// Makes metrics by number.
class FUSION_API CFusEvaluateAlgorithmFactory {
 public:
  CFusEvaluateAlgorithmFactory();
  virtual ~CFusEvaluateAlgorithmFactory();
  CFusEvaluateAlgorithmFactory(const CFusEvaluateAlgorithmFactory&) = default;
  CFusEvaluateAlgorithmFactory& operator=(const CFusEvaluateAlgorithmFactory&) = default;

  /// @param progress reporter of the run, not owned; may be null
  /// @param param copied
  /// @return a metric that the caller owns; null for an unknown type
  static CFusionEvaluate* CreateAlgorithm(FusionEvaluateType type, CBaseProgress* progress, FusionEvaluateParam* param);
};
