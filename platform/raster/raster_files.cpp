// Rasters as files: removing and renaming them together with their companions.
#include <cpl_string.h>
#include <gdal_priv.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "platform/raster/gdal_access.h"
#include "platform/raster/raster_source.h"
#include "platform/utility/common_fun.h"

namespace {

using platform::GdalErrors;

/// The path without its extension.
std::string StemOf(const std::string& name) {
  const std::size_t extension = CommonFun::U2Utf8(CommonFun::GetExtensionName(CommonFun::Utf82U(name))).size();
  return extension == 0 ? name : name.substr(0, name.size() - extension - 1);
}

/// The files of a raster beside the raster itself. What a driver lists is not taken on trust: for some formats it holds
/// what an image was delivered with and other images share, for a mosaic even its sources. Only names that a raster's
/// own companions have are taken.
std::vector<std::string> CompanionsOf(const std::string& name) {
  std::vector<std::string> companions;
  GDALDataset* dataset = GDALDataset::Open(name.c_str(), GDAL_OF_RASTER);
  if (!dataset) return companions;
  char** list = dataset->GetFileList();
  GDALClose(dataset);
  const std::string stem = StemOf(name);
  for (char** entry = list; entry && *entry; ++entry) {
    const std::string file = *entry;
    const bool named = file.size() > name.size() && file.compare(0, name.size(), name) == 0 && file[name.size()] == '.';
    static constexpr std::array kExtensions = {".hdr", ".ige", ".rrd", ".aux"};
    const bool usual = std::any_of(kExtensions.begin(), kExtensions.end(),
                                   [&](const char* extension) { return file == stem + extension; });
    if ((named || usual) && file != name) companions.push_back(file);
  }
  CSLDestroy(list);
  return companions;
}

/// Replaces what has the new name.
bool RenameOne(const std::string& from, const std::string& to) {
  if (from.rfind("/vsi", 0) == 0) return VSIRename(from.c_str(), to.c_str()) == 0;
  std::error_code error;
  std::filesystem::rename(CommonFun::ToPath(CommonFun::Utf82U(from)), CommonFun::ToPath(CommonFun::Utf82U(to)), error);
  return !error;
}

/// An Imagine file keeps the names of its companions inside; its driver rewrites them.
bool KeepsNamesInside(const std::string& name) {
  GDALDriverH driver = GDALIdentifyDriver(name.c_str(), nullptr);
  return driver && std::string(GDALGetDriverShortName(driver)) == "HFA";
}

}  // namespace

bool CRasterSource::DeleteFileW(const std::wstring& path) {
  if (path.empty()) return true;
  platform::InitialiseGdal();
  const GdalErrors quiet;
  const std::string name = CommonFun::U2Utf8(path);
  for (const std::string& companion : CompanionsOf(name)) VSIUnlink(companion.c_str());
  VSIStatBufL status;
  if (VSIStatL(name.c_str(), &status) != 0) return true;
  return !VSI_ISDIR(status.st_mode) && VSIUnlink(name.c_str()) == 0;
}

bool CRasterSource::RenameFile(const std::wstring& from, const std::wstring& to) {
  platform::InitialiseGdal();
  const GdalErrors quiet;
  const std::string source = CommonFun::U2Utf8(from);
  const std::string target = CommonFun::U2Utf8(to);
  const std::vector<std::string> replaced = CompanionsOf(target);
  const std::vector<std::string> companions = CompanionsOf(source);
  std::vector<std::string> present;
  for (const std::string& file : companions) {
    const bool named = file.compare(0, source.size(), source) == 0;
    present.push_back(named ? target + file.substr(source.size())
                            : StemOf(target) + file.substr(StemOf(source).size()));
  }
  bool ok = true;
  if (!companions.empty() && KeepsNamesInside(source)) {
    GDALDriverH driver = GDALIdentifyDriver(source.c_str(), nullptr);
    if (GDALDriver::FromHandle(driver)->Rename(target.c_str(), source.c_str()) != CE_None) return false;
  } else {
    if (!RenameOne(source, target)) return false;
    for (std::size_t i = 0; i < companions.size(); ++i) ok = RenameOne(companions[i], present[i]) && ok;
  }
  // Companions of the old raster that the new one has not replaced would speak of other pixels.
  for (const std::string& file : replaced) {
    if (std::find(present.begin(), present.end(), file) == present.end()) VSIUnlink(file.c_str());
  }
  return ok;
}
