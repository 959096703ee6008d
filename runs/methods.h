#pragma once

#include <memory>
#include <string>
#include <vector>

#include "framework/fusion_param.h"
#include "platform/algorithm/base_algorithm.h"
#include "platform/system/export.h"
#include "runs/model_facts.h"

namespace fusion {

struct FuseReport;
struct FuseRequest;
struct Guards;
class Notices;

/// What a method's algorithm is made from, beside its record.
struct MethodSetup {
  const FuseRequest& request;
  const Guards& guards;
  double pixelRatio;  ///< multispectral over pan pixel width, where the method asks for it
  CBaseProgress& progress;
  Notices& notices;
  FuseReport& found;                                ///< takes what preparing the run finds out
  std::shared_ptr<platform::Workers> workers = {};  ///< who compute; null: the caller alone
};

/// Options that only some methods take.
enum MethodOption : unsigned {
  kTakesResample = 1U << 0U,
  kTakesType = 1U << 1U,
  kTakesRgb = 1U << 2U,
  kTakesStretch = 1U << 3U,
  kTakesMatch = 1U << 4U,
  kTakesAutoLevel = 1U << 5U,
  kTakesKernels = 1U << 6U,
  kTakesBayesModel = 1U << 7U,
  kTakesProductRoot = 1U << 8U,
  kTakesPcaMatch = 1U << 9U,
  kTakesKeepBands = 1U << 10U,
};

/// What runs know of a fusion method; adding one is adding a line to the table in methods.cpp.
struct Method {
  const char* name;     ///< as in FuseRequest::method
  const char* summary;  ///< in English, one line
  // For whoever chooses one, in English.
  const char* formula = "";
  const char* source = "";  ///< publications
  const char* suits = "";   ///< when to take it
  const char* spares = "";  ///< when not
  unsigned takes = 0;       ///< of MethodOption
  /// The algorithm for a filled record; null where a run that gathers a survey is through with that. Throws RunFailure
  /// where preparing it fails. For the run itself.
  std::unique_ptr<CBaseAlgorithm> (*make)(HpfFusionParam& param, const MethodSetup& setup);
  /// What is to be said of a run that has succeeded; null for nothing. For the run itself.
  /// @param bands the chosen multispectral bands, counted from 0
  void (*remark)(const CBaseAlgorithm& algorithm, const std::vector<int>& bands, Notices& notices) = nullptr;
  /// Adds what a run that has succeeded worked with; null for nothing. For the run itself.
  void (*tell)(const CBaseAlgorithm& algorithm, ModelFacts& facts) = nullptr;
  /// --spectral-match auto means on.
  bool matchedByDefault = false;
  /// Mixes near infrared into green by itself, in the bands that it is given; else that is a part of the matching.
  bool mixesGreen = false;
  /// Works on all bands of a file, so that a choice of bands must look like a file.
  bool wholeFileBands = false;
  /// Its published run ends with overviews of the output.
  bool buildsOverviews = false;
  /// Scales bands by a ratio, which blows up what resampling swings beyond its samples.
  bool isRatio = false;
  /// Computes on the scale of a byte, so that wider integer types need the stretch of the value conversion.
  bool onByteScale = false;
  int minimumBands = 2;
  /// The raw result is on the scale of the multispectral bands.
  bool onBandScale = false;
  /// Output type of a raw run where none is given; PDT_UNKNOWN for the multispectral image's own.
  PixelDataType rawType = PDT_UNKNOWN;

  bool Takes(MethodOption option) const { return (takes & option) != 0; }
};

/// All methods, the default first.
FUSION_API const std::vector<Method>& Methods();
/// Null for an unknown name.
FUSION_API const Method* FindMethod(const std::string& name);
FUSION_API const Method& DefaultMethod();
/// Those options of a run, "--rgb", that this method takes and some other does not.
FUSION_API std::vector<std::string> OwnOptions(const Method& method);
/// Refuses one of those options, given with a value or without, where the method does not take it.
void RefuseForeign(bool given, const std::string& option, const Method& method);
/// "a, b and c" of the methods that take an option.
std::string MethodsThatTake(MethodOption option);
/// "a, b and c": all of them.
std::string MethodNames();

}  // namespace fusion
