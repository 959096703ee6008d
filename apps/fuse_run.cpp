#include "apps/fuse_run.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "apps/console_progress.h"
#include "apps/exit_status.h"
#include "apps/fuse_inputs.h"
#include "framework/fusion.h"
#include "framework/messages.h"
#include "platform/algorithm/build_raster_overviews.h"
#include "platform/processing/stretch_of_multi_band.h"
#include "platform/raster/pixel_type.h"
#include "platform/utility/common_fun.h"
#include "platform/utility/log.h"

namespace app {
namespace {

namespace messages = fusion::messages;

/// Files that disappear with the object unless released.
class TemporaryFiles {
 public:
  TemporaryFiles() = default;
  ~TemporaryFiles() {
    for (const auto& file : m_files) CRasterSource::DeleteFileW(file);
  }
  TemporaryFiles(const TemporaryFiles&) = delete;
  TemporaryFiles& operator=(const TemporaryFiles&) = delete;

  /// A fresh file beside the path. Throws CommandError.
  std::wstring Make(const std::wstring& beside, const std::wstring& output) {
    std::wstring file = CommonFun::GetTempFilePath(beside);
    if (file.empty()) throw RunError(ERR_CREATE, messages::CreateFailed(output));
    m_files.push_back(file);
    return file;
  }

 private:
  std::vector<std::wstring> m_files;
};

/// Keeps runs from building overviews of their own.
struct NoOverviews {
  NoOverviews() { CBuildRasterOverviews::SetEnabled(false); }
  ~NoOverviews() { CBuildRasterOverviews::SetEnabled(true); }
  NoOverviews(const NoOverviews&) = delete;
  NoOverviews& operator=(const NoOverviews&) = delete;
};

struct Outcome {
  int width = 0;
  int height = 0;
  int bands = 0;
  PixelDataType type = PDT_UNKNOWN;
  std::optional<double> validShare;  ///< of the pixels, where the run masked those without data
};

class FuseRun {
 public:
  explicit FuseRun(const FuseOptions& options)
      : m_options(options),
        m_checked(CheckOptions(options)),
        m_output(CommonFun::Utf82U(options.out)),
        m_progress(options.quiet) {}

  /// Throws CommandError.
  Outcome Run() {
    CheckOutput();
    OpenLog();
    const FuseInputs inputs(m_options, m_checked, m_progress);
    m_masks = inputs.MasksNoData();
    m_type = m_checked.type;
    if (m_type == PDT_UNKNOWN) m_type = DefaultType(inputs.MsType());
    if (m_options.stretch && platform::IsFloatType(m_type)) {
      throw UsageError("--stretch fills the range of an integer type, but the output type is a float type.");
    }

    const std::wstring result = m_files.Make(m_output, m_output);
    const bool matchesItself = m_checked.method->matchesItself && platform::IsFloatType(m_type) && !inputs.IsPart();
    const bool matchedHere = m_checked.matched && !matchesItself;
    if (!matchedHere) {
      Fuse(inputs, result, m_type, m_checked.format, m_checked.matched, nullptr);
    } else {
      fusion::MatchTargets targets;
      inputs.ComputeTargets(targets.means, targets.stdDevs, m_progress);
      if (m_checked.method->isPipeline) {
        const std::wstring raw = m_files.Make(m_output + L".tif", m_output);
        Fuse(inputs, raw, fusion::TypeToMatch(m_type), kFormatGeoTiff, false, nullptr);
        Match(inputs, raw, result, targets);
      } else {
        targets.makeGreen = m_options.makeGreen;
        Fuse(inputs, result, m_type, m_checked.format, false, &targets);
      }
    }
    const Outcome outcome = Describe(result);
    if (m_checked.method->buildsOverviews && !m_options.noOverviews) BuildOverviews(result);
    if (!CRasterSource::RenameFile(result, m_output)) throw RunError(ERR_WRITE, messages::kWriteFailed);
    return outcome;
  }

 private:
  void CheckOutput() const {
    for (const auto& input : {m_options.pan, m_options.ms, m_options.aoi}) {
      if (!input.empty() && CommonFun::IsSameFile(m_output, CommonFun::Utf82U(input))) {
        throw UsageError(m_options.out + " is an input of this run.");
      }
    }
    if (CommonFun::IsFolder(m_output)) throw UsageError(m_options.out + " is a folder.");
    if (!m_options.overwrite && CommonFun::IsExistingFile(m_output)) {
      throw UsageError(m_options.out + " exists; add --overwrite to replace it.");
    }
  }

  void OpenLog() {
    if (m_options.log.empty()) return;
    const std::wstring file = CommonFun::Utf82U(m_options.log);
    for (const auto& other : {m_options.pan, m_options.ms, m_options.aoi, m_options.out}) {
      if (other.empty()) continue;
      const bool sameName = std::filesystem::absolute(CommonFun::ToPath(file)).lexically_normal() ==
                            std::filesystem::absolute(CommonFun::ToPath(CommonFun::Utf82U(other))).lexically_normal();
      if (sameName || CommonFun::IsSameFile(file, CommonFun::Utf82U(other))) {
        throw UsageError("--log " + m_options.log + " is an image of this run.");
      }
    }
    try {
      m_log.emplace(file);
    } catch (const std::exception& e) {
      throw CommandError(kRunFailed, "--log: " + std::string(e.what()));
    }
    CLog::m_pLogger = &*m_log;
  }

