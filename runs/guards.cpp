#include "runs/guards.h"

#include <utility>

#include "runs/fuse.h"
#include "runs/methods.h"

namespace fusion {
namespace {

/// Whether a guard is on by its option: a word for on, one for off, or nothing.
bool IsOn(const std::string& given, const char* option, const char* on, const char* off, bool asPublished) {
  if (given.empty()) return !asPublished;
  if (given == on) return true;
  if (given == off) return false;
  throw UsageError("--" + std::string(option) + " is " + on + " or " + off + ", not '" + given + "'.");
}

}  // namespace

std::vector<std::string> Guards::Names() const {
  std::vector<std::string> names;
  const auto add = [&names](bool on, const char* name) {
    if (on) names.emplace_back(name);
  };
  add(edges, "edges");
  add(resample, "resample");
  add(matchMoments, "match-moments");
  add(productRoot, "product-root");
  add(detailCap, "detail-cap");
  add(pcaMatch, "pca-match");
  add(keepBands, "keep-bands");
  return names;
}

Guards ChooseGuards(const FuseRequest& o, const Method& method, bool isMatched) {
  RefuseForeign(!o.productRoot.empty(), "--product-root", method);
  RefuseForeign(!o.detailCap.empty(), "--detail-cap", method);
  RefuseForeign(!o.pcaMatch.empty(), "--pca-match", method);
  RefuseForeign(!o.keepBands.empty(), "--keep-bands", method);
  Guards guards;
  guards.edges = IsOn(o.edges, "edges", "repeat", "off", o.asPublished);
  const bool isAuto = o.resample ? *o.resample == "auto" : !o.asPublished;
  guards.resample = method.isRatio && isAuto;
  guards.matchMoments = IsOn(o.matchMoments, "match-moments", "robust", "plain", o.asPublished) && isMatched;
  guards.productRoot =
      IsOn(o.productRoot, "product-root", "auto", "off", o.asPublished) && isMatched && method.Takes(kTakesProductRoot);
  for (const auto& [given, option] : {std::pair{&o.matchMoments, "match-moments"}, {&o.productRoot, "product-root"}}) {
    if (given->empty() || isMatched) continue;
    throw UsageError("--" + std::string(option) + " has no effect on a run without spectral matching.");
  }
  // Weights that are given are meant.
  const bool isWeighted = o.detailWeight || o.secondDetailWeight;
  guards.detailCap = IsOn(o.detailCap, "detail-cap", "auto", "off", o.asPublished) && method.Takes(kTakesKernels) &&
                     !(o.detailCap.empty() && isWeighted);
  guards.pcaMatch = IsOn(o.pcaMatch, "pca-match", "auto", "off", o.asPublished) && method.Takes(kTakesPcaMatch);
  guards.keepBands = IsOn(o.keepBands, "keep-bands", "auto", "off", o.asPublished) && method.Takes(kTakesKeepBands);
  return guards;
}

}  // namespace fusion
