#pragma once

#include "platform/algorithm/row_stage.h"

/// Base of the stages that see all bands of a pixel together.
class FUSION_API CMultiBandIOProcess : public platform::RowStage {
 public:
  ~CMultiBandIOProcess() override;
  void Process() override;

 protected:
  explicit CMultiBandIOProcess(const AlgorithmParam* param);
};