  PixelDataType DefaultType(PixelDataType msType) const {
    if (!m_checked.matched && m_checked.method->rawType != PDT_UNKNOWN) return m_checked.method->rawType;
    return msType == PDT_UNKNOWN ? PDT_FLOAT32 : msType;
  }

  void Fuse(const FuseInputs& inputs, const std::wstring& file, PixelDataType type, RasterDataFormat format,
            bool matchesItself, const fusion::MatchTargets* targets) {
    HpfFusionParam param;
    inputs.FillParam(param);
    // The matching behind a pipeline wants the statistics of the whole, and cuts the part out itself.
    if (inputs.IsPart() && m_checked.matched && m_checked.method->isPipeline) {
      param.m_rcProcess = std::exchange(param.m_rcScene, CRect());
    }
    param.m_strAlgName = CommonFun::Utf82U(m_checked.method->name);
    param.m_strOutFile = file;
    param.m_strAoiFile = CommonFun::Utf82U(m_options.aoi);
    param.m_eOutDataType = type;
    param.m_eOutFormat = format != kFormatUnknown ? format : CRasterSource::GetDataFormat(m_output);
    param.m_eResampleType = m_checked.resample;
    for (const int position : m_options.rgb) param.m_vecRGBBands.push_back(position - 1);
    param.m_bSpectralMatch = matchesItself;
    param.m_bMakeGreen = m_options.makeGreen && (matchesItself || m_checked.method->isPipeline);
    param.m_bDataStretch = m_options.autoLevel;

    const std::unique_ptr<CBaseAlgorithm> algorithm = m_checked.method->make(param, m_options, m_progress);
    if (targets) {
      // The matching brings the result to its scale.
      dynamic_cast<CFusion&>(*algorithm).MatchBlocks(*targets);
    } else {
      algorithm->SetStretch(m_options.stretch || StretchesByItself(type));
    }
    // Overviews are built once, on the finished file.
    const NoOverviews pause;
    Carry(*algorithm);
  }

  bool StretchesByItself(PixelDataType type) const {
    const bool wide = !platform::IsFloatType(type) && type != PDT_UINT8;
    if (!m_checked.method->onByteScale || m_options.stretch || !wide) return false;
    if (!m_options.quiet) std::cerr << "The result is stretched to the range of the output type (--stretch).\n";
    return true;
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
    param.m_eOutFormat = m_checked.format != kFormatUnknown ? m_checked.format : CRasterSource::GetDataFormat(m_output);
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
  Outcome Describe(const std::wstring& file) const {
    CRasterSource source;
    if (!source.OpenSimple(file)) throw RunError(ERR_WRITE, messages::kWriteFailed);
    Outcome outcome{source.GetWidth(), source.GetHeight(), source.GetBandCount(), source.GetRasterDataType(), {}};
    if (m_masks && m_options.json) outcome.validShare = ValidShare(source);
    return outcome;
  }

  /// The share of pixels that are not 0, which a run that masks writes where there is no data.
  static double ValidShare(const CRasterSource& source) {
    CRasterBand& band = *source.GetRasterBand(0);
    const int width = source.GetWidth();
    const int height = source.GetHeight();
    constexpr int kRows = 64;
    std::vector<double> values(static_cast<std::size_t>(width) * kRows);
    std::int64_t valid = 0;
    for (int top = 0; top < height; top += kRows) {
      const int rows = std::min(kRows, height - top);
      if (band.ReadBlock(0, top, width, rows, values.data(), width, rows, PDT_FLOAT64) != 0) {
        throw RunError(ERR_READ, messages::kReadFailed);
      }
      valid += std::count_if(values.begin(), values.begin() + std::ptrdiff_t{width} * rows,
                             [](double v) { return v != 0.0; });
    }
    return static_cast<double>(valid) / (static_cast<double>(width) * height);
  }

  void BuildOverviews(const std::wstring& file) {
    CRasterSource source;
    if (!source.OpenSimple(file)) return;
    CBuildRasterOverviews overviews(&source, "AVERAGE", 0, nullptr, &m_progress, L"", false);
    Carry(overviews);
  }

  const FuseOptions& m_options;
  const CheckedOptions m_checked;
  std::wstring m_output;
  ConsoleProgress m_progress;
  PixelDataType m_type = PDT_UNKNOWN;
  bool m_masks = false;
  std::optional<CLog> m_log;
  TemporaryFiles m_files;
};

const char* TypeName(PixelDataType type) {
  static const char* const kNames[] = {"", "uint8", "uint16", "int16", "uint32", "int32", "float32", "float64"};
  return kNames[platform::IsPixelType(type) ? type : 0];
}

}  // namespace

int RunFuse(const FuseOptions& options) {
  const auto start = std::chrono::steady_clock::now();
  Outcome outcome;
  CommandError error(kSuccess, "", ERR_NONE);
  try {
    outcome = FuseRun(options).Run();
  } catch (const CommandError& e) {
    error = e;
  } catch (const std::exception& e) {
    error = {kRunFailed, e.what(), ERR_EXCEPTION};
  }
  CLog::m_pLogger = nullptr;
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  if (options.json) {
    PrintJson({{"method", options.method},
               {"output", options.out},
               {"width", outcome.width},
               {"height", outcome.height},
               {"bands", outcome.bands},
               {"type", TypeName(outcome.type)},
               {"seconds", seconds.count()},
               {"valid_share", outcome.validShare ? nlohmann::ordered_json(*outcome.validShare) : nullptr},
               {"error_type", error.type},
               {"message", error.what()}});
  }
  return error.status == kSuccess ? kSuccess : Report(error);
}

}  // namespace app
