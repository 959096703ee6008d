#include "runs/fuse_checks.h"

#include <cmath>

#include "framework/resampling/kernels.h"
#include "platform/raster/pixel_type.h"
#include "platform/utility/common_fun.h"
#include "runs/output_format.h"
#include "runs/text.h"

namespace fusion {

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

std::vector<std::string> ResampleWords() {
  std::vector<std::string> words(kResampleNames.begin(), kResampleNames.end());
  words.emplace_back("auto");
  return words;
}

namespace {

void RefuseForeignOptions(const FuseRequest& o, const Method& m) {
  const auto check = [&](bool given, const char* option) { RefuseForeign(given, option, m); };
  // What auto spares a ratio is asked of bicubic, too.
  const bool choosesKernel = o.resample && *o.resample != "auto" && !(m.isRatio && *o.resample == "bicubic");
  check(choosesKernel, "--resample");
  check(o.type.has_value(), "--type");
  check(!o.rgb.empty(), "--rgb");
  check(o.stretch, "--stretch");
  check(o.spectralMatch == "on", "--spectral-match on");
  check(o.autoLevel, "--auto-level");
  check(o.kernelSize.has_value(), "--kernel-size");
  check(o.secondKernelSize.has_value(), "--second-kernel-size");
  check(o.detailWeight.has_value(), "--detail-weight");
  check(o.secondDetailWeight.has_value(), "--second-detail-weight");
  check(o.bayesWeight.has_value(), "--bayes-weight");
  check(o.registration != "auto", "--registration");
}

ResampleType ParseResample(const std::string& name) {
  if (name == "auto") return RT_BICUBIC;
  const ResampleType type = CStringParamParser::GetResampleType(CommonFun::Utf82U(name));
  if (type == RT_NEAREST && Lower(name) != "nearest") {
    throw UsageError("Unknown resampling '" + name + "'; known are " + Join(ResampleWords()) + ".");
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

CheckedRequest CheckFuseRequest(const FuseRequest& o) {
  CheckedRequest checked;
  checked.method = FindMethod(o.method);
  if (!checked.method) {
    throw UsageError("Unknown method '" + o.method + "'; known are " + MethodNames() + ", and best.");
  }
  const Method& method = *checked.method;
  if (o.spectralMatch != "auto" && o.spectralMatch != "on" && o.spectralMatch != "off") {
    throw UsageError("--spectral-match is auto, on or off, not '" + o.spectralMatch + "'.");
  }
  if (o.noDataMask != "auto" && o.noDataMask != "on" && o.noDataMask != "off") {
    throw UsageError("--nodata-mask is auto, on or off, not '" + o.noDataMask + "'.");
  }
  if (o.registration != "auto" && o.registration != "off" && o.registration != "report") {
    throw UsageError("--registration is auto, off or report, not '" + o.registration + "'.");
  }
  if (!o.statistics.empty() && o.statistics != "scene" && o.statistics != "window") {
    throw UsageError("--statistics is scene or window, not '" + o.statistics + "'.");
  }
  checked.sceneStatistics = o.statistics.empty() ? !o.asPublished : o.statistics == "scene";
  if (o.noData && o.noDataMask == "off") throw UsageError("--nodata has no effect with --nodata-mask off.");
  RefuseForeignOptions(o, method);
  if (o.autoLevel && o.spectralMatch == "on") {
    throw UsageError("--auto-level sets the range by itself; it does not go with --spectral-match on.");
  }
  const bool matchesUnasked = method.matchedByDefault && !o.autoLevel && !o.asPublished;
  checked.matched = o.spectralMatch == "on" || (o.spectralMatch == "auto" && matchesUnasked);
  checked.guards = ChooseGuards(o, method, checked.matched);
  if (o.makeGreen && !method.mixesGreen && !checked.matched) {
    throw UsageError("--make-green has no effect on a raw " + std::string(method.name) +
                     " run; it is taken by hpf, sharpen and by every spectrally matched run.");
  }

  if (o.resample) checked.resample = ParseResample(*o.resample);
  if (o.type) checked.type = ParsePixelType(*o.type);
  checked.format = ChooseFormat(o.out, o.format);
  checked.creationOptions = CreationOptions(checked.format, o.creationOptions, o.compress);
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
  if (o.bayesWeight && !(*o.bayesWeight >= 0.0 && *o.bayesWeight <= 1.0)) {
    throw UsageError("--bayes-weight must lie between 0 and 1.");
  }
  if (!o.window.empty() && (o.window.size() != 4 || o.window[2] <= 0 || o.window[3] <= 0)) {
    throw UsageError("--window is XOFF,YOFF,XSIZE,YSIZE with a size of at least one pixel.");
  }
  if (!o.rows.empty() && (o.rows.size() != 2 || o.rows[0] < 0 || o.rows[1] <= o.rows[0])) {
    throw UsageError("--rows is A:B, from row A, counted from 0, up to row B, which is larger and no part of it.");
  }
  if (!o.rows.empty() && !o.quicklook.empty()) {
    throw UsageError("--quicklook shows a whole result; it does not go with --rows.");
  }
  if (!o.rgb.empty() && o.rgb.size() != 3) throw UsageError("--rgb is three positions: red, green and blue.");
  checked.workers = MakeWorkers(o.threads);
  return checked;
}

}  // namespace fusion
