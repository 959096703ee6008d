#include "platform/algorithm/build_raster_overviews.h"

#include <cpl_conv.h>
#include <cpl_string.h>
#include <cpl_vsi.h>
#include <gdal.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <new>
#include <vector>

#include "platform/algorithm/messages.h"
#include "platform/raster/gdal_access.h"
#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_fault.h"
#include "platform/raster/write_guard.h"
#include "platform/utility/common_fun.h"

namespace messages = platform::messages;

namespace {

std::atomic<bool> g_enabled{true};

/// Powers of two until the smaller side is below 256.
std::vector<int> DefaultLevels(int width, int height) {
  constexpr int kSmallEnough = 256;
  std::vector<int> levels;
  int factor = 1;
  for (int side = std::min(width, height); side >= kSmallEnough; side = (side + 1) / 2) levels.push_back(factor *= 2);
  return levels;
}

/// Overviews inside the file came with its format (cloud-optimised and JPEG files have them) and exclude external ones.
bool HasInternalOverviews(GDALDatasetH dataset) {
  const char* layout = GDALGetMetadataItem(dataset, "LAYOUT", "IMAGE_STRUCTURE");
  if (layout && EQUAL(layout, "COG")) return true;  // small ones need none
  if (GDALGetOverviewCount(GDALGetRasterBand(dataset, 1)) == 0) return false;
  const CPLStringList files(GDALGetFileList(dataset));
  return std::none_of(files.List(), files.List() + files.size(),
                      [](const char* file) { return EQUAL(CPLGetExtension(file), "ovr"); });
}

// Overviews are a by-product of a run, so their builder asks whether to go on and steps nothing.
int CPL_STDCALL GoesOn(double, const char*, void* progress) {
  const auto* reporter = static_cast<const CBaseProgress*>(progress);
  return !reporter || !reporter->IsCancelRequested();
}

bool HasRoom(const CRasterSource& source, const std::vector<int>& levels) {
  double bytes = 0.0;
  for (const int factor : levels) {
    bytes += std::ceil(source.GetWidth() / static_cast<double>(factor)) *
             std::ceil(source.GetHeight() / static_cast<double>(factor)) * source.GetBandCount() *
             platform::PixelSize(source.GetRasterDataType());
  }
  return platform::HasRoomFor(source.GetPath(), bytes);
}

bool BuildLevels(GDALDatasetH dataset, const std::string& resampling, std::vector<int>& levels,
                 CBaseProgress* progress) {
  const platform::GdalErrors errors;
  if (GDALBuildOverviews(dataset, resampling.c_str(), static_cast<int>(levels.size()), levels.data(), 0, nullptr,
                         GoesOn, progress) == CE_None) {
    return true;
  }
  // Half-built levels would pass for good ones; the dataset lets go of its overviews before the file goes.
  static_cast<void>(GDALBuildOverviews(dataset, "NONE", 0, nullptr, 0, nullptr, nullptr, nullptr) == CE_None);
  if (errors.OutOfMemory()) throw std::bad_alloc();
  return false;
}

/// A raster that is only read lies in its file as it is. A dataset of our own writes through a guard, and closing it
/// shows whether all has been written.
bool BuildBeside(const CRasterSource& source, const std::string& resampling, std::vector<int>& levels,
                 CBaseProgress* progress) {
  const platform::WriteGuard guard(source.GetPath());
  const platform::GdalErrors quiet;
  GDALDatasetH dataset = GDALOpen(guard.Name().c_str(), GA_ReadOnly);
  if (!dataset) return false;
  const bool built = BuildLevels(dataset, resampling, levels, progress);
  GDALClose(dataset);
  return built && !guard.HasFailed();
}

}  // namespace

// The signature is published.
// NOLINTBEGIN(performance-unnecessary-value-param)
CBuildRasterOverviews::CBuildRasterOverviews(CRasterSource* source, const char* resampling, int levelCount, int* levels,
                                             CBaseProgress* progress, std::wstring /*text*/, bool /*flag*/)
    : m_pSource(source), m_strResampling(resampling ? resampling : ""), m_nLevelCount(levelCount), m_pLevels(levels) {
  SetProgress(progress);
}
// NOLINTEND(performance-unnecessary-value-param)

void CBuildRasterOverviews::Process() {
  ClearError();
  if (!IsEnabled() || !m_buildsOverviews) return;
  Guard([this] { Build(); });
}

void CBuildRasterOverviews::Build() {
  if (!m_pSource || !m_pSource->IsOpen() || m_pSource->GetBandCount() == 0) {
    Fail(ERR_OPEN, messages::OpenFailed(m_pSource ? m_pSource->GetPath() : std::wstring()));
    return;
  }
  GDALDatasetH dataset = m_pSource->NativeHandle();
  std::vector<int> levels;
  if (m_nLevelCount > 0 && m_pLevels) {
    levels.assign(m_pLevels, m_pLevels + m_nLevelCount);
  } else {
    levels = DefaultLevels(m_pSource->GetWidth(), m_pSource->GetHeight());
  }
  if (levels.empty() || HasInternalOverviews(dataset)) return;

  // External files even where the raster is open for updating. No GDAL_NUM_THREADS: the workers' readers complain on
  // the terminal about files of more than three bands, out of reach of the error handler below.
  const CPLConfigOptionSetter external("TIFF_USE_OVR", "YES", false);
  const CPLConfigOptionSetter big("BIGTIFF_OVERVIEW", "IF_SAFER", false);
  const bool built = !platform::RasterFails(platform::RasterOperation::kWrite, m_pSource->GetPath() + L".ovr") &&
                     HasRoom(*m_pSource, levels) &&
                     (m_pSource->IsWritable() ? BuildLevels(dataset, m_strResampling, levels, m_pProgress)
                                              : BuildBeside(*m_pSource, m_strResampling, levels, m_pProgress));
  if (built) return;
  VSIUnlink(CommonFun::U2Utf8(m_pSource->GetPath() + L".ovr").c_str());
  if (m_pProgress && m_pProgress->IsCancelRequested()) {
    m_nLastErrorType = ERR_CANCELLED;
    return;
  }
  Fail(ERR_WRITE, messages::kWriteFailed);
}

void CBuildRasterOverviews::SetEnabled(bool enabled) { g_enabled.store(enabled); }
bool CBuildRasterOverviews::IsEnabled() { return g_enabled.load(); }
