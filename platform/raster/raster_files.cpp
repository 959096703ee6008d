// Rasters as files: removing them together with their companions.
#include <cpl_vsi.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "platform/raster/companions.h"
#include "platform/raster/gdal_access.h"
#include "platform/raster/raster_source.h"
#include "platform/utility/common_fun.h"

namespace {

using platform::GdalErrors;

/// The files of a raster beside the raster itself. What a driver lists is not taken on trust: for some formats it holds
/// what an image was delivered with and other images share, for a mosaic even its sources. Only names that a raster's
/// own companions have are taken.
std::vector<std::wstring> CompanionsOf(const std::wstring& name) {
  std::vector<std::wstring> companions = platform::FilesOf(name);
  std::erase_if(companions, [&](const std::wstring& file) {
    const bool named = file.size() > name.size() && file.rfind(name + L'.', 0) == 0;
    static constexpr std::array kExtensions = {L".hdr", L".ige", L".rrd", L".aux"};
    const bool usual = std::any_of(kExtensions.begin(), kExtensions.end(), [&](const wchar_t* extension) {
      return file == platform::StemOf(name) + extension;
    });
    return file == name || !(named || usual);
  });
  return companions;
}

}  // namespace

bool CRasterSource::DeleteFileW(const std::wstring& path) {
  if (path.empty()) return true;
  platform::InitialiseGdal();
  const GdalErrors quiet;
  const std::string name = CommonFun::U2Utf8(path);
  for (const std::wstring& companion : CompanionsOf(path)) VSIUnlink(CommonFun::U2Utf8(companion).c_str());
  VSIStatBufL status;
  if (VSIStatL(name.c_str(), &status) != 0) return true;
  return !VSI_ISDIR(status.st_mode) && VSIUnlink(name.c_str()) == 0;
}
