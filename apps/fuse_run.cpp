#include "apps/fuse_run.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

#include "apps/console_progress.h"
#include "apps/exit_status.h"
#include "apps/fuse_inputs.h"
#include "apps/fuse_report.h"
#include "apps/output_file.h"
#include "apps/output_format.h"
#include "apps/sample_share.h"
#include "framework/fusion.h"
#include "framework/messages.h"
#include "platform/algorithm/build_raster_overviews.h"
#include "platform/processing/stretch_of_multi_band.h"
#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_algorithm.h"
#include "platform/raster/write_guard.h"
#include "platform/utility/common_fun.h"

namespace app {
namespace {

namespace messages = fusion::messages;

/// Keeps runs from building overviews of their own.
struct NoOverviews {
  NoOverviews() { CBuildRasterOverviews::SetEnabled(false); }
  ~NoOverviews() { CBuildRasterOverviews::SetEnabled(true); }
  NoOverviews(const NoOverviews&) = delete;
  NoOverviews& operator=(const NoOverviews&) = delete;
};

class FuseRun {
 public:
  FuseRun(const FuseOptions& options, FuseReport& report)
      : m_options(options),
        m_report(report),
        m_checked(CheckOptions(options)),
        m_output(CommonFun::Utf82U(options.out)),
        m_progress(options.quiet),
        m_pending(m_output, options.overwrite, InputFiles(options)) {}

  /// Throws CommandError.
  FuseOutcome Run() {
    try {
      return FuseAndPublish();
    } catch (const CommandError& error) {
      // What has failed may have worked on a file in the output's stead.
      const std::wstring text = m_pending.InTermsOfOutput(CommonFun::Utf82U(error.what()));
      throw CommandError(error.status, CommonFun::U2Utf8(text), error.type);
    }
  }

 private:
  static std::vector<std::wstring> InputFiles(const FuseOptions& options) {
    std::vector<std::wstring> files;
    for (const auto& file : {options.pan, options.ms, options.aoi}) {
      if (!file.empty()) files.push_back(CommonFun::Utf82U(file));
    }
    return files;
  }

  FuseOutcome FuseAndPublish() {
    ThrowObstacle(m_pending.Foresee(m_checked.format), m_output);
    if (!m_options.log.empty() && m_pending.Concerns(CommonFun::Utf82U(m_options.log))) {
      throw UsageError("--log " + m_options.log + " is a file of this run's images.");
    }
    m_report.OpenLog();
    const FuseInputs inputs(m_options, m_checked, m_report.RunNotices(), m_progress);
    m_masks = inputs.MasksNoData();
    m_type = m_checked.type;
    if (m_type == PDT_UNKNOWN) m_type = DefaultType(inputs.MsType());
    if (m_options.stretch && platform::IsFloatType(m_type)) {
      throw UsageError("--stretch fills the range of an integer type, but the output type is a float type.");
    }

    CheckFormatHolds(m_checked.format, m_type, static_cast<int>(inputs.Bands().size()), *m_checked.method);
    Describe(inputs.Description());
    if (!m_pending.Begin()) throw RunError(ERR_CREATE, messages::CreateFailed(m_output));
    const std::wstring result = m_pending.WorkPath();
    const bool matchesItself = m_checked.method->matchesItself && platform::IsFloatType(m_type) && !inputs.IsPart();
    const bool matchedHere = m_checked.matched && !matchesItself;
    if (!matchedHere) {
      Fuse(inputs, result, m_type, m_checked.format, m_checked.matched, nullptr);
    } else {
      fusion::MatchTargets targets;
      inputs.ComputeTargets(targets.means, targets.stdDevs, m_progress);
      if (m_checked.method->isPipeline) {
        const std::wstring raw = CommonFun::GetTempFilePath(result);
        Fuse(inputs, raw, fusion::TypeToMatch(m_type), kFormatGeoTiff, false, nullptr);
        Match(inputs, raw, result, targets);
        CRasterSource::DeleteFileW(raw);
      } else {
        targets.makeGreen = m_options.makeGreen;
        Fuse(inputs, result, m_type, m_checked.format, false, &targets);
      }
    }
    const FuseOutcome outcome = Look(result, inputs.MsType());
    if (m_checked.method->buildsOverviews && !m_options.noOverviews) BuildOverviews(result);
    ThrowObstacle(m_pending.Publish(), m_output);
    return outcome;
  }

