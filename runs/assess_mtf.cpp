#include "runs/assess_mtf.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "estimation/registration.h"
#include "runs/assess_scene.h"
#include "runs/text.h"

namespace fusion {
namespace {

/// What is found in a part of the common ground.
struct PartBlur {
  RegistrationResult found;
  bool isEnough;
};

PartBlur MeasurePart(AssessScene& scene, const CRect& part, const std::function<void()>& watch) {
  const PanGrid& grid = scene.Grid();
  std::vector<RegistrationTile> tiles;
  for (const CRect& rect : ChooseTiles(part, grid)) {
    watch();
    tiles.push_back(scene.ReadTile(rect));
  }
  Registration registration(std::move(tiles), grid, scene.Workers());
  registration.SetWatch(watch);
  // Images that lie beside each other look more blurred than they are.
  const RegistrationResult found = registration.Find(true);
  return {found, registration.Evidence(found.blur, found.shiftX, found.shiftY) >= Registration::kLeastEvidence};
}

/// A variance in squares of the bands' pixels, of the Gaussian with a gain at their Nyquist frequency.
double VarianceOfGain(double gain) { return std::pow(DeviationOfGain(1.0, gain), 2); }

/// Why two halves are not to be relied on.
std::string DoubtOf(const PartBlur& first, const PartBlur& second, const SceneBlur& blur) {
  // A tenth of a width is a fifth of the gain, by which published gains of sensors differ, too.
  constexpr double kMostApart = 0.2;
  constexpr double kLeastScore = 0.5;
  if (!first.isEnough || !second.isEnough) return "too few pixels have data";
  if (blur.score < kLeastScore) return "pan's detail is not mostly that of the bands";
  if (!Registration::IsInside(first.found.blur) || !Registration::IsInside(second.found.blur)) {
    return "the blur between pan and bands is not that of a lens";
  }
  if (blur.apart > kMostApart) return "the halves of the scene disagree";
  return {};
}

}  // namespace

SceneBlur MeasureBlur(AssessScene& scene, const std::function<void()>& watch) {
  const CRect& all = scene.Common();
  CRect halves[2] = {all, all};
  if (all.Width() >= all.Height()) {
    halves[0].right = halves[1].left = (all.left + all.right) / 2;
  } else {
    halves[0].bottom = halves[1].top = (all.top + all.bottom) / 2;
  }
  const PartBlur first = MeasurePart(scene, halves[0], watch);
  const PartBlur second = MeasurePart(scene, halves[1], watch);
  SceneBlur blur;
  blur.width = (first.found.blur.width + second.found.blur.width) / 2.0;
  blur.apart = std::fabs(first.found.blur.width - second.found.blur.width);
  blur.score = std::min(first.found.score, second.found.score);
  blur.doubt = DoubtOf(first, second, blur);
  return blur;
}

double GainBeyondPan(double width) { return GainOfDeviation(1.0, width * DeviationOfGain(1.0, kUsualGain)); }

double GainThatKeeps(double width, double ratio, double panGain) {
  const double share = 1.0 / (ratio * ratio);
  const double variance = width * width * VarianceOfGain(kUsualGain) * (1.0 - share) + VarianceOfGain(panGain) * share;
  return GainOfDeviation(1.0, std::sqrt(variance));
}

SceneGains ChooseGains(AssessScene& scene, const std::vector<double>& given, double ratio,
                       const std::function<void()>& watch) {
  SceneGains gains;
  gains.source = given.empty() ? "published" : "given";
  if (!given.empty()) gains.reduced.bands = gains.full.bands = given[0];
  if (given.size() > 1) gains.reduced.pan = gains.full.pan = given[1];
  if (!given.empty()) return gains;
  const SceneBlur blur = MeasureBlur(scene, watch);
  gains.blur = {blur.width, blur.apart, blur.score};
  if (!blur.doubt.empty()) {
    gains.doubt = "What blurs the bands more than pan cannot be told from the images: " + blur.doubt +
                  ". Filters have published gains, " + Formatted("%g", gains.full.bands) + " and " +
                  Formatted("%g", gains.full.pan);
    return gains;
  }
  gains.source = "estimated";
  gains.reduced.bands = GainThatKeeps(blur.width, ratio, gains.reduced.pan);
  gains.full.bands = GainBeyondPan(blur.width);
  return gains;
}

}  // namespace fusion
