#include "apps/fuse_options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <functional>

#include "apps/exit_status.h"
#include "apps/output_format.h"
#include "apps/text.h"
#include "platform/raster/pixel_type.h"
#include "platform/utility/common_fun.h"

namespace app {

PixelDataType ParsePixelType(const std::string& name) {
  const PixelDataType type =
      CStringParamParser::GetOutDataType(CStringParamParser::OutDataTypeString2DataTypeIndex(CommonFun::Utf82U(name)));
  if (type == PDT_UNKNOWN) {
    throw UsageError("Unknown type '" + name +
                     "'; known are uint8, uint16, int16, uint32, int32, float32 and float64.");
  }
  return type;
}

std::string TypeName(PixelDataType type) {
  static const char* const kNames[] = {"", "uint8", "uint16", "int16", "uint32", "int32", "float32", "float64"};
  return kNames[platform::IsPixelType(type) ? type : 0];
}

namespace {

/// What the commas separate. An option given twice arrives as two lines.
std::vector<std::string> SplitList(const std::string& text) {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (c == ',' || c == '\n') {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

int WholeNumber(const std::string& option, const std::string& text) {
  int number = 0;
  const char* end = text.data() + text.size();
  const auto [read, error] = std::from_chars(text.data(), end, number);
  if (text.empty() || error != std::errc() || read != end) {
    throw CLI::ValidationError(option, "'" + text + "' is no whole number; a list looks like 1,2,3");
  }
  return number;
}

/// The parser's own lists would take the next argument where they find nothing in theirs.
void AddText(CLI::App& command, const std::string& name, const std::string& description, const char* shape,
             const std::function<void(const std::string& text)>& take) {
  command.add_option_function<std::string>(name, take, description)->join()->type_name(shape);
}

/// The options that were given, as they may be given again.
std::string Given(const CLI::App& command) {
  std::string text;
  for (const CLI::Option* option : command.get_options()) {
    if (option->count() == 0 || option->get_positional()) continue;
    if (!text.empty()) text += ' ';
    text += option->get_name();
    if (option->get_items_expected_max() == 0) continue;
    for (const std::string& value : option->results()) text += ' ' + value;
  }
  return text;
}

}  // namespace

void AddList(CLI::App& command, const std::string& name, std::vector<int>& values, const std::string& description) {
  AddText(command, name, description, "N,N,...", [name, &values](const std::string& text) {
    values.clear();
    for (const std::string& part : SplitList(text)) values.push_back(WholeNumber(name, part));
  });
}

void AddList(CLI::App& command, const std::string& name, std::vector<std::string>& words,
             const std::string& description) {
  AddText(command, name, description, "NAME,...", [&words](const std::string& text) { words = SplitList(text); });
}

void AddFuseOptions(CLI::App& command, FuseOptions& o) {
  command.add_option("PAN", o.pan, "Panchromatic image")->required();
  command.add_option("MS", o.ms, "Multispectral image")->required();
  command.add_option("OUT", o.out, "Fused image to write")->required();
  o.method = DefaultMethod().name;
  command.add_option("--method", o.method, "Fusion method, see 'fusion methods'")->capture_default_str();
  command.add_option("--resample", o.resample, "nearest, bilinear or bicubic (default: bicubic)");
  command.add_option("--type", o.type,
                     "uint8, uint16, int16, uint32, int32, float32 or float64 (default: the multispectral image's)");
  AddList(command, "--bands", o.bands, "Multispectral bands, counted from 1 (default: all)");
  command.add_option("--pan-band", o.panBand, "Band of the pan image, counted from 1")->capture_default_str();
  AddList(command, "--rgb", o.rgb,
          "ihs: which of the chosen bands are red, green and blue (default: 1,2,3; of four bands 3,2,1)");
  AddList(command, "--window", o.window, "XOFF,YOFF,XSIZE,YSIZE in pan pixels");
  command
      .add_option(
          "--statistics", o.statistics,
          "scene or window: what a window's statistics are taken from; with scene it is a crop of the whole result")
      ->capture_default_str();
  command.add_option("--aoi", o.aoi, "Vector file: fuse only inside its polygons");
  command
      .add_option("--spectral-match", o.spectralMatch,
                  "auto, on or off: bring the fused bands to the multispectral means and deviations")
      ->capture_default_str();
  command
      .add_option("--nodata-mask", o.noDataMask,
                  "auto, on or off: take pixels without data (no-data value, NaN, mask, alpha) for missing")
      ->capture_default_str();
  command.add_option("--nodata", o.noData, "No-data value of inputs that declare none");
  command.add_flag("--make-green", o.makeGreen, "Mix a tenth of near infrared into green (bands B, G, R, NIR)");
  command.add_flag("--auto-level", o.autoLevel, "hpf, sharpen: end with an automatic level adjustment");
  command.add_flag("--stretch", o.stretch, "Stretch the result to the range of an integer type");
  command.add_option("--kernel-size", o.kernelSize, "hpf: odd size of the high-pass kernel, 3 to 31");
  command.add_option("--second-kernel-size", o.secondKernelSize, "hpf: size of a second kernel");
  command.add_option("--detail-weight", o.detailWeight, "hpf: weight of the detail (default: 0.5)");
  command.add_option("--second-detail-weight", o.secondDetailWeight, "hpf: weight of the second detail");
  command.add_option("--bayes-weight", o.bayesWeight, "bayesian: weight of pan, between 0 and 1 (default: 0.5)");
  command.add_flag("--same-extent", o.sameExtent, "Take both images as covering the same ground");
  command.add_flag("--no-overviews", o.noOverviews, "Build no overviews");
  command.add_option("--format", o.format, "Output format (default: by the extension of OUT)");
  command.add_flag("--overwrite", o.overwrite, "Replace an existing OUT");
  command.add_flag("--quiet", o.quiet, "No progress and no notices");
  command.add_option("--log", o.log, "Append the library's log to this file");
  command.add_flag("--json", o.json, "Describe the outcome as one JSON object on standard output");
  command.callback([&command, &o] { o.given = Given(command); });
}

namespace {

void RefuseUnless(bool taken, bool given, const std::string& option, const Method& method, MethodOption kind) {
  if (!given || taken) return;
  throw UsageError(option + " has no effect on method " + method.name + "; it is taken by " + MethodsThatTake(kind) +
                   ".");
}

void RefuseForeignOptions(const FuseOptions& o, const Method& m) {
  const auto check = [&](bool given, const char* option, MethodOption kind) {
    RefuseUnless(m.Takes(kind), given, option, m, kind);
  };
  check(o.resample.has_value(), "--resample", kTakesResample);
  check(o.type.has_value(), "--type", kTakesType);
  check(!o.rgb.empty(), "--rgb", kTakesRgb);
  check(o.stretch, "--stretch", kTakesStretch);
  check(o.spectralMatch == "on", "--spectral-match on", kTakesMatch);
  check(o.autoLevel, "--auto-level", kTakesAutoLevel);
  check(o.kernelSize.has_value(), "--kernel-size", kTakesKernels);
  check(o.secondKernelSize.has_value(), "--second-kernel-size", kTakesKernels);
  check(o.detailWeight.has_value(), "--detail-weight", kTakesKernels);
  check(o.secondDetailWeight.has_value(), "--second-detail-weight", kTakesKernels);
  check(o.bayesWeight.has_value(), "--bayes-weight", kTakesBayesWeight);
}

ResampleType ParseResample(const std::string& name) {
  const ResampleType type = CStringParamParser::GetResampleType(CommonFun::Utf82U(name));
  if (type == RT_NEAREST && Lower(name) != "nearest") {
    throw UsageError("Unknown resampling '" + name + "'; known are nearest, bilinear and bicubic.");
  }
  return type;
}

void CheckWeight(const std::optional<double>& weight, const char* option) {
  if (weight && !std::isfinite(*weight)) throw UsageError(std::string(option) + " must be a finite number.");
}

void CheckKernel(const std::optional<int>& size, const char* option) {
  if (size && (*size < 3 || *size > 31 || *size % 2 == 0)) {
    throw UsageError(std::string(option) + " must be an odd number from 3 to 31.");
  }
}

}  // namespace

CheckedOptions CheckOptions(const FuseOptions& o) {
  CheckedOptions checked;
  checked.method = FindMethod(o.method);
  if (!checked.method) {
    std::vector<std::string> names;
    for (const Method& method : Methods()) names.emplace_back(method.name);
    throw UsageError("Unknown method '" + o.method + "'; known are " + Join(names) + ".");
  }
  const Method& method = *checked.method;
  if (o.spectralMatch != "auto" && o.spectralMatch != "on" && o.spectralMatch != "off") {
    throw UsageError("--spectral-match is auto, on or off, not '" + o.spectralMatch + "'.");
  }
  if (o.noDataMask != "auto" && o.noDataMask != "on" && o.noDataMask != "off") {
    throw UsageError("--nodata-mask is auto, on or off, not '" + o.noDataMask + "'.");
  }
  if (o.statistics != "scene" && o.statistics != "window") {
    throw UsageError("--statistics is scene or window, not '" + o.statistics + "'.");
  }
  if (o.noData && o.noDataMask == "off") throw UsageError("--nodata has no effect with --nodata-mask off.");
  RefuseForeignOptions(o, method);
  if (o.autoLevel && o.spectralMatch == "on") {
    throw UsageError("--auto-level sets the range by itself; it does not go with --spectral-match on.");
  }
  checked.matched = o.spectralMatch == "on" || (o.spectralMatch == "auto" && method.matchedByDefault && !o.autoLevel);
  if (o.makeGreen && !method.isPipeline && !checked.matched) {
    throw UsageError("--make-green has no effect on a raw " + std::string(method.name) +
                     " run; it is taken by hpf, sharpen and by every spectrally matched run.");
  }

  if (o.resample) checked.resample = ParseResample(*o.resample);
  if (o.type) checked.type = ParsePixelType(*o.type);
  checked.format = ChooseFormat(o.out, o.format);
  if (o.stretch && platform::IsFloatType(checked.type)) {
    throw UsageError("--stretch fills the range of an integer type; it does not go with a float type.");
  }
  if (o.stretch && checked.matched) {
    throw UsageError("--stretch has no effect on a spectrally matched run; add --spectral-match off.");
  }
  CheckKernel(o.kernelSize, "--kernel-size");
  CheckKernel(o.secondKernelSize, "--second-kernel-size");
  CheckWeight(o.detailWeight, "--detail-weight");
  CheckWeight(o.secondDetailWeight, "--second-detail-weight");
  if (o.bayesWeight && !(*o.bayesWeight > 0.0 && *o.bayesWeight < 1.0)) {
    throw UsageError("--bayes-weight must lie between 0 and 1, both excluded.");
  }
  if (!o.window.empty() && (o.window.size() != 4 || o.window[2] <= 0 || o.window[3] <= 0)) {
    throw UsageError("--window is XOFF,YOFF,XSIZE,YSIZE with a size of at least one pixel.");
  }
  if (!o.rgb.empty() && o.rgb.size() != 3) throw UsageError("--rgb is three positions: red, green and blue.");
  return checked;
}

}  // namespace app
