#pragma once

#include <string>
#include <vector>

namespace fusion {

struct FuseRequest;
struct Method;

/// What keeps a run from pictures that nobody would use, beside the classes, which do what is published. Each has an
/// option of its own; a guard that the method has no use for is off.
struct Guards {
  bool edges = false;         ///< kernels see the multispectral image's edges repeated
  bool resample = false;      ///< values for a ratio stay in the range of the samples they are made from
  bool matchMoments = false;  ///< single values do not decide the matching
  bool productRoot = false;   ///< of a product of bands and pan the root is matched
  bool detailCap = false;     ///< hpf gives detail no larger weight than its share of pan
  bool pcaMatch = false;      ///< pan is brought to the first component's scale
  bool keepBands = false;     ///< weighted keeps a band without a weight as resampled

  /// The options that are in effect, without their dashes.
  std::vector<std::string> Names() const;
};

/// Throws a usage error for a word that an option does not know, and for one without effect on the method.
Guards ChooseGuards(const FuseRequest& o, const Method& method, bool isMatched);

}  // namespace fusion
