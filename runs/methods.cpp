#include "runs/methods.h"

#include "band_arithmetic/brovey_fusion.h"
#include "band_arithmetic/multiple_fusion.h"
#include "band_arithmetic/weight_fusion.h"
#include "highpass/block_hpf.h"
#include "highpass/block_sharpening.h"
#include "runs/bayesian_setup.h"
#include "runs/guards.h"
#include "runs/highpass_setup.h"
#include "runs/notices.h"
#include "runs/run_failure.h"
#include "runs/text.h"
#include "transform/ihs_tran_fusion.h"
#include "transform/prin_component_fusion.h"

namespace fusion {
namespace {

template <typename Algorithm>
std::unique_ptr<CBaseAlgorithm> Make(HpfFusionParam& param, const MethodSetup& /*setup*/) {
  return std::make_unique<Algorithm>(&param);
}

std::unique_ptr<CBaseAlgorithm> MakePca(HpfFusionParam& param, const MethodSetup& setup) {
  auto fusion = std::make_unique<CPrinComponentFusion>(&param);
  fusion->MatchPan(setup.guards.pcaMatch);
  return fusion;
}

std::unique_ptr<CBaseAlgorithm> MakeWeighted(HpfFusionParam& param, const MethodSetup& setup) {
  auto fusion = std::make_unique<CWeightFusion>(&param);
  fusion->KeepBandsWithoutWeight(setup.guards.keepBands);
  return fusion;
}

void TellDetailCap(const CBaseAlgorithm& algorithm, const std::vector<int>& /*bands*/, Notices& notices) {
  const auto& fusion = dynamic_cast<const BlockHpf&>(algorithm);
  if (!fusion.HasCappedDetail()) return;
  notices.Add("Detail has a weight of " + Formatted("%.2g", fusion.GetDetailWeight()) +
              ", its share of pan; --detail-cap off, or --detail-weight, for more.");
}

void TellPanMatch(const CBaseAlgorithm& algorithm, const std::vector<int>& /*bands*/, Notices& notices) {
  const auto& fusion = dynamic_cast<const CPrinComponentFusion&>(algorithm);
  if (fusion.GetPanFactor() == 1.0 && fusion.GetPanOffset() == 0.0) return;
  notices.Add("Pan, times " + Formatted("%.4g", fusion.GetPanFactor()) + " and plus " +
              Formatted("%.4g", fusion.GetPanOffset()) +
              ", has the first component's mean and deviation (--pca-match off for pan as it is).");
}

/// A weight that is no number leaves a band empty, or kept, which must not go without a word.
void TellBandsWithoutWeight(const CBaseAlgorithm& algorithm, const std::vector<int>& bands, Notices& notices) {
  using Doubt = CWeightFusion::WeightDoubt;
  const auto& weighted = dynamic_cast<const CWeightFusion&>(algorithm);
  const auto& doubts = weighted.GetWeightDoubts();
  const auto reason = [](Doubt doubt) {
    switch (doubt) {
      case Doubt::kNegative:
        return "its correlation with pan is negative";
      case Doubt::kConstantBand:
        return "it is constant";
      case Doubt::kConstantPan:
        return "the pan image is constant";
      default:
        return "no pixel has data both in it and in pan";
    }
  };
  for (std::size_t i = 0; i < std::min(doubts.size(), bands.size()); ++i) {
    if (doubts[i] == Doubt::kNone) continue;
    const std::string band = "Multispectral band " + std::to_string(bands[i] + 1);
    if (weighted.KeepsBandsWithoutWeight()) {
      notices.Add(band + " is kept as resampled, without detail of pan: " + reason(doubts[i]) +
                  ", so that it has no weight (--keep-bands off leaves it empty).");
    } else {
      notices.Add(band + " comes out empty: " + reason(doubts[i]) +
                  ", so that it has no weight. Leave it out (--bands) or take another method.");
    }
  }
}

void TellComponents(const CBaseAlgorithm& algorithm, ModelFacts& facts) {
  const auto& fusion = dynamic_cast<const CPrinComponentFusion&>(algorithm);
  facts.push_back({"means", fusion.GetMeans()});
  facts.push_back({"components", fusion.GetComponents()});
  facts.push_back({"pan_factor", {fusion.GetPanFactor()}});
  facts.push_back({"pan_offset", {fusion.GetPanOffset()}});
}

void TellWeights(const CBaseAlgorithm& algorithm, ModelFacts& facts) {
  facts.push_back({"weights", dynamic_cast<const CWeightFusion&>(algorithm).GetWeights()});
}

void TellGains(const CBaseAlgorithm& algorithm, ModelFacts& facts) {
  const auto& fusion = dynamic_cast<const BlockHpf&>(algorithm);
  facts.push_back({"detail_weight", {fusion.GetDetailWeight()}});
  facts.push_back({"gains", fusion.GetGains(false)});
  if (!fusion.GetGains(true).empty()) facts.push_back({"second_gains", fusion.GetGains(true)});
  facts.push_back({"target_means", fusion.GetBandMeans()});
  facts.push_back({"target_deviations", fusion.GetBandDeviations()});
}

struct OptionOfSome {
  const char* name;
  MethodOption kind;
};

constexpr OptionOfSome kOptionsOfSome[] = {
    {"--resample", kTakesResample},
    {"--type", kTakesType},
    {"--rgb", kTakesRgb},
    {"--stretch", kTakesStretch},
    {"--spectral-match", kTakesMatch},
    {"--match-moments", kTakesMatch},
    {"--auto-level", kTakesAutoLevel},
    {"--kernel-size", kTakesKernels},
    {"--detail-weight", kTakesKernels},
    {"--second-kernel-size", kTakesKernels},
    {"--second-detail-weight", kTakesKernels},
    {"--detail-cap", kTakesKernels},
    {"--bayes-weight", kTakesBayesModel},
    {"--registration", kTakesBayesModel},
    {"--product-root", kTakesProductRoot},
    {"--pca-match", kTakesPcaMatch},
    {"--keep-bands", kTakesKeepBands},
};

constexpr unsigned kRaster = kTakesResample | kTakesType | kTakesStretch;

}  // namespace

const std::vector<Method>& Methods() {
  static const std::vector<Method> methods = {
      {.name = "bayesian",
       .summary = "the likeliest image: the bands plus pan's detail, weighed as it was one level down",
       .formula =
           "fused = band + gain x (pan - low-passed pan), and what the other bands tell beside that; low-pass, gains "
           "and a shift between the images are estimated from the images, one level down, where the answer is known",
       .source = "Fasbender, Radoux and Bogaert 2008 (Bayesian data fusion); Aiazzi et al. 2006 (the sensor's transfer "
                 "function, gains a level down); Garzelli, Nencini and Capobianco 2008 (gains from all bands); Vivone "
                 "et al. 2015 (blind estimate of the low-pass)",
       .suits = "nearly always: for maps, classification and figures it keeps the bands' colours, and it adds to each "
                "band what its sensor would have seen, whether pan covers it or not",
       .spares = "where pan and bands were taken at different times, and where nothing may swing below 0 beside hard "
                 "edges, dark water above all (a smaller --bayes-weight helps)",
       .takes = kRaster | kTakesBayesModel,
       .make = MakeBayesian,
       .onBandScale = true},
      {.name = "brovey",
       .summary = "each band times pan over the sum of the bands",
       .formula = "fused = band x pan / sum of the bands, brought back to each band's mean and deviation",
       .source = "Gillespie, Kahle and Walker 1987 (chromaticity transform)",
       .suits = "pictures of three visible bands that pan covers: sharp, and fast",
       .spares = "where bands lie outside pan's range (near infrared), for indices and classification: every band gets "
                 "the same detail, and ratios of bands stay those of the coarse image",
       .takes = kRaster | kTakesMatch,
       .make = Make<CBroveyFusion>,
       .matchedByDefault = true,
       .isRatio = true},
      {.name = "multiplicative",
       .summary = "each band times pan",
       .formula = "fused = band x pan, of which the root is brought back to each band's mean and deviation",
       .source = "Pohl and van Genderen 1998 (arithmetic combinations)",
       .suits = "a strong picture of roads and roofs, where colours matter little",
       .spares = "wherever colours or values count: pan is mixed into every band alike, which pales them",
       .takes = kRaster | kTakesMatch | kTakesProductRoot,
       .make = Make<CMultipleFusion>,
       .matchedByDefault = true,
       // The bare product of two images fits no integer type.
       .rawType = PDT_FLOAT32},
      {.name = "weighted",
       .summary = "mean of band and pan, weighted by their correlation",
       .formula = "fused = ((1 - a) band + (1 + a) pan) / 2, a = sqrt(correlation of band and pan / number of bands)",
       .source = "Pohl and van Genderen 1998 (weighted combination by correlation coefficients)",
       .suits = "bands that go closely together with pan",
       .spares = "bands that hardly do: at least half of every fused band is pan",
       .takes = kRaster | kTakesMatch | kTakesKeepBands,
       .make = MakeWeighted,
       .remark = TellBandsWithoutWeight,
       .tell = TellWeights,
       .matchedByDefault = true},
      {.name = "ihs",
       .summary = "pan in place of the intensity of three bands",
       .formula = "intensity, hue and saturation of three bands, pan in the place of the intensity, and back; further "
                  "bands are resampled",
       .source = "Carper, Lillesand and Kiefer 1990; the model of Gonzalez and Woods",
       .suits = "pictures of red, green and blue under a pan that covers just these",
       .spares = "more than three bands, and pan that sees near infrared: grass comes out bright green",
       .takes = kRaster | kTakesMatch | kTakesRgb,
       .make = Make<CIhsTranFusion>,
       .matchedByDefault = true,
       .buildsOverviews = true,
       .isRatio = true,
       .onByteScale = true,
       .minimumBands = 3},
      {.name = "pca",
       .summary = "pan in place of the first principal component",
       .formula = "the bands' principal components, pan on the scale of the first one in its place, and back",
       .source = "Chavez, Sides and Anderson 1991",
       .suits = "many bands that mostly vary in brightness together",
       .spares = "scenes whose first component is another thing than brightness (near infrared over vegetation): "
                 "colours are cast",
       .takes = kRaster | kTakesPcaMatch,
       .make = MakePca,
       .remark = TellPanMatch,
       .tell = TellComponents,
       .wholeFileBands = true,
       .onBandScale = true},
      {.name = "hpf",
       .summary = "bands plus the high-pass filtered pan, scaled to each band's spread",
       .formula = "fused = band + weight x deviation of the band / deviation of the detail x detail; detail = pan less "
                  "the mean around it, by a kernel as wide as the ratio of the pixels asks for; ends with each band's "
                  "mean and deviation",
       .source = "Schowengerdt 1980; Gangkofner, Pradhan and Holcomb 2008",
       .suits = "a robust second choice for every band, also those that pan does not cover; the amount of detail is "
                "yours (--detail-weight)",
       .spares = "where thin bright or dark rims along edges disturb",
       .takes = kTakesAutoLevel | kTakesKernels,
       .make = MakeHpf,
       .remark = TellDetailCap,
       .tell = TellGains,
       .mixesGreen = true,
       .wholeFileBands = true,
       .buildsOverviews = true,
       .onBandScale = true},
      {.name = "sharpen",
       .summary = "bands times the ratio of pan to its 7 x 7 mean, plus pan",
       .formula =
           "fused = band x pan / mean of pan over 7 x 7 pixels + pan, brought back to each band's mean and deviation",
       .source = "Liu 2000 (smoothing-filter-based intensity modulation), with pan added on top",
       .suits = "pictures with crisp edges",
       .spares = "for values: pan is mixed into every band, and dark ground beside bright edges is exaggerated",
       .takes = kTakesType | kTakesMatch | kTakesAutoLevel,
       .make = Make<BlockSharpening>,
       .matchedByDefault = true,
       .mixesGreen = true,
       .buildsOverviews = true,
       .isRatio = true},
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

std::vector<std::string> OwnOptions(const Method& method) {
  std::vector<std::string> options;
  for (const OptionOfSome& option : kOptionsOfSome) {
    if (method.Takes(option.kind)) options.emplace_back(option.name);
  }
  return options;
}

void RefuseForeign(bool given, const std::string& option, const Method& method) {
  const std::string name = option.substr(0, option.find(' '));
  for (const OptionOfSome& known : kOptionsOfSome) {
    if (!given || name != known.name || method.Takes(known.kind)) continue;
    throw UsageError(option + " has no effect on method " + method.name + "; it is taken by " +
                     MethodsThatTake(known.kind) + ".");
  }
}

std::string MethodsThatTake(MethodOption option) {
  std::vector<std::string> names;
  for (const Method& method : Methods()) {
    if (method.Takes(option)) names.emplace_back(method.name);
  }
  return names.empty() ? "no method" : Join(names);
}

std::string MethodNames() {
  std::vector<std::string> names;
  for (const Method& method : Methods()) names.emplace_back(method.name);
  return Join(names);
}

}  // namespace fusion
