#include "runs/bayesian_setup.h"

#include "highpass/bayes_pan_sharpening_fusion.h"
#include "platform/statistics/survey.h"
#include "runs/failures.h"
#include "runs/fuse.h"
#include "runs/notices.h"
#include "runs/run_failure.h"
#include "runs/text.h"

namespace fusion {
namespace {

/// What is asked for; as published an image stays where it is.
BayesianRegistration RegistrationOf(const FuseRequest& request) {
  const std::string& word = request.registration;
  if (request.asPublished && word == "auto") return BayesianRegistration::kOff;
  if (word == "off") return BayesianRegistration::kOff;
  return word == "report" ? BayesianRegistration::kReport : BayesianRegistration::kMove;
}

void TellShift(const BayesianEstimate& estimate, Notices& notices) {
  if (estimate.shiftX == 0.0 && estimate.shiftY == 0.0) return;
  if (estimate.moved) {
    notices.Add("The multispectral image is moved " + MoveInWords(estimate.shiftX, estimate.shiftY) +
                ", where its detail lies on that of pan; --registration off leaves it in its place.");
  } else {
    notices.Add("The detail of the multispectral image lies on that of pan when it is moved " +
                MoveInWords(estimate.shiftX, estimate.shiftY) + "; --registration auto does so.");
  }
}

void TellDoubt(BayesianDoubt doubt, Notices& notices) {
  switch (doubt) {
    case BayesianDoubt::kNone:
      return;
    case BayesianDoubt::kNoDetail:
      notices.Add("Pan shows no detail where both images have data; the bands are resampled and nothing is added.");
      return;
    case BayesianDoubt::kFewSamples:
      notices.Add("Too few pixels have data in both images to fit more than one gain a band.");
      return;
    case BayesianDoubt::kUnsolvable:
      notices.Add("The bands' moments have no more than one gain a band to tell.");
      return;
    case BayesianDoubt::kUnlike:
      notices.Add(
          "Pan's detail is hardly that of the bands: do the images show the same ground? One gain a band is fitted.");
  }
}

}  // namespace

std::unique_ptr<CBaseAlgorithm> MakeBayesian(HpfFusionParam& param, const MethodSetup& setup) {
  constexpr double kWeight = 0.5;
  BayesianFusionParam record;
  static_cast<FusionParam&>(record) = param;
  record.m_dBayesParam = setup.request.bayesWeight.value_or(kWeight);
  BayesianModelEstimator estimator(record);
  estimator.SetRegistration(RegistrationOf(setup.request));
  // A window that stands for itself, or what the run is a part of.
  estimator.SetArea(param.m_rcScene.IsRectEmpty() ? param.m_rcProcess : param.m_rcScene);
  const bool gathers = param.m_pSurvey && param.m_pSurvey->Gathers();
  estimator.MakeSourceForSurvey(setup.request.stretch);
  estimator.SetProgress(&setup.progress);
  estimator.SetOverlappedIo(true);
  estimator.ShareThreads(setup.workers);
  estimator.Process();
  ThrowFailure(estimator);
  // Without a model there is nothing to fuse, and what is not stretched needs no more.
  if (gathers && param.m_pSurvey->Pending() > 0 && setup.request.stretch) param.m_pSurvey->Wait();
  if (gathers && (param.m_pSurvey->Pending() > 0 || !setup.request.stretch)) return nullptr;

  const BayesianEstimate& estimate = estimator.GetEstimate();
  if (RegistrationOf(setup.request) != BayesianRegistration::kOff) {
    setup.found.registration = {estimate.shiftX, estimate.shiftY, estimate.moved, estimate.agreement, estimate.score};
  }
  setup.found.model = {estimate.isBox ? "box" : "gaussian", estimate.blur, estimate.restoring, estimate.gains,
                       estimate.samples};
  TellShift(estimate, setup.notices);
  TellDoubt(estimate.doubt, setup.notices);
  auto fusion = std::make_unique<BayesPanSharpeningFusion>(&record);
  fusion->SetModel(estimator.GetModel());
  return fusion;
}

}  // namespace fusion
