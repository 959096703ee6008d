#include "platform/algorithm/string_param_parser.h"

#include <cpl_error.h>
#include <cpl_string.h>
#include <gdal.h>

#include <algorithm>
#include <array>
#include <set>
#include <sstream>
#include <utility>

#include "platform/raster/gdal_access.h"
#include "platform/utility/common_fun.h"

namespace {

std::wstring Lower(std::wstring name) {
  // The names are plain ASCII, so the locale has no say.
  for (wchar_t& c : name) {
    if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c - L'A' + L'a');
  }
  return name;
}

constexpr std::array<std::pair<const wchar_t*, PixelDataType>, 30> kTypeNames = {{
    {L"uint8", PDT_UINT8},    {L"byte", PDT_UINT8},      {L"uchar", PDT_UINT8},     {L"unsigned char", PDT_UINT8},
    {L"u8", PDT_UINT8},       {L"uint16", PDT_UINT16},   {L"ushort", PDT_UINT16},   {L"unsigned short", PDT_UINT16},
    {L"u16", PDT_UINT16},     {L"int16", PDT_INT16},     {L"short", PDT_INT16},     {L"i16", PDT_INT16},
    {L"uint32", PDT_UINT32},  {L"uint", PDT_UINT32},     {L"ulong", PDT_UINT32},    {L"unsigned int", PDT_UINT32},
    {L"u32", PDT_UINT32},     {L"int32", PDT_INT32},     {L"int", PDT_INT32},       {L"long", PDT_INT32},
    {L"i32", PDT_INT32},      {L"float32", PDT_FLOAT32}, {L"float", PDT_FLOAT32},   {L"real", PDT_FLOAT32},
    {L"single", PDT_FLOAT32}, {L"f32", PDT_FLOAT32},     {L"float64", PDT_FLOAT64}, {L"double", PDT_FLOAT64},
    {L"real64", PDT_FLOAT64}, {L"f64", PDT_FLOAT64},
}};

}  // namespace

namespace platform {

const std::vector<RasterFormat>& RasterFormats() {
  static const std::vector<RasterFormat> formats = [] {
    InitialiseGdal();
    // COG files are called .tif like any other, so that format is chosen by its name alone.
    std::vector<RasterFormat> known = {
        {kFormatGeoTiff, "GTiff", L"GeoTIFF", {L"tif", L"tiff"}, false, {}, false},
        {21, "HFA", L"Erdas Imagine", {L"img"}, false, {}, false},
        {22, "ENVI", L"ENVI", {L"dat", L"envi", L"bsq"}, false, {}, false},
        {23, "PNG", L"PNG", {L"png"}, true, {PDT_UINT8, PDT_UINT16}, true},
        {24, "JPEG", L"JPEG", {L"jpg", L"jpeg"}, true, {PDT_UINT8}, true},
        {25, "JP2OpenJPEG", L"JPEG 2000", {L"jp2"}, true, {PDT_UINT8, PDT_UINT16, PDT_INT16}, false},
        {26, "COG", L"COG", {}, true, {}, false},
    };
    std::erase_if(known, [](const RasterFormat& format) { return !GDALGetDriverByName(format.driver); });
    return known;
  }();
  return formats;
}

const RasterFormat* FindRasterFormat(RasterDataFormat number) {
  const auto& formats = RasterFormats();
  const auto found = std::find_if(formats.begin(), formats.end(),
                                  [number](const RasterFormat& format) { return format.number == number; });
  return found == formats.end() ? nullptr : &*found;
}

const RasterFormat* FindRasterFormat(const std::wstring& extension) {
  std::wstring lower = Lower(extension);
  if (!lower.empty() && lower.front() == L'.') lower.erase(0, 1);
  for (const RasterFormat& format : RasterFormats()) {
    if (std::find(format.extensions.begin(), format.extensions.end(), lower) != format.extensions.end()) {
      return &format;
    }
  }
  return nullptr;
}

std::string CreationOptionFault(const RasterFormat& format, const std::vector<std::string>& options) {
  for (const std::string& option : options) {
    if (option.find('=') == std::string::npos || option.front() == '=') return "'" + option + "' is no NAME=VALUE";
  }
  CPLStringList list;
  for (const std::string& option : options) list.AddString(option.c_str());
  // What it has against them it says as warnings.
  std::string fault;
  const auto keepFirst = [](CPLErr /*kind*/, CPLErrorNum /*number*/, const char* text) {
    auto& kept = *static_cast<std::string*>(CPLGetErrorHandlerUserData());
    if (kept.empty()) kept = text;
  };
  CPLPushErrorHandlerEx(keepFirst, &fault);
  GDALValidateCreationOptions(GDALGetDriverByName(format.driver), list.List());
  CPLPopErrorHandler();
  return fault;
}

bool IsForeignExtension(const std::wstring& extension) {
  static const std::set<std::wstring> foreign = [] {
    InitialiseGdal();
    // Those of drivers that an installation may do without are foreign there, too.
    std::set<std::wstring> found = {L"ecw", L"exr", L"h5",  L"hdf", L"j2k", L"jp2",  L"jpx", L"jxl",
                                    L"kea", L"nc",  L"pdf", L"png", L"sid", L"webp", L"zarr"};
    for (int i = 0; i < GDALGetDriverCount(); ++i) {
      for (const char* item : {GDAL_DMD_EXTENSION, GDAL_DMD_EXTENSIONS}) {
        const char* text = GDALGetMetadataItem(GDALGetDriver(i), item, nullptr);
        std::istringstream names(text ? text : "");
        for (std::string name; names >> name;) found.insert(Lower(CommonFun::Utf82U(name)));
      }
    }
    return found;
  }();
  return foreign.contains(Lower(extension)) && !FindRasterFormat(extension);
}

}  // namespace platform

ResampleType CStringParamParser::GetResampleType(const std::wstring& name) {
  const std::wstring lower = Lower(name);
  if (lower == L"bilinear") return RT_BILINEAR;
  if (lower == L"bicubic" || lower == L"cubic") return RT_BICUBIC;
  return RT_NEAREST;
}

int CStringParamParser::OutDataTypeString2DataTypeIndex(const std::wstring& name) {
  const std::wstring lower = Lower(name);
  for (const auto& [known, type] : kTypeNames) {
    if (lower == known) return type;
  }
  return PDT_UNKNOWN;
}

PixelDataType CStringParamParser::GetOutDataType(int index) {
  return index >= PDT_UINT8 && index <= PDT_FLOAT64 ? static_cast<PixelDataType>(index) : PDT_UNKNOWN;
}

RasterDataFormat CStringParamParser::GetOutDataFormat(const std::wstring& extension) {
  const platform::RasterFormat* format = platform::FindRasterFormat(extension);
  return format ? format->number : kFormatGeoTiff;
}
