#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "highpass/hpf_fusion.h"
#include "tests/support/method_sweep.h"

/// The family's fusion steps as the shared tests run them: constructed from a plain record, with everything else they
/// need made up from the pan image it names.
namespace highpass_test {

/// A second image of the pan image's size: other values, and a zero here and there.
inline reference::Image SecondImage(const reference::Image& pan) {
  reference::Image second = pan;
  for (std::size_t i = 0; i < second.bands[0].size(); ++i) {
    const std::uint32_t mixed =
        static_cast<std::uint32_t>(i) * 2654435761U + static_cast<std::uint32_t>(pan.bands[0][i]);
    second.bands[0][i] = static_cast<double>((mixed >> 8U) % 257U) - 31.0;
    if (i % 11 == 0) second.bands[0][i] = 0.0;
  }
  return second;
}

/// The record of a run with a second image, which is written beside the pan image. Missing files are left to the run.
inline HpfFusionParam RecordWithSecond(const FusionParam& param) {
  HpfFusionParam record;
  static_cast<FusionParam&>(record) = param;
  record.m_bSecondFilter = true;
  record.m_strSecondHpfFile = param.m_strPanFile + L"_second.tif";
  if (test_support::FileExists(param.m_strPanFile)) {
    test_support::WriteImage(SecondImage(test_support::ReadImage(param.m_strPanFile)), record.m_strSecondHpfFile,
                             PDT_INT16);
  }
  return record;
}

/// A method of the family that finds its second image by itself.
template <typename Method>
class WithSecond : public Method {
 public:
  explicit WithSecond(FusionParam* param) : WithSecond(RecordWithSecond(*param)) {}

 protected:
  explicit WithSecond(HpfFusionParam record) : Method(&record) {}
};

}  // namespace highpass_test