  /// What the multispectral image says of its bands goes to the output where it holds there, too.
  void Describe(platform::RasterDescription description) {
    const bool onBandScale = m_checked.matched || (m_checked.method->onBandScale && !m_options.stretch);
    if (!onBandScale || m_options.autoLevel) description.ForgetValues();
    m_description = std::make_shared<const platform::RasterDescription>(std::move(description));
  }

  PixelDataType DefaultType(PixelDataType msType) const {
    if (!m_checked.method->Takes(kTakesType)) {
      // The high-pass pipeline has its own mind.
      if (m_options.autoLevel) return PDT_UINT8;
      if (m_options.makeGreen) return PDT_FLOAT32;
    }
    if (!m_checked.matched && m_checked.method->rawType != PDT_UNKNOWN) return m_checked.method->rawType;
    return msType == PDT_UNKNOWN ? PDT_FLOAT32 : msType;
  }

  void Fuse(const FuseInputs& inputs, const std::wstring& file, PixelDataType type, RasterDataFormat format,
            bool matchesItself, const fusion::MatchTargets* targets) {
    HpfFusionParam param;
    inputs.FillParam(param);
    // The matching behind a pipeline wants the statistics of the whole, and cuts the part out itself.
    const bool comesMatching = m_checked.matched && m_checked.method->isPipeline;
    if (inputs.IsPart() && comesMatching) param.m_rcProcess = std::exchange(param.m_rcScene, CRect());
    param.m_strAlgName = CommonFun::Utf82U(m_checked.method->name);
    param.m_strOutFile = file;
    param.m_strAoiFile = CommonFun::Utf82U(m_options.aoi);
    param.m_eOutDataType = type;
    param.m_eOutFormat = format;
    if (!comesMatching) param.m_pDescription = m_description;
    param.m_eResampleType = m_checked.resample;
    for (const int position : m_options.rgb) param.m_vecRGBBands.push_back(position - 1);
    param.m_bSpectralMatch = matchesItself;
    param.m_bMakeGreen = m_options.makeGreen && (matchesItself || m_checked.method->isPipeline);
    param.m_bDataStretch = m_options.autoLevel;

    const std::unique_ptr<CBaseAlgorithm> algorithm = m_checked.method->make(param, m_options, m_progress);
    if (targets) {
      // The matching brings the result to its scale.
      dynamic_cast<CFusion&>(*algorithm).MatchBlocks(*targets);
    } else if (m_options.stretch) {
      dynamic_cast<CFusion&>(*algorithm).StretchOwnRange();
    } else if (IsOnByteScale(type)) {
      algorithm->SetStretch(true);
      m_report.RunNotices().Add("The result, on the scale of a byte, is stretched to the range of the output type.");
    }
    // Overviews are built once, on the finished file.
    const NoOverviews pause;
    Carry(*algorithm);
    if (m_checked.method->remark) m_checked.method->remark(*algorithm, inputs.Bands(), m_report.RunNotices());
  }

  /// Whether the raw result would look black in the type.
  bool IsOnByteScale(PixelDataType type) const {
    return m_checked.method->onByteScale && !platform::IsFloatType(type) && type != PDT_UINT8;
  }

  /// The matching as a stage of its own, behind a pipeline of stages.
  void Match(const FuseInputs& inputs, const std::wstring& raw, const std::wstring& result,
             const fusion::MatchTargets& targets) {
    CStretchAlgorithmParam param;
    param.m_strAlgName = messages::kSpectralMatching;
    param.m_strInFile = raw;
    param.m_strOutFile = result;
    param.m_strAoiFile = CommonFun::Utf82U(m_options.aoi);
    param.m_bMaskNoData = m_masks;
    param.m_eOutDataType = m_type;
    param.m_eOutFormat = m_checked.format;
    param.m_pDescription = m_description;
    param.m_rcProcess = inputs.PartOf(raw);
    param.m_pMeans = targets.means.data();
    param.m_pStdDevs = targets.stdDevs.data();
    CStretchOfMultiBand matching(&param);
    Carry(matching);
  }

