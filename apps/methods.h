#pragma once

#include <memory>
#include <string>
#include <vector>

#include "apps/notices.h"
#include "framework/fusion_param.h"
#include "platform/algorithm/base_algorithm.h"

namespace app {

struct FuseOptions;

/// Options that only some methods take.
enum MethodOption : unsigned {
  kTakesResample = 1U << 0U,
  kTakesType = 1U << 1U,
  kTakesRgb = 1U << 2U,
  kTakesStretch = 1U << 3U,
  kTakesMatch = 1U << 4U,
  kTakesAutoLevel = 1U << 5U,
  kTakesKernels = 1U << 6U,
  kTakesBayesWeight = 1U << 7U,
};

/// What the command knows of a fusion method; adding one is adding a line to the table in methods.cpp.
struct Method {
  const char* name;
  const char* summary;
  unsigned takes = 0;  ///< of MethodOption
  /// The algorithm for a filled record. Throws CommandError where preparing it fails.
  std::unique_ptr<CBaseAlgorithm> (*make)(HpfFusionParam& param, const FuseOptions& options, CBaseProgress& progress);
  /// What is to be said of a run that has succeeded; null for nothing.
  /// @param bands the chosen multispectral bands, counted from 0
  void (*remark)(const CBaseAlgorithm& algorithm, const std::vector<int>& bands, Notices& notices) = nullptr;
  /// --spectral-match auto means on.
  bool matchedByDefault = false;
  /// Carries the spectral matching out by itself when its output is a float type.
  bool matchesItself = false;
  /// Runs file to file in stages of its own, always with bicubic resampling.
  bool isPipeline = false;
  /// Works on all bands of a file, so that a choice of bands must look like a file.
  bool wholeFileBands = false;
  /// Its published run ends with overviews of the output.
  bool buildsOverviews = false;
  /// Computes on the scale of a byte, so that wider integer types need the stretch of the value conversion.
  bool onByteScale = false;
  int minimumBands = 2;
  /// The raw result is on the scale of the multispectral bands.
  bool onBandScale = false;
  /// Output type of a raw run where none is given; PDT_UNKNOWN for the multispectral image's own.
  PixelDataType rawType = PDT_UNKNOWN;

  bool Takes(MethodOption option) const { return (takes & option) != 0; }
};

const std::vector<Method>& Methods();
/// Null for an unknown name.
const Method* FindMethod(const std::string& name);
const Method& DefaultMethod();
/// "a, b and c" of the methods that take an option.
std::string MethodsThatTake(MethodOption option);

/// The `methods` command: a table, or JSON, or bare names.
int RunMethods(bool json, bool namesOnly);

}  // namespace app
