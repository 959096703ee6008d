#pragma once

#include <memory>
#include <vector>

#include "evaluation/fusion_evaluate.h"

namespace fusion {

/// Several metrics in one walk, which reads the images as often as the metric of the most passes does. Only for metrics
/// that do not depend on how rows lie in blocks; their figures are those of runs of their own.
class JointEvaluate : public CFusionEvaluate {
 public:
  /// @param metrics whose results are theirs after Process, made with the same record
  JointEvaluate(FusionEvaluateParam* param, std::vector<std::shared_ptr<CFusionEvaluate>> metrics);

  GISError Preproccess() override;
  void FusionEvaluate(double* panBuf, CRect* panRect, double** mulBufs, int mulCount, CRect* mulRect,
                      double** fusionBufs, int fusionCount, CRect* blockRect) override;
  void SetProcessStep() override;
  bool IsFinished(int step) override;
  void EndProccess() override;

 private:
  /// Gives the metrics what this run has opened, or takes it back.
  void Lend(bool lent);

  std::vector<std::shared_ptr<CFusionEvaluate>> m_metrics;
  std::vector<std::shared_ptr<CFusionEvaluate>> m_walking;  ///< those that want the pass at hand
};

}  // namespace fusion
