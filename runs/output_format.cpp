#include "runs/output_format.h"

#include <algorithm>

#include "platform/algorithm/string_param_parser.h"
#include "platform/system/process.h"
#include "platform/utility/common_fun.h"
#include "runs/fuse_checks.h"
#include "runs/run_failure.h"
#include "runs/text.h"

namespace fusion {
namespace {

RasterDataFormat FormatByName(const std::string& name) {
  std::vector<std::string> known;
  for (const auto& format : platform::RasterFormats()) {
    const std::string title = CommonFun::U2Utf8(format.name);
    if (Lower(name) == Lower(title) || Lower(name) == Lower(format.driver)) return format.number;
    known.push_back(title);
  }
  throw UsageError("Unknown format '" + name + "'; known are " + Join(known) + ".");
}

std::string KnownExtensions() {
  std::vector<std::string> known;
  for (const auto& format : platform::RasterFormats()) {
    for (const auto& extension : format.extensions) known.push_back("." + CommonFun::U2Utf8(extension));
  }
  return Join(known, " or ");
}

}  // namespace

RasterDataFormat ChooseFormat(const std::string& out, const std::string& name) {
  if (out == "-") throw UsageError("Images are not written to standard output; name a file in the place of '-'.");
  if (platform::OwnsProcess() && out.starts_with("/vsimem/")) {
    throw UsageError(out + " would be gone with this program; name a file on a disk.");
  }
  if (!name.empty()) return FormatByName(name);
  const std::wstring extension = CommonFun::GetExtensionName(CommonFun::Utf82U(out));
  if (const platform::RasterFormat* format = platform::FindRasterFormat(extension)) return format->number;
  if (platform::IsForeignExtension(extension)) {
    throw UsageError(out + ": files of the kind that '." + CommonFun::U2Utf8(extension) +
                     "' stands for are not written; let OUT end in " + KnownExtensions() +
                     ", or name what it is to be (--format).");
  }
  return kFormatGeoTiff;
}

std::vector<std::string> CreationOptions(RasterDataFormat format, std::vector<std::string> options,
                                         const std::string& compress) {
  const platform::RasterFormat* found = platform::FindRasterFormat(format);
  if (!compress.empty()) {
    const std::string driver = found ? found->driver : "";
    if (driver != "GTiff" && driver != "COG") {
      throw UsageError("--compress is for GeoTIFF and COG; what the driver of another format knows is told by --co.");
    }
    for (const std::string& option : options) {
      if (!Lower(option).starts_with("compress=")) continue;
      throw UsageError("--compress " + compress + " and --co " + option + " say the same; give one of them.");
    }
    options.push_back("COMPRESS=" + compress);
  }
  if (!found || options.empty()) return options;
  std::string fault = platform::CreationOptionFault(*found, options);
  if (fault.empty()) return options;
  if (fault.back() != '.') fault += '.';
  throw UsageError((compress.empty() ? "--co: " : "--compress or --co: ") + fault);
}

void CheckFormatHolds(RasterDataFormat format, PixelDataType type, int bandCount, const Method& method) {
  const platform::RasterFormat* found = platform::FindRasterFormat(format);
  if (!found) return;
  const bool holdsType =
      found->types.empty() || std::find(found->types.begin(), found->types.end(), type) != found->types.end();
  const bool holdsBands = !found->isPicture || bandCount == 1 || bandCount == 3;
  if (holdsType && holdsBands) return;

  std::vector<std::string> types;
  for (const PixelDataType held : found->types) types.push_back(TypeName(held));
  std::string text = CommonFun::U2Utf8(found->name) + " holds " +
                     (found->isPicture ? "1 or 3 bands of " : "bands of ") + Join(types, " or ") +
                     ", and this run writes " + std::to_string(bandCount) + " of " + TypeName(type) + ":";
  std::vector<std::string> remedies;
  if (!holdsBands) remedies.emplace_back("choose three bands, as in --bands 3,2,1,");
  if (!holdsType) {
    remedies.push_back(method.Takes(kTakesType)
                           ? "add --type " + Join(types, " or ")
                           : "add --auto-level, with which " + std::string(method.name) + " writes uint8,");
  }
  throw UsageError(text + " " + Join(remedies, " and ") + " or write another format, as in OUT.tif.");
}

}  // namespace fusion
