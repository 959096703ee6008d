#include "apps/methods.h"

#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>

#include "apps/fuse_options.h"
#include "band_arithmetic/brovey_fusion.h"
#include "band_arithmetic/multiple_fusion.h"
#include "band_arithmetic/weight_fusion.h"
#include "transform/ihs_tran_fusion.h"
#include "transform/prin_component_fusion.h"

namespace app {
namespace {

template <typename Algorithm>
std::unique_ptr<CBaseAlgorithm> Make(HpfFusionParam& param, const FuseOptions& /*options*/,
                                     CBaseProgress& /*progress*/) {
  return std::make_unique<Algorithm>(&param);
}

constexpr unsigned kBandArithmetic = kTakesResample | kTakesType | kTakesStretch | kTakesMatch;

}  // namespace

const std::vector<Method>& Methods() {
  // name, summary, takes, matched by default, matches itself, pipeline, whole file, overviews, maker
  static const std::vector<Method> methods = {
      {"brovey", "each band times pan over the sum of the bands", kBandArithmetic, true, true, false, false, false,
       Make<CBroveyFusion>},
      {"multiplicative", "each band times pan", kBandArithmetic, true, true, false, false, false,
       Make<CMultipleFusion>},
      {"weighted", "mean of band and pan, weighted by their correlation", kBandArithmetic, true, false, false, false,
       false, Make<CWeightFusion>},
      {"ihs", "pan in place of the intensity of three bands", kBandArithmetic | kTakesRgb, true, false, false, false,
       true, Make<CIhsTranFusion>},
      {"pca", "pan in place of the first principal component", kTakesResample | kTakesType | kTakesStretch, false,
       false, false, true, false, Make<CPrinComponentFusion>},
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
