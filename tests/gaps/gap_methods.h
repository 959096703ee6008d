#pragma once

#include <functional>
#include <string>
#include <vector>

#include "framework/fusion_param.h"

namespace gap_test {

/// A fusion method as its users run it: with everything that comes before and after.
struct NamedMethod {
  std::string name;
  std::function<void(const FusionParam&)> run;  ///< expects success
  bool isPipeline = false;                      ///< always bicubic
  /// Computes a pixel from what lies around it and from each band's least and largest value, nothing else.
  bool isLocal = false;
};

const std::vector<NamedMethod>& Methods();

}  // namespace gap_test
