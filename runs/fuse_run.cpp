#include "runs/fuse_run.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <utility>

#include "framework/fusion.h"
#include "framework/messages.h"
#include "platform/algorithm/build_raster_overviews.h"
#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_algorithm.h"
#include "platform/raster/written_raster.h"
#include "platform/statistics/survey.h"
#include "platform/utility/common_fun.h"
#include "runs/failures.h"
#include "runs/fuse_inputs.h"
#include "runs/fuse_plan.h"
#include "runs/ms_files.h"
#include "runs/notices.h"
#include "runs/output_file.h"
#include "runs/output_format.h"
#include "runs/output_notes.h"
#include "runs/quicklook.h"
#include "runs/room.h"
#include "runs/run_log.h"
#include "runs/run_progress.h"
#include "runs/sample_share.h"
#include "runs/survey.h"

namespace fusion {
namespace {

/// What robust moments of a result are taken from: they hardly change with more, and every pixel is fused for them.
constexpr std::int64_t kMatchedPixels = std::int64_t{1} << 24;

std::vector<std::wstring> InputFiles(const FuseRequest& options) {
  std::vector<std::wstring> files;
  std::vector<std::string> names = MsFiles(options.ms, options.moreMs, options.pan);
  names.insert(names.end(), {options.pan, options.aoi});
  for (const auto& file : names) {
    if (!file.empty()) files.push_back(CommonFun::Utf82U(file));
  }
  return files;
}

double LargestOf(PixelDataType type) {
  double smallest = 0.0;
  double largest = 0.0;
  CRasterAlgorithm::GetMaxMinVal(type, largest, smallest);
  return largest;
}

}  // namespace

FuseRun::FuseRun(const FuseRequest& options, RunLog& log, Notices& notices, RunProgress& progress)
    : m_options(options),
      m_log(log),
      m_notices(notices),
      m_progress(progress),
      m_checked(CheckFuseRequest(options)),
      m_output(CommonFun::Utf82U(options.out)),
      m_pending(m_output, options.overwrite, InputFiles(options)) {}

FuseRun::~FuseRun() = default;

FuseReport FuseRun::Run() {
  try {
    return FuseAndPublish();
  } catch (const RunFailure& failure) {
    // What has failed may have worked on a file in the output's stead.
    const auto inTerms = [&](const std::string& text) {
      return CommonFun::U2Utf8(m_pending.InTermsOfOutput(CommonFun::Utf82U(text)));
    };
    throw RunFailure(failure.GetKind(), inTerms(failure.Sentence()), failure.Type(), inTerms(failure.Message()));
  }
}

FuseReport FuseRun::FuseAndPublish() {
  if (!m_options.survey.empty() && m_options.rows.empty()) {
    throw UsageError("--survey has an effect on --rows alone.");
  }
  ThrowObstacle(m_pending.Foresee(m_checked.format), m_output);
  if (!m_options.log.empty() && m_pending.Concerns(CommonFun::Utf82U(m_options.log))) {
    throw UsageError("--log " + m_options.log + " is a file of this run's images.");
  }
  if (!m_options.quicklook.empty()) {
    m_quicklook = std::make_unique<Quicklook>(m_options, InputFiles(m_options), m_pending);
  }
  m_log.Open(m_options);
  if (!m_options.survey.empty()) m_checked.survey = ReadSurvey(m_options.survey);
  FuseInputs inputs(m_options, m_checked, m_notices, m_progress);
  m_masks = inputs.MasksNoData();
  SettleType(inputs);
  CheckFormatHolds(m_checked.format, m_type, static_cast<int>(inputs.Bands().size()), *m_checked.method);
  CheckDisk(inputs.Area(), static_cast<int>(inputs.Bands().size()), m_type, m_options);
  if (m_options.dryRun) return Plan(inputs);
  Describe(inputs.Description());
  m_written = std::make_shared<platform::WrittenRaster>(!m_options.noProvenance);
  if (!m_options.noProvenance) m_notes = std::make_unique<OutputNotes>(m_options, m_checked, inputs);
  if (!m_pending.Begin()) throw RunError(ERR_CREATE, messages::CreateFailed(m_output));
  const std::wstring result = m_pending.WorkPath();
  MatchTargets targets = MakeTargets();
  if (m_checked.matched) inputs.ComputeTargets(targets, m_progress);
  inputs.Close();
  Fuse(inputs, result, m_checked.matched ? &targets : nullptr);
  FuseReport report = Look(result, inputs.MsType());
  // Those of a part would not be parts of the whole's.
  const bool isPart = !m_options.rows.empty();
  if (m_checked.method->buildsOverviews && !m_options.noOverviews && !isPart) BuildOverviews(result);
  if (m_notes) TellOrigin(result, targets);
  if (m_options.sync && !m_pending.Sync()) throw FileFailure(m_output, "brought onto the disk");
  Picture([&] { m_quicklook->Draw(result, report.method, inputs.Bands(), IsOnBandScale(), m_progress); });
  ThrowObstacle(m_pending.Publish(), m_output);
  if (m_options.sync && !m_pending.Sync()) throw FileFailure(m_output, "brought onto the disk");
  Picture([&] { m_quicklook->Save(); });
  return report;
}

void FuseRun::SettleType(const FuseInputs& inputs) {
  m_type = m_checked.type;
  if (m_type == PDT_UNKNOWN) m_type = DefaultType(inputs.MsType());
  if (m_options.stretch && platform::IsFloatType(m_type)) {
    throw UsageError("--stretch fills the range of an integer type, but the output type is a float type.");
  }
}

MatchTargets FuseRun::MakeTargets() const {
  MatchTargets targets;
  targets.robust = m_checked.guards.matchMoments;
  if (targets.robust) targets.mostPixels = kMatchedPixels;
  targets.root = m_checked.guards.productRoot;
  targets.makeGreen = m_options.makeGreen && !m_checked.method->mixesGreen;
  return targets;
}

SurveyReport FuseRun::Survey() {
  m_log.Open(m_options);
  m_checked.survey = m_options.survey.empty() ? std::make_shared<platform::Survey>() : ReadSurvey(m_options.survey);
  platform::Survey& survey = *m_checked.survey;
  const bool looks = !m_options.dryRun && !m_options.rows.empty();
  survey.Gather({looks ? m_options.rows[0] : 0, looks ? m_options.rows[1] : 0, 1});
  FuseInputs inputs(m_options, m_checked, m_notices, m_progress);
  SurveyReport report;
  report.height = inputs.WholeHeight();
  if (survey.Pending() > 0) {
    survey.Wait();
  } else {
    SettleType(inputs);
    MatchTargets targets = MakeTargets();
    if (m_checked.matched) inputs.ComputeTargets(targets, m_progress);
    inputs.Close();
    // A place in memory, of one row, in which nothing is written.
    static std::atomic<int> count{0};
    const std::wstring place = L"/vsimem/fusion_survey_" + std::to_wstring(++count) + L".tif";
    m_checked.format = kFormatGeoTiff;
    Fuse(inputs, place, m_checked.matched ? &targets : nullptr);
    CRasterSource::DeleteFileW(place);
  }
  report.complete = survey.Pending() == 0;
  report.awaited = survey.IsAwaited();
  return report;
}

FuseReport FuseRun::Plan(const FuseInputs& inputs) const {
  FuseReport report;
  report.method = m_options.method;
  report.output = m_options.out;
  report.guards = m_checked.guards.Names();
  report.bands = static_cast<int>(inputs.Bands().size());
  report.type = TypeName(m_type);
  report.plan = MakePlan(inputs, m_checked, m_output, m_type, !m_options.noOverviews);
  report.width = report.plan->area[2];
  report.height = report.plan->area[3];
  return report;
}

template <typename Work>
void FuseRun::Picture(const Work& work) {
  if (!m_quicklook) return;
  const auto tell = [this](const std::string& why) {
    m_quicklook.reset();
    m_notices.Add("The fusion has succeeded, but there is no picture of it: " + why);
  };
  try {
    work();
  } catch (const RunFailure& failure) {
    if (failure.GetKind() == RunFailure::Kind::kCancelled) throw;
    tell(failure.Sentence());
  } catch (const std::exception& e) {
    tell(ExceptionError(e).Sentence());
  }
}

void FuseRun::Describe(platform::RasterDescription description) {
  if (!IsOnBandScale()) description.ForgetValues();
  m_description = std::make_shared<const platform::RasterDescription>(std::move(description));
}

bool FuseRun::IsOnBandScale() const {
  return !m_options.autoLevel && (m_checked.matched || (m_checked.method->onBandScale && !m_options.stretch));
}

PixelDataType FuseRun::DefaultType(PixelDataType msType) const {
  if (!m_checked.method->Takes(kTakesType)) {
    // The high-pass pipeline has its own mind.
    if (m_options.autoLevel) return PDT_UINT8;
    if (m_options.makeGreen) return PDT_FLOAT32;
  }
  if (!m_checked.matched && m_checked.method->rawType != PDT_UNKNOWN) return m_checked.method->rawType;
  return msType == PDT_UNKNOWN ? PDT_FLOAT32 : msType;
}

void FuseRun::Fuse(const FuseInputs& inputs, const std::wstring& file, const MatchTargets* targets) {
  HpfFusionParam param;
  inputs.FillParam(param);
  param.m_strAlgName = CommonFun::Utf82U(m_checked.method->name);
  param.m_stage = {m_checked.method->name};
  param.m_strOutFile = file;
  param.m_strAoiFile = CommonFun::Utf82U(m_options.aoi);
  param.m_eOutDataType = m_type;
  param.m_eOutFormat = m_checked.format;
  param.m_pDescription = m_description;
  if (m_notes) param.m_pNotes = m_notes->Notes();
  param.m_pWritten = m_written;
  param.m_vecCreationOptions = m_checked.creationOptions;
  param.m_eResampleType = m_checked.resample;
  param.m_bRepeatMsEdges = m_checked.guards.edges;
  param.m_bKeepSampleRange = m_checked.guards.resample;
  param.m_bNeedsFigures = true;
  param.m_nMostBlockPixels = kMostBlockPixels;
  for (const int position : m_options.rgb) param.m_vecRGBBands.push_back(position - 1);
  param.m_bMakeGreen = m_options.makeGreen && m_checked.method->mixesGreen;
  param.m_bDataStretch = m_options.autoLevel;

  const std::unique_ptr<CBaseAlgorithm> algorithm = m_checked.method->make(
      param, {m_options, m_checked.guards, inputs.PixelRatio(), m_progress, m_notices, m_found, m_checked.workers});
  if (!algorithm) return;
  if (targets) {
    // The matching brings the result to its scale.
    dynamic_cast<CFusion&>(*algorithm).MatchBlocks(*targets);
  } else if (m_options.stretch) {
    dynamic_cast<CFusion&>(*algorithm).StretchOwnRange();
  } else if (IsOnByteScale()) {
    algorithm->SetStretch(true);
    m_notices.Add("The result, on the scale of a byte, is stretched to the range of the output type.");
  }
  // Overviews are built once, on the finished file.
  algorithm->SetBuildsOverviews(false);
  Carry(*algorithm);
  if (m_checked.survey && m_checked.survey->Gathers()) return;
  if (targets) TellOutliers(dynamic_cast<CFusion&>(*algorithm).GetMatchOutliers());
  if (m_checked.method->tell) m_checked.method->tell(*algorithm, m_facts);
  if (m_checked.method->remark) m_checked.method->remark(*algorithm, inputs.Bands(), m_notices);
}

void FuseRun::TellOutliers(const MatchOutliers& outliers) const {
  // What changes hardly anything needs no word.
  constexpr double kWorthAWord = 1.01;
  if (outliers.widening < kWorthAWord) return;
  m_notices.Add(std::to_string(outliers.count) + " of " + std::to_string(outliers.of) +
                " values of the unmatched result, far beyond all others, count in the matching as lying nearer "
                "(--match-moments plain takes them as they are).");
}

bool FuseRun::IsOnByteScale() const {
  return !m_options.asPublished && m_checked.method->onByteScale && !platform::IsFloatType(m_type) &&
         m_type != PDT_UINT8;
}

void FuseRun::Carry(CBaseAlgorithm& algorithm) {
  algorithm.SetProgress(&m_progress);
  algorithm.SetOverlappedIo(true);
  algorithm.ShareThreads(m_checked.workers);
  algorithm.Process();
  m_progress.Finish();
  ThrowFailure(algorithm);
  if (m_progress.IsCancelRequested()) throw RunError(ERR_CANCELLED, messages::kCancelled);
}

FuseReport FuseRun::Look(const std::wstring& file, PixelDataType msType) const {
  CRasterSource source;
  if (!source.OpenSimple(file)) throw RunError(ERR_WRITE, messages::kWriteFailed);
  const std::string difference = m_written->Difference(source);
  if (!difference.empty()) {
    throw RunError(ERR_WRITE, L"", m_options.out + " was not written as it should be: " + difference + ".");
  }
  FuseReport report = m_found;
  report.method = m_options.method;
  report.output = m_options.out;
  report.width = source.GetWidth();
  report.height = source.GetHeight();
  report.bands = source.GetBandCount();
  report.type = TypeName(source.GetRasterDataType());
  report.guards = m_checked.guards.Names();
  // A run that masks writes 0 where there is no data, and nowhere else.
  if (m_masks && m_options.measureValid) {
    report.validShare = SampleShare(source, [](const double* values, std::int64_t n) {
      return std::int64_t{n - std::count(values, values + n, 0.0)};
    });
  }
  if (MayExceedType(msType)) TellWhatWasCut();
  return report;
}

bool FuseRun::MayExceedType(PixelDataType msType) const {
  if (platform::IsFloatType(m_type) || m_options.stretch || m_options.autoLevel) return false;
  const bool onBandScale = m_checked.matched || m_checked.method->onBandScale;
  const bool onByteScale = !m_checked.matched && m_checked.method->onByteScale;
  return !onByteScale && (!onBandScale || LargestOf(m_type) < LargestOf(msType));
}

void FuseRun::TellWhatWasCut() const {
  constexpr double kWorthAWord = 0.01;
  const double share = m_written->ShareOfLargest();
  if (share < kWorthAWord) return;
  std::string remedy = m_checked.matched ? "--spectral-match off --stretch" : "--stretch";
  if (!m_checked.method->Takes(kTakesStretch)) remedy = "--auto-level";
  m_notices.Add(std::to_string(std::lround(share * 100.0)) + " % of the samples do not fit " + TypeName(m_type) +
                " and are cut to its largest value; add " + remedy + ", or a wider --type.");
}

void FuseRun::BuildOverviews(const std::wstring& file) {
  CRasterSource source;
  if (!source.OpenSimple(file)) return;
  CBuildRasterOverviews overviews(&source, "AVERAGE", 0, nullptr, &m_progress, L"", false);
  Carry(overviews);
}

void FuseRun::TellOrigin(const std::wstring& file, const MatchTargets& targets) {
  ModelFacts facts;
  if (m_found.registration) {
    facts.push_back({"shift", {m_found.registration->dx, m_found.registration->dy}});
    facts.push_back({"shift_applied", {m_found.registration->applied ? 1.0 : 0.0}});
  }
  if (m_found.model) {
    facts.push_back({m_found.model->shape + "_blur", {m_found.model->blur}});
    facts.push_back({"restoring", {m_found.model->restoring}});
    facts.push_back({"gains", m_found.model->gains});
    facts.push_back({"samples", {static_cast<double>(m_found.model->samples)}});
  }
  facts.insert(facts.end(), m_facts.begin(), m_facts.end());
  if (m_checked.matched) {
    facts.push_back({"target_means", targets.means});
    facts.push_back({"target_deviations", targets.stdDevs});
  }
  if (!m_notes->Complete(file, facts, Checksums(file))) throw FileFailure(m_output);
}

std::vector<std::string> FuseRun::Checksums(const std::wstring& file) const {
  std::vector<std::string> sums = m_written->Checksums();
  if (!sums.empty() && !MayLoseValues(m_checked.format, m_checked.creationOptions)) return sums;
  sums.clear();
  CRasterSource source;
  const auto goesOn = [](void* progress, int) { return !static_cast<CBaseProgress*>(progress)->IsCancelRequested(); };
  if (source.OpenSimple(file)) sums = platform::ChecksumsOf(source, goesOn, &m_progress);
  if (!sums.empty()) return sums;
  const bool cancelled = m_progress.IsCancelRequested();
  throw RunError(cancelled ? ERR_CANCELLED : ERR_WRITE, cancelled ? messages::kCancelled : messages::kWriteFailed);
}

}  // namespace fusion
