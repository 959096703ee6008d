#include "platform/raster/raster_creation.h"

#include <cpl_string.h>
#include <gdal_priv.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <system_error>

#include "platform/algorithm/base_progress.h"
#include "platform/algorithm/messages.h"
#include "platform/raster/gdal_access.h"
#include "platform/raster/pending_output.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/write_guard.h"
#include "platform/system/process.h"
#include "platform/utility/common_fun.h"

namespace platform {
namespace {

/// A reporter behind GDAL's callback.
struct CopyProgress {
  CBaseProgress* reporter;
  int percent = 0;
  bool cancelled = false;

  static int CPL_STDCALL Follow(double share, const char*, void* self) {
    auto& progress = *static_cast<CopyProgress*>(self);
    if (!progress.reporter) return TRUE;
    const int percent = static_cast<int>(share * 100.0);
    if (progress.reporter->IsCancelRequested()) progress.cancelled = true;
    if (percent > progress.percent && !progress.cancelled) {
      progress.percent = percent;
      progress.cancelled = !progress.reporter->Step(percent, messages::kProcessing);
    }
    return !progress.cancelled;
  }
};

}  // namespace

CPLStringList CreationOptions(const char* driver, const char* const* options) {
  CPLStringList result;
  if (EQUAL(driver, "GTiff")) {
    result.SetNameValue("BIGTIFF", "IF_SAFER");
    result.SetNameValue("INTERLEAVE", "BAND");
    // The file is the same, byte for byte.
    if (CodecThreads() > 1 && CSLFetchNameValue(options, "COMPRESS")) {
      result.SetNameValue("NUM_THREADS", std::to_string(CodecThreads()).c_str());
    }
  } else if (EQUAL(driver, "JP2OpenJPEG")) {
    // Lossless, where the driver left to itself would not keep the values.
    result.SetNameValue("QUALITY", "100");
    result.SetNameValue("REVERSIBLE", "YES");
  }
  return CPLStringList(CSLMerge(result.StealList(), const_cast<char**>(options)));
}

bool IsPlain(const CPLStringList& options) {
  static constexpr std::array kOptions = {"COMPRESS", "COMPRESSED", "NBITS", "SPARSE_OK"};
  return std::none_of(kOptions.begin(), kOptions.end(),
                      [&](const char* option) { return options.FetchNameValue(option) != nullptr; });
}

bool CanCopy(GDALDriver* driver, int width, int height, int bandCount, int type) {
  constexpr int kJpegLimit = 65535;
  if (EQUAL(driver->GetDescription(), "JPEG") && std::max(width, height) > kJpegLimit) return false;
  const std::unique_ptr<GDALDataset> sample(GetGDALDriverManager()->GetDriverByName("MEM")->Create(
      "", 64, 64, bandCount, static_cast<GDALDataType>(type), nullptr));
  if (!sample) return false;
  const std::string probe = CPLSPrintf("/vsimem/format_probe_%p", static_cast<void*>(sample.get()));
  const bool works = std::unique_ptr<GDALDataset>(
                         driver->CreateCopy(probe.c_str(), sample.get(), TRUE, nullptr, nullptr, nullptr)) != nullptr;
  CRasterSource::DeleteFileW(CommonFun::Utf82U(probe));
  return works;
}

void RemoveEmptyFile(const std::wstring& path) {
  const std::filesystem::path file = CommonFun::ToPath(path);
  std::error_code error;
  if (!std::filesystem::is_regular_file(std::filesystem::symlink_status(file, error))) return;
  if (std::filesystem::file_size(file, error) == 0 && !error) std::filesystem::remove(file, error);
}

bool CopyToFormat(const RasterFormat& format, const std::wstring& from, const std::wstring& to,
                  const CPLStringList& options, CBaseProgress* progress, bool* cancelled) {
  CopyProgress follower{progress};
  if (progress) {
    progress->Begin({stages::kFormatConversion}, messages::RunTitle(messages::kFormatCopy), 100);
  }
  // Under another name first, so that a failure leaves an older file as it was.
  PendingOutput finished(to);
  if (!finished.Begin()) return false;
  bool ok = false;
  {
    const WriteGuard guard(finished.WorkPath());
    const GdalErrors errors;
    const std::unique_ptr<GDALDataset> source(GDALDataset::Open(CommonFun::U2Utf8(from).c_str(), GDAL_OF_RASTER));
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(format.driver);
    std::unique_ptr<GDALDataset> copy(source ? driver->CreateCopy(guard.Name().c_str(), source.get(), FALSE,
                                                                  options.List(), CopyProgress::Follow, &follower)
                                             : nullptr);
    ok = copy != nullptr;
    copy.reset();
    ok = ok && !errors.Any() && !guard.HasFailed();
  }
  if (cancelled) *cancelled = follower.cancelled;
  return ok && finished.Publish().kind == OutputObstacle::kNone;
}

}  // namespace platform
