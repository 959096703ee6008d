#include "platform/raster/companions.h"

#include <cpl_string.h>
#include <gdal_priv.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <set>
#include <system_error>

#include "platform/raster/gdal_access.h"
#include "platform/utility/common_fun.h"

namespace platform {
namespace {

constexpr std::array kWholeNameSuffixes = {L".ovr",     L".msk", L".aux.xml", L".msk.ovr",
                                           L".ovr.msk", L".hdr", L".rrd",     L".aux"};
constexpr std::array kStemSuffixes = {L".hdr", L".ige", L".rrd", L".aux", L".wld", L".prj"};

/// Drivers look for companions whatever the case of their names.
std::wstring Lower(std::wstring name) {
  for (wchar_t& c : name) {
    if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c - L'A' + L'a');
  }
  return name;
}

template <std::size_t n>
bool IsOneOf(const std::wstring& name, const std::wstring& start, const std::array<const wchar_t*, n>& ends) {
  return std::any_of(ends.begin(), ends.end(), [&](const wchar_t* end) { return name == start + end; });
}

/// .tfw and .tifw of a .tif.
bool IsWorldFileName(const std::wstring& name, const std::wstring& of) {
  const std::wstring extension = CommonFun::GetExtensionName(of);
  if (extension.empty()) return false;
  const std::wstring stem = StemOf(of) + L'.';
  return name == stem + extension + L'w' || name == stem + extension.front() + extension.back() + L'w';
}

bool IsOfWholeName(const std::wstring& name, const std::wstring& of) {
  // A name without extension is its own stem, and what is ambiguous is not its own.
  if (StemOf(of) == of && IsOneOf(name, of, kStemSuffixes)) return false;
  return IsOneOf(name, of, kWholeNameSuffixes);
}

bool IsOfStem(const std::wstring& name, const std::wstring& of) {
  return IsOneOf(name, StemOf(of), kStemSuffixes) || IsWorldFileName(name, of);
}

/// The file that a name of one of GDAL's file systems leads into: an archive, say. Empty where there is none.
std::wstring FileInside(std::wstring name) {
  if (name.rfind(L"/vsi", 0) != 0) return {};
  while (name.rfind(L"/vsi", 0) == 0) {
    const std::size_t end = name.find(L'/', 1);
    if (end == std::wstring::npos) return {};
    name.erase(0, end + 1);
    if (!name.empty() && name.front() == L'{') name.erase(0, 1);
  }
  while (!name.empty() && !IsRegularFile(name)) {
    const std::size_t end = name.find_last_of(L"/}");
    name.erase(end == std::wstring::npos ? 0 : end);
  }
  return name;
}

bool LiesIn(const std::wstring& file, const std::wstring& folder) {
  std::error_code error;
  const auto place = std::filesystem::weakly_canonical(CommonFun::ToPath(file), error).parent_path();
  // A name that ends in a slash is equivalent to no other on some systems.
  return std::filesystem::equivalent(place, CommonFun::ToPath(folder + L'.'), error);
}

bool IsHeader(const std::wstring& file) { return Lower(CommonFun::GetExtensionName(file)) == L"hdr"; }

/// A header makes every file of its stem look like an image, a text too. One of bare pixels is large enough for them.
bool HoldsItsPixels(const std::wstring& image) {
  const GdalErrors quiet;
  const std::string name = CommonFun::U2Utf8(image);
  VSIStatBufL status;
  const std::unique_ptr<GDALDataset> dataset(OpenNamed(name, GDAL_OF_RASTER));
  if (!dataset || VSIStatL(name.c_str(), &status) != 0) return false;
  if (dataset->GetMetadataItem("COMPRESSION", "IMAGE_STRUCTURE")) return true;
  double bytes = 0.0;
  for (GDALRasterBand* band : dataset->GetBands()) {
    bytes +=
        static_cast<double>(band->GetXSize()) * band->GetYSize() * GDALGetDataTypeSizeBytes(band->GetRasterDataType());
  }
  return static_cast<double>(status.st_size) >= bytes;
}

bool IsMosaic(const std::wstring& file) {
  GDALDriverH driver = GDALIdentifyDriver(CommonFun::U2Utf8(file).c_str(), nullptr);
  return driver && EQUAL(GDALGetDriverShortName(driver), "VRT");
}

}  // namespace

