#include "factory/fusion_algorithm_factory.h"

#include <array>

#include "band_arithmetic/brovey_fusion.h"
#include "band_arithmetic/multiple_fusion.h"
#include "band_arithmetic/weight_fusion.h"
#include "highpass/simple_pan_sharpening_fusion_process_alg.h"
#include "transform/ihs_tran_fusion.h"
#include "transform/prin_component_fusion.h"

namespace {

template <typename Algorithm>
CFusion* Make(FusionParam* param) {
  return new Algorithm(param);
}

/// In the order of FusionType.
constexpr std::array kMakers = {Make<CIhsTranFusion>,       Make<CWeightFusion>,
                                Make<CBroveyFusion>,        Make<CMultipleFusion>,
                                Make<CPrinComponentFusion>, Make<CSimplePanSharpeningFusionProcessAlg>};

}  // namespace

CFusionAlgorithmFactory::CFusionAlgorithmFactory() = default;
CFusionAlgorithmFactory::~CFusionAlgorithmFactory() = default;

CFusion* CFusionAlgorithmFactory::CreateAlgorithm(FusionType type, CBaseProgress* progress, FusionParam* param) {
  const auto index = static_cast<std::size_t>(type);
  if (type < 0 || index >= kMakers.size()) return nullptr;
  CFusion* algorithm = kMakers[index](param);
  algorithm->SetProgress(progress);
  return algorithm;
}