  /// Runs an algorithm and throws its failure.
  void Carry(CBaseAlgorithm& algorithm) {
    algorithm.SetProgress(&m_progress);
    algorithm.SetOverlappedIo(true);
    algorithm.Process();
    m_progress.Finish();
    if (algorithm.GetLastErrorType() != ERR_NONE || !algorithm.GetLastErrorMessage().empty()) {
      throw RunError(algorithm.GetLastErrorType(), algorithm.GetLastErrorMessage());
    }
    if (m_progress.IsCancelRequested()) throw RunError(ERR_CANCELLED, messages::kCancelled);
  }

  /// A run that reports success but left no readable raster has failed.
  FuseOutcome Look(const std::wstring& file, PixelDataType msType) const {
    CRasterSource source;
    if (!source.OpenSimple(file)) throw RunError(ERR_WRITE, messages::kWriteFailed);
    FuseOutcome outcome{source.GetWidth(), source.GetHeight(), source.GetBandCount(), source.GetRasterDataType(), {}};
    // A run that masks writes 0 where there is no data, and nowhere else.
    if (m_masks && m_options.json) outcome.validShare = SampleShare(source, 1, [](double v) { return v != 0.0; });
    if (MayExceedType(msType)) TellWhatWasCut(source);
    return outcome;
  }

  /// Whether values of the result may lie far beyond those of an integer output type.
  bool MayExceedType(PixelDataType msType) const {
    if (platform::IsFloatType(m_type) || m_options.stretch || m_options.autoLevel) return false;
    const bool onBandScale = m_checked.matched || m_checked.method->onBandScale;
    const bool onByteScale = !m_checked.matched && m_checked.method->onByteScale;
    return !onByteScale && (!onBandScale || LargestOf(m_type) < LargestOf(msType));
  }

  static double LargestOf(PixelDataType type) {
    double smallest = 0.0;
    double largest = 0.0;
    CRasterAlgorithm::GetMaxMinVal(type, largest, smallest);
    return largest;
  }

  void TellWhatWasCut(const CRasterSource& output) const {
    constexpr double kWorthAWord = 0.01;
    const double largest = LargestOf(m_type);
    const double share = SampleShare(output, output.GetBandCount(), [=](double v) { return v >= largest; });
    if (share < kWorthAWord) return;
    std::string remedy = m_checked.matched ? "--spectral-match off --stretch" : "--stretch";
    if (!m_checked.method->Takes(kTakesStretch)) remedy = "--auto-level";
    m_report.RunNotices().Add(std::to_string(std::lround(share * 100.0)) + " % of the samples do not fit " +
                              TypeName(m_type) + " and are cut to its largest value; add " + remedy +
                              ", or a wider --type.");
  }

  void BuildOverviews(const std::wstring& file) {
    CRasterSource source;
    if (!source.OpenSimple(file)) return;
    CBuildRasterOverviews overviews(&source, "AVERAGE", 0, nullptr, &m_progress, L"", false);
    Carry(overviews);
  }

  const FuseOptions& m_options;
  FuseReport& m_report;
  const CheckedOptions m_checked;
  std::wstring m_output;
  ConsoleProgress m_progress;
  platform::PendingOutput m_pending;
  PixelDataType m_type = PDT_UNKNOWN;
  bool m_masks = false;
  std::shared_ptr<const platform::RasterDescription> m_description;
};

}  // namespace

int RunFuse(const FuseOptions& options) {
  platform::ClearWriteError();
  FuseReport report(options);
  try {
    return report.Succeed(FuseRun(options, report).Run());
  } catch (const CommandError& error) {
    return report.Fail(error);
  } catch (const std::exception& e) {
    return report.Fail(ExceptionError(e));
  }
}

int RefuseFuse(const FuseOptions& options, const CommandError& error) { return FuseReport(options).Fail(error); }

}  // namespace app
