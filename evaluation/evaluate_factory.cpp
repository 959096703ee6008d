#include "evaluation/evaluate_factory.h"

#include <array>

#include "evaluation/entropy_evaluate.h"
#include "evaluation/grad_evaluate.h"
#include "evaluation/snr_evaluate.h"
#include "evaluation/statistic_evaluate.h"

namespace {

template <typename Metric>
CFusionEvaluate* MakeMeasure(FusionEvaluateParam* param) {
  return new Metric(param);
}

/// In the order of FusionEvaluateType.
constexpr std::array kMeasureMakers = {MakeMeasure<CEntropyEvaluate>, MakeMeasure<CStatisticEvaluate>,
                                       MakeMeasure<CSNREvaluate>, MakeMeasure<CGradEvaluate>};

}  // namespace

CFusEvaluateAlgorithmFactory::CFusEvaluateAlgorithmFactory() = default;
CFusEvaluateAlgorithmFactory::~CFusEvaluateAlgorithmFactory() = default;

CFusionEvaluate* CFusEvaluateAlgorithmFactory::CreateAlgorithm(FusionEvaluateType type, CBaseProgress* progress,
                                                               FusionEvaluateParam* param) {
  const auto index = static_cast<std::size_t>(type);
  if (type < 0 || index >= kMeasureMakers.size()) return nullptr;
  CFusionEvaluate* metric = kMeasureMakers[index](param);
  metric->SetProgress(progress);
  return metric;
}
