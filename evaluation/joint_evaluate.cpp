#include "evaluation/joint_evaluate.h"

#include <algorithm>
#include <utility>

namespace fusion {

JointEvaluate::JointEvaluate(FusionEvaluateParam* param, std::vector<std::shared_ptr<CFusionEvaluate>> metrics)
    : CFusionEvaluate(param), m_metrics(std::move(metrics)), m_walking(m_metrics) {
  m_joinsBlocks = true;
}

void JointEvaluate::Lend(bool lent) {
  for (const auto& metric : m_metrics) {
    metric->m_pPanSource = lent ? m_pPanSource : nullptr;
    metric->m_pMulSource = lent ? m_pMulSource : nullptr;
    metric->m_pFusionSource = lent ? m_pFusionSource : nullptr;
    metric->m_pReproject = lent ? m_pReproject : nullptr;
    metric->m_cells.reset();
  }
}

GISError JointEvaluate::Preproccess() {
  Lend(true);
  for (const auto& metric : m_metrics) {
    metric->ShareThreads(m_workers);
    if (const GISError prepared = metric->Preproccess(); prepared != GIS_SUCCESS) {
      Lend(false);
      return prepared;
    }
  }
  return GIS_SUCCESS;
}

void JointEvaluate::FusionEvaluate(double* panBuf, CRect* panRect, double** mulBufs, int mulCount, CRect* mulRect,
                                   double** fusionBufs, int fusionCount, CRect* blockRect) {
  for (const auto& metric : m_walking) {
    metric->FusionEvaluate(panBuf, panRect, mulBufs, mulCount, mulRect, fusionBufs, fusionCount, blockRect);
  }
}

void JointEvaluate::SetProcessStep() {
  CFusionEvaluate::SetProcessStep();
  for (const auto& metric : m_walking) metric->SetProcessStep();
}

bool JointEvaluate::IsFinished(int step) {
  std::erase_if(m_walking, [&](const auto& metric) { return metric->IsFinished(step); });
  return m_walking.empty();
}

void JointEvaluate::EndProccess() {
  for (const auto& metric : m_metrics) metric->EndProccess();
  Lend(false);
}

}  // namespace fusion
