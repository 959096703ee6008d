#pragma once

#include <memory>

#include "platform/algorithm/multi_band_io_process.h"

namespace platform {
class GreenMix;
}

/// Copies an image of four or more bands (blue, green, red, near infrared, ...) with green replaced by
/// 0.9 x green + 0.1 x near infrared, left alone where either is no-data. Images of fewer bands are copied. The output
/// has the input's type unless the record names one, and its no-data value.
class FUSION_API CMakeGreenAlg : public CMultiBandIOProcess {
 public:
  explicit CMakeGreenAlg(AlgorithmParam* param);
  ~CMakeGreenAlg() override;

 protected:
  bool Configure(const CRasterSource& input, platform::StagePlan& plan) override;
  void ProcessRow(const platform::RowBuffer& rows, int row, double* const* out) override;

 private:
  std::shared_ptr<const platform::GreenMix> m_mix;  ///< null where images are copied
};
