#pragma once

#include <functional>
#include <string>
#include <vector>

#include "framework/fusion_param.h"

namespace test_support {

/// What a run is asked for beside its record.
struct RunRequest {
  bool overlapped = false;
  int threads = 1;
};

/// A fusion method as its users run it: with everything that comes before and after.
struct NamedMethod {
  std::string name;
  std::function<void(const FusionParam& param, const RunRequest& request)> runWith;  ///< expects success
  bool isPipeline = false;                                                           ///< always bicubic
  /// Computes a pixel from what lies around it and from each band's least and largest value, nothing else.
  bool isLocal = false;
  const char* definition = "";  ///< the test suite that holds it against its definition

  void run(const FusionParam& param) const { runWith(param, {}); }
};

const std::vector<NamedMethod>& AllMethods();

/// A record of high-pass fusion with one kernel of 5 x 5.
HpfFusionParam HpfRecord(const FusionParam& given);

}  // namespace test_support
