#include "apps/methods.h"

#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>

#include "apps/fuse_options.h"
#include "apps/highpass_setup.h"
#include "band_arithmetic/brovey_fusion.h"
#include "band_arithmetic/multiple_fusion.h"
#include "band_arithmetic/weight_fusion.h"
#include "highpass/simple_pan_sharpening_fusion_process_alg.h"
#include "transform/ihs_tran_fusion.h"
#include "transform/prin_component_fusion.h"

namespace app {
namespace {

template <typename Algorithm>
std::unique_ptr<CBaseAlgorithm> Make(HpfFusionParam& param, const FuseOptions& /*options*/,
                                     CBaseProgress& /*progress*/) {
  return std::make_unique<Algorithm>(&param);
}

constexpr unsigned kRaster = kTakesResample | kTakesType | kTakesStretch;

}  // namespace

const std::vector<Method>& Methods() {
  static const std::vector<Method> methods = {
      {.name = "bayesian",
       .summary = "the likeliest image, given the bands and their regression on pan",
       .takes = kRaster | kTakesBayesWeight,
       .make = MakeBayesian},
      {.name = "brovey",
       .summary = "each band times pan over the sum of the bands",
       .takes = kRaster | kTakesMatch,
       .make = Make<CBroveyFusion>,
       .matchedByDefault = true,
       .matchesItself = true},
      {.name = "multiplicative",
       .summary = "each band times pan",
       .takes = kRaster | kTakesMatch,
       .make = Make<CMultipleFusion>,
       .matchedByDefault = true,
       .matchesItself = true,
       // The bare product of two images fits no integer type.
       .rawType = PDT_FLOAT32},
      {.name = "weighted",
       .summary = "mean of band and pan, weighted by their correlation",
       .takes = kRaster | kTakesMatch,
       .make = Make<CWeightFusion>,
       .matchedByDefault = true},
      {.name = "ihs",
       .summary = "pan in place of the intensity of three bands",
       .takes = kRaster | kTakesMatch | kTakesRgb,
       .make = Make<CIhsTranFusion>,
       .matchedByDefault = true,
       .buildsOverviews = true,
       .onByteScale = true,
       .minimumBands = 3},
      {.name = "pca",
       .summary = "pan in place of the first principal component",
       .takes = kRaster,
       .make = Make<CPrinComponentFusion>,
       .wholeFileBands = true},
      {.name = "hpf",
       .summary = "bands plus the high-pass filtered pan, scaled to each band's spread",
       .takes = kTakesAutoLevel | kTakesKernels,
       .make = MakeHpf,
       .isPipeline = true,
       .wholeFileBands = true,
       .buildsOverviews = true},
      {.name = "sharpen",
       .summary = "bands times the ratio of pan to its 7 x 7 mean, plus pan",
       .takes = kTakesType | kTakesMatch | kTakesAutoLevel,
       .make = Make<CSimplePanSharpeningFusionProcessAlg>,
       .matchedByDefault = true,
       .isPipeline = true,
       .buildsOverviews = true},
  };
  return methods;
}

const Method* FindMethod(const std::string& name) {
  for (const Method& method : Methods()) {
    if (name == method.name) return &method;
  }
  return nullptr;
}

const Method& DefaultMethod() { return Methods().front(); }

std::string MethodsThatTake(MethodOption option) {
  std::vector<std::string> names;
  for (const Method& method : Methods()) {
    if (method.Takes(option)) names.emplace_back(method.name);
  }
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += i + 1 == names.size() ? " and " : ", ";
    text += names[i];
  }
  return text.empty() ? "no method" : text;
}

int RunMethods(bool json, bool namesOnly) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const Method& method : Methods()) {
    if (json) {
      list.push_back({{"name", method.name},
                      {"summary", method.summary},
                      {"default", &method == &DefaultMethod()},
                      {"spectral_match", method.matchedByDefault}});
    } else if (namesOnly) {
      std::cout << method.name << '\n';
    } else {
      std::cout << std::left << std::setw(16) << method.name << method.summary
                << (method.matchedByDefault ? " (matched by default)" : "")
                << (&method == &DefaultMethod() ? " [default]" : "") << '\n';
    }
  }
  if (json) std::cout << list.dump(2) << '\n';
  return 0;
}

}  // namespace app
