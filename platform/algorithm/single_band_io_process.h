#pragma once

#include "platform/algorithm/row_stage.h"

/// Base of the stages whose output bands each come from one input band alone.
class FUSION_API CSingleBandIOProcess : public platform::RowStage {
 public:
  ~CSingleBandIOProcess() override;
  void Process() override;

 protected:
  explicit CSingleBandIOProcess(const AlgorithmParam* param);
  /// Fills a row of one output band from the input band of the same place in the plan.
  virtual void ProcessBandRow(int index, const platform::RowBuffer& rows, int row, double* out) = 0;

 private:
  void ProcessRow(const platform::RowBuffer& rows, int row, double* const* out) final;
};
