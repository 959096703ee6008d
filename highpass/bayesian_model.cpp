#include "highpass/bayesian_model.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "estimation/detail_moments.h"
#include "estimation/injection_model.h"
#include "estimation/low_pass_fill.h"
#include "estimation/registration.h"
#include "framework/messages.h"
#include "highpass/bayesian_scene.h"
#include "highpass/bayesian_source.h"
#include "platform/algorithm/run_threads.h"
#include "platform/statistics/survey.h"

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

/// Ends a search that its user does not want any more.
struct SearchCancelled {};

}  // namespace

/// How the images lie to each other.
struct BayesianModelEstimator::Registered {
  RegistrationResult best;
  RegistrationResult used;
  fusion::LowPassFill fill;

  template <typename Archive>
  void Exchange(Archive& archive) {
    archive(best, used, fill);
  }
};

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
  Registered registered;
  const auto take = [&registered](const Registered& part) { registered = part; };
  // The places that it is found from are few and lie all over the scene: one piece.
  const platform::SurveyPass pass(m_param.m_pSurvey.get(), "registration", 1);
  for (const std::int64_t piece : pass.Pieces()) {
    std::optional<Registered> found;
    try {
      found = Register(scene);
    } catch (const SearchCancelled&) {
      m_nLastErrorType = ERR_CANCELLED;
      return;
    }
    if (!found) return Fail(ERR_READ, messages::kReadFailed);
    pass.Take(piece, *found, take);
  }
  if (!pass.End<Registered>(take)) {
    m_param.m_pSurvey->Wait();
    return;
  }
  const auto& [best, used, fill] = registered;
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

std::optional<BayesianModelEstimator::Registered> BayesianModelEstimator::Register(fusion::BayesianScene& scene) const {
  std::vector<fusion::RegistrationTile> tiles;
  if (!scene.ReadTiles(tiles)) return std::nullopt;
  fusion::Registration registration(std::move(tiles), scene.Grid(), m_workers.get());
  registration.SetWatch([this] {
    if (m_pProgress && m_pProgress->IsCancelRequested()) throw SearchCancelled();
  });
  const RegistrationResult best = registration.Find(m_registration != BayesianRegistration::kOff);
  // What is only told is not looked through.
  RegistrationResult used = best;
  if (best.accepted && m_registration != BayesianRegistration::kMove) used = registration.Find(false);
  const fusion::LowPassFill fill(registration, used);
  return Registered{best, used, fill};
}

std::shared_ptr<fusion::BayesianSource> BayesianModelEstimator::MakeSource(fusion::BayesianScene& scene,
                                                                           const RegistrationResult& found,
                                                                           bool partly) const {
  const platform::Affine moved = scene.Moved(found.shiftX, found.shiftY);
  return std::make_shared<fusion::BayesianSource>(
      fusion::BayesianSource::Origin{.file = m_param.m_strMSFile,
                                     .northUp = m_param.m_bOpenOption,
                                     .bands = scene.Bands(),
                                     .width = scene.Ms().GetWidth(),
                                     .height = scene.Ms().GetHeight(),
                                     .geoTransform = found.accepted ? moved.t : nullptr},
      LowPassType(scene.PanType()), m_param.m_strOutFile, partly);
}

std::vector<int> BayesianModelEstimator::StripsToRead(fusion::BayesianScene& scene, const platform::SurveyPass& pass,
                                                      const std::vector<int>& counted, bool makesSource,
                                                      const RegistrationResult& found) const {
  std::vector<int> strips;
  if (pass.Records()) {
    if (!scene.Samples()) return pass.Pieces().empty() ? strips : counted;
    for (const std::int64_t piece : pass.Pieces()) strips.push_back(counted[static_cast<std::size_t>(piece)]);
    return strips;
  }
  const platform::Survey* survey = m_param.m_pSurvey.get();
  // A part of a run whose moments are known reads what lies under it.
  const bool isPart = survey && !survey->Gathers();
  for (int strip = 0; makesSource && strip < scene.StripCount(); ++strip) {
    if (!isPart || scene.IsRead(strip, m_param.m_rcProcess, found)) strips.push_back(strip);
  }
  return strips;
}

