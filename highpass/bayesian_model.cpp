#include "highpass/bayesian_model.h"

#include <algorithm>
#include <cmath>

#include "estimation/detail_moments.h"
#include "estimation/injection_model.h"
#include "estimation/low_pass_fill.h"
#include "estimation/registration.h"
#include "framework/messages.h"
#include "highpass/bayesian_scene.h"
#include "highpass/bayesian_source.h"
#include "platform/algorithm/run_threads.h"

namespace messages = fusion::messages;
using fusion::RegistrationResult;

namespace {

BayesianDoubt DoubtOf(fusion::InjectionDoubt doubt, bool unlike) {
  switch (doubt) {
    case fusion::InjectionDoubt::kNoDetail:
      return BayesianDoubt::kNoDetail;
    case fusion::InjectionDoubt::kFewSamples:
      return BayesianDoubt::kFewSamples;
    case fusion::InjectionDoubt::kUnsolvable:
      return BayesianDoubt::kUnsolvable;
    default:
      return unlike ? BayesianDoubt::kUnlike : BayesianDoubt::kNone;
  }
}

/// As fine as pan, whose difference from it is what is added.
PixelDataType LowPassType(PixelDataType pan) {
  return pan == PDT_UINT32 || pan == PDT_INT32 || pan == PDT_FLOAT64 ? PDT_FLOAT64 : PDT_FLOAT32;
}

}  // namespace

BayesianModelEstimator::BayesianModelEstimator(const BayesianFusionParam& param) : m_param(param) {}
BayesianModelEstimator::~BayesianModelEstimator() = default;

void BayesianModelEstimator::Process() {
  ClearError();
  m_model = {};
  m_estimate = {};
  const platform::RunThreads threads(*this);
  Guard([this] { Estimate(); });
  if (m_nLastErrorType == ERR_NONE) return;
  m_model = {};
  m_estimate = {};
}

bool BayesianModelEstimator::GoesOn(int step) {
  if (!m_pProgress || m_pProgress->Step(step, messages::kProcessing)) return true;
  m_nLastErrorType = ERR_CANCELLED;
  return false;
}

void BayesianModelEstimator::Estimate() {
  if (!(m_param.m_dBayesParam >= 0.0 && m_param.m_dBayesParam <= 1.0)) {
    return Fail(ERR_EXCEPTION, L"贝叶斯权重必须在0到1之间！");
  }
  fusion::BayesianScene scene(m_param, m_overlappedIo, m_workers.get());
  if (const auto failure = scene.Open(m_area)) return Fail(failure->type, failure->message);
  if (m_pProgress) {
    m_pProgress->Begin({platform::stages::kModelEstimation}, messages::RunTitle(L"贝叶斯模型估计"),
                       scene.StripCount() + 1);
  }
  std::vector<fusion::RegistrationTile> tiles;
  if (!scene.ReadTiles(tiles)) return Fail(ERR_READ, messages::kReadFailed);
  fusion::Registration registration(std::move(tiles), scene.Grid(), m_workers.get());
  const RegistrationResult best = registration.Find(m_registration != BayesianRegistration::kOff);
  // What is only told is not looked through.
  RegistrationResult used = best;
  if (best.accepted && m_registration != BayesianRegistration::kMove) used = registration.Find(false);
  const fusion::LowPassFill fill(registration, used);

  m_estimate.shiftX = best.shiftX;
  m_estimate.shiftY = best.shiftY;
  m_estimate.agreement = best.agreement;
  m_estimate.moved = used.accepted;
  m_estimate.score = used.score;
  m_estimate.isBox = used.blur.isBox;
  m_estimate.blur = used.blur.width;
  m_estimate.restoring = fusion::RestoringWidth(used.blur.isBox, used.blur.width,
                                                std::sqrt(scene.Grid().RatioX() * scene.Grid().RatioY()));
  if (GoesOn(1) && Stream(scene, used, fill) && m_pProgress) m_pProgress->Finish();
}

bool BayesianModelEstimator::Stream(fusion::BayesianScene& scene, const RegistrationResult& found,
                                    const fusion::LowPassFill& fill) {
  const int n = scene.BandCount();
  const CRect& area = scene.Area();
  const platform::Affine moved = scene.Moved(found.shiftX, found.shiftY);
  const auto source = std::make_shared<fusion::BayesianSource>(
      fusion::BayesianSource::Origin{.file = m_param.m_strMSFile,
                                     .northUp = m_param.m_bOpenOption,
                                     .bands = scene.Bands(),
                                     .width = scene.Ms().GetWidth(),
                                     .height = scene.Ms().GetHeight(),
                                     .geoTransform = found.accepted ? moved.t : nullptr},
      LowPassType(scene.PanType()), m_param.m_strOutFile);
  fusion::DetailMoments moments(n, area.Width(), area.Height(), found.blur, m_workers.get());
  int step = 1;
  bool written = true;
  const bool read = scene.ForEachStrip(found, m_estimate.restoring, [&](fusion::BayesianStrip& strip) {
    std::vector<const double*> images;
    for (const auto& image : strip.images) images.push_back(image.data());
    if (strip.counts) {
      if (scene.Samples()) moments.Begin(strip.rect.Height());
      moments.AddRows(images.data(), strip.rect.Height());
    }
    if (strip.hasBands) fill.Fill(images.data(), m_param.m_bMaskNoData, strip.lowPass);
    written = source->Write(strip.rect, strip.lowPass.data());
    return written && GoesOn(++step);
  });
  if (m_nLastErrorType != ERR_NONE) return false;
  if (!read) Fail(ERR_READ, messages::kReadFailed);
  if (read && (!written || !source->Complete())) Fail(ERR_WRITE, messages::kWriteFailed);
  if (m_nLastErrorType != ERR_NONE) return false;

  constexpr double kLeastScore = 0.1;
  const bool unlike = m_estimate.score < kLeastScore;
  fusion::InjectionDoubt doubt = fusion::InjectionDoubt::kNone;
  const auto injection = fusion::FitInjection(moments.Statistics(), n, !unlike, doubt);
  m_estimate.doubt = DoubtOf(doubt, unlike);
  m_estimate.samples = moments.Statistics().Count();
  m_estimate.gains = injection.panGains;
  Adopt(injection.Scaled(2.0 * m_param.m_dBayesParam));
  m_model.source = source;
  if (found.accepted) m_model.area = scene.CommonInPan();
  return true;
}

void BayesianModelEstimator::Adopt(const fusion::InjectionModel& injection) {
  // The kernel multiplies by 2w and counts the low-passed pan as one band more, of which it makes nothing.
  m_model.weight = 0.5;
  m_model.panVariance = 1.0;
  m_model.panCovariance = injection.panGains;
  m_model.panCovariance.push_back(0.0);
  const std::size_t n = injection.panGains.size();
  for (std::size_t j = 0; j <= n; ++j) {
    for (std::size_t b = 0; b < n; ++b) {
      m_model.transform.push_back(j < n ? injection.bandGains[b * n + j] : injection.lowPassGains[b]);
    }
    m_model.transform.push_back(0.0);
  }
}
