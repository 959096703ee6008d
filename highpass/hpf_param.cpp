#include "highpass/hpf_param.h"

namespace fusion {

HpfFusionParam ToHpfParam(const FusionParam* param) {
  HpfFusionParam result;
  if (const auto* hpf = dynamic_cast<const HpfFusionParam*>(param)) {
    result = *hpf;
  } else if (param) {
    static_cast<FusionParam&>(result) = *param;
  }
  return result;
}

}  // namespace fusion