bool BayesianModelEstimator::Stream(fusion::BayesianScene& scene, const RegistrationResult& found,
                                    const fusion::LowPassFill& fill) {
  const int n = scene.BandCount();
  const CRect& area = scene.Area();
  platform::Survey* const survey = m_param.m_pSurvey.get();
  std::vector<int> counted;
  for (int strip = 0; strip < scene.StripCount(); ++strip) {
    if (scene.Counts(strip)) counted.push_back(strip);
  }
  // A strip that stands for others is a piece by itself; where all count they hang together.
  const bool samples = scene.Samples();
  const platform::SurveyPass pass(survey, "detail", samples ? static_cast<std::int64_t>(counted.size()) : 1);
  const bool gathers = survey && survey->Gathers();
  const bool makesSource = !gathers || (m_sourceForSurvey && !pass.Records());
  const std::vector<int> strips = StripsToRead(scene, pass, counted, makesSource, found);
  const bool takesMoments = !pass.Pieces().empty();
  scene.SetUse(takesMoments, makesSource);
  platform::RunningCovariance statistics(2 * (n + 1));
  const auto fold = [&statistics](const platform::RunningCovariance& part) { statistics.Add(part); };
  fusion::DetailMoments moments(n, area.Width(), area.Height(), found.blur, m_workers.get());
  const auto takePart = [&](std::int64_t piece) {
    platform::RunningCovariance part = moments.TakeStatistics();
    pass.Take(piece, part, fold);
  };
  const std::shared_ptr<fusion::BayesianSource> source =
      makesSource ? MakeSource(scene, found, static_cast<int>(strips.size()) < scene.StripCount()) : nullptr;
  int step = 1;
  bool written = true;
  const bool read =
      scene.ForEachStrip(strips, found, m_estimate.restoring, [&](int which, fusion::BayesianStrip& strip) {
        std::vector<const double*> images;
        for (const auto& image : strip.images) images.push_back(image.data());
        if (strip.counts) {
          if (samples) moments.Begin(strip.rect.Height());
          moments.AddRows(images.data(), strip.rect.Height());
          if (samples) takePart(std::lower_bound(counted.begin(), counted.end(), which) - counted.begin());
        }
        if (source && strip.hasBands) fill.Fill(images.data(), m_param.m_bMaskNoData, strip.lowPass);
        written = !source || source->Write(strip.rect, strip.lowPass.data());
        return written && GoesOn(++step);
      });
  if (m_nLastErrorType != ERR_NONE) return false;
  if (!read) Fail(ERR_READ, messages::kReadFailed);
  if (read && (!written || (source && !source->Complete()))) Fail(ERR_WRITE, messages::kWriteFailed);
  if (m_nLastErrorType != ERR_NONE) return false;
  if (!samples && takesMoments) takePart(0);
  if (!pass.End<platform::RunningCovariance>(fold)) return true;
  Fit(statistics, n);
  m_model.source = source;
  if (found.accepted) m_model.area = scene.CommonInPan();
  return true;
}

void BayesianModelEstimator::Fit(const platform::RunningCovariance& statistics, int n) {
  constexpr double kLeastScore = 0.1;
  const bool unlike = m_estimate.score < kLeastScore;
  fusion::InjectionDoubt doubt = fusion::InjectionDoubt::kNone;
  const auto injection = fusion::FitInjection(statistics, n, !unlike, doubt);
  m_estimate.doubt = DoubtOf(doubt, unlike);
  m_estimate.samples = statistics.Count();
  m_estimate.gains = injection.panGains;
  Adopt(injection.Scaled(2.0 * m_param.m_dBayesParam));
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