std::wstring FolderOf(const std::wstring& path) {
  const std::size_t slash = path.find_last_of(L"/\\");
  return slash == std::wstring::npos ? std::wstring() : path.substr(0, slash + 1);
}

std::wstring StemOf(const std::wstring& path) {
  const std::size_t extension = CommonFun::GetExtensionName(path).size();
  return extension == 0 ? path : path.substr(0, path.size() - extension - 1);
}

bool IsRegularFile(const std::wstring& path) {
  VSIStatBufL status;
  return VSIStatL(CommonFun::U2Utf8(path).c_str(), &status) == 0 && VSI_ISREG(status.st_mode);
}

std::vector<std::wstring> FilesOf(const std::wstring& image) {
  InitialiseGdal();
  const GdalErrors quiet;
  const std::unique_ptr<GDALDataset> dataset(OpenNamed(CommonFun::U2Utf8(image), GDAL_OF_RASTER | GDAL_OF_VECTOR));
  std::vector<std::wstring> files;
  const CPLStringList list(dataset ? dataset->GetFileList() : nullptr);
  for (int i = 0; i < list.size(); ++i) files.push_back(CommonFun::Utf82U(list[i]));
  return files;
}

std::vector<std::wstring> FilesBehind(const std::wstring& input, const std::wstring& folder) {
  InitialiseGdal();
  const GdalErrors quiet;
  std::set<std::wstring> files = {input};
  std::vector<std::wstring> toOpen = {input};
  while (!toOpen.empty()) {
    const std::wstring next = toOpen.back();
    toOpen.pop_back();
    if (const std::wstring archive = FileInside(next); !archive.empty()) files.insert(archive);
    for (const std::wstring& file : FilesOf(next)) {
      // A companion of a source can only meet the output where both lie in one folder.
      if (files.insert(file).second && (LiesIn(file, folder) || IsMosaic(file))) toOpen.push_back(file);
    }
  }
  return {files.begin(), files.end()};
}

Neighbours NeighboursOf(const std::wstring& path) {
  const std::wstring folder = FolderOf(path);
  const std::wstring whole = Lower(path.substr(folder.size()));
  const std::wstring stem = StemOf(whole);
  const CPLStringList names(VSIReadDir(folder.empty() ? "." : CommonFun::U2Utf8(folder).c_str()));
  Neighbours found;
  for (int i = 0; i < names.size(); ++i) {
    const std::wstring name = CommonFun::Utf82U(names[i]);
    const std::wstring lower = Lower(name);
    if (folder + name == path) continue;
    if (IsOfWholeName(lower, whole)) {
      found.own.push_back(folder + name);
    } else if (IsOfStem(lower, whole)) {
      found.ofStem.push_back(folder + name);
    } else if ((lower == stem || StemOf(lower) == stem) && IsRegularFile(folder + name)) {
      found.others.push_back(folder + name);
    }
  }
  return found;
}

bool Reads(const std::wstring& image, const std::wstring& file) {
  const bool header = IsHeader(file);
  if (header && !HoldsItsPixels(image)) return false;
  const std::vector<std::wstring> parts = FilesOf(image);
  return std::any_of(parts.begin(), parts.end(), [&](const std::wstring& part) {
    // A header of its stem would be read in the place of the one that an image has under another name.
    return CommonFun::IsSameFile(part, file) || (header && IsHeader(part));
  });
}

bool IsCompanionName(const std::wstring& file, const std::wstring& of) {
  return IsOfWholeName(Lower(file), Lower(of)) || IsOfStem(Lower(file), Lower(of));
}

}  // namespace platform
