// Scenes, records, rectangles, positions, masks and types as the bytes will have them: what a run makes of them is held
// against the definition, pixel by pixel.
#include <cpl_vsi.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "band_arithmetic/brovey_fusion.h"
#include "band_arithmetic/multiple_fusion.h"
#include "platform/raster/pixel_type.h"
#include "platform/utility/common_fun.h"
#include "tests/support/scene.h"

namespace {

using test_support::Scene;
using test_support::SceneOptions;

PixelDataType Type(FuzzedDataProvider& draw) {
  return static_cast<PixelDataType>(draw.ConsumeIntegralInRange<int>(PDT_UINT8, PDT_FLOAT64));
}

SceneOptions Shape(FuzzedDataProvider& draw) {
  SceneOptions options;
  options.panWidth = draw.ConsumeIntegralInRange(1, 40);
  // Some are higher than a block.
  options.panHeight = draw.ConsumeBool() ? draw.ConsumeIntegralInRange(1, 40) : draw.ConsumeIntegralInRange(500, 1040);
  if (options.panHeight > 40) options.panWidth = 1 + options.panWidth % 4;
  options.msBands = draw.ConsumeIntegralInRange(1, 5);
  options.panType = Type(draw);
  options.msType = Type(draw);
  options.southUp = draw.ConsumeBool();
  options.ratio = draw.ConsumeBool() ? draw.ConsumeIntegralInRange(1, 8) : draw.ConsumeFloatingPointInRange(0.4, 9.0);
  if (draw.ConsumeBool()) {
    options.msShiftX = draw.ConsumeFloatingPointInRange(-20.0, 20.0);
    options.msShiftY = draw.ConsumeFloatingPointInRange(-20.0, 20.0);
  }
  options.msWidth = draw.ConsumeIntegralInRange(0, 40);
  options.msHeight = draw.ConsumeIntegralInRange(0, 40);
  if (draw.ConsumeBool()) options.panNoData = 0.0;
  if (draw.ConsumeBool()) options.msNoData = 1.0;
  options.low = 0.0;
  // What a byte can hold where one of them is of bytes.
  const bool bytes = options.panType == PDT_UINT8 || options.msType == PDT_UINT8;
  options.high = bytes ? 255.0 : draw.PickValueInArray({2.0, 255.0, 32767.0});
  return options;
}

/// Puts values that arithmetic does not expect among an image's.
void Spice(FuzzedDataProvider& draw, reference::Image& image, PixelDataType type) {
  constexpr double kMost = std::numeric_limits<double>::max();
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  constexpr double kInfinite = std::numeric_limits<double>::infinity();
  const int values = draw.ConsumeIntegralInRange(0, 6);
  for (int i = 0; i < values; ++i) {
    auto& band = image.bands[draw.ConsumeIntegralInRange<std::size_t>(0, image.bands.size() - 1)];
    double& value = band[draw.ConsumeIntegralInRange<std::size_t>(0, band.size() - 1)];
    if (!platform::IsFloatType(type)) {
      value = draw.ConsumeBool() ? 0.0 : platform::ValueConversion::FullRange(type).m_dOutMax;
    } else if (type == PDT_FLOAT32) {
      value = draw.PickValueInArray({0.0, -1.0, 1e30, -1e30, kNan, kInfinite, -kInfinite});
      value = static_cast<double>(static_cast<float>(value));
    } else {
      value = draw.PickValueInArray({0.0, -1.0, 5e-9, 1e300, -1e300, kMost, kNan, kInfinite, -kInfinite});
    }
  }
}

/// An area of interest whose edges pass between the pixels' centres: a triangle with its right angle at the corner of a
/// pixel and legs that end within one. The run takes the box around it.
void Area(const Scene& scene, FusionParam& param, reference::Run& run) {
  const int leg = std::min(run.process.Width(), run.process.Height());
  const CRect box(run.process.left, run.process.top, run.process.left + leg, run.process.top + leg);
  const double* geo = scene.pan.geoTransform;
  const double x = geo[0] + box.left * geo[1];
  const double y = geo[3] + box.top * geo[5];
  const double length = leg - 0.25;
  param.m_strAoiFile = L"/vsimem/fuzz_area.csv";
  test_support::WriteTriangle(param.m_strAoiFile, {x, y}, {x + length * geo[1], y}, {x, y + length * geo[5]});
  param.m_rcProcess = CRect();
  run.process = box;
  run.inside = [=](int column, int row) { return column - box.left + row - box.top + 1 < leg; };
}

/// Whether every block of the run has ground in common with the multispectral image, by more than roundings are worth.
bool OnCommonGround(const Scene& scene, const CRect& process) {
  const double* p = scene.pan.geoTransform;
  const double* m = scene.ms.geoTransform;
  const double left = (p[0] + process.left * p[1] - m[0]) / m[1];
  const double right = (p[0] + process.right * p[1] - m[0]) / m[1];
  const double top = (p[3] + process.top * p[5] - m[3]) / m[5];
  const double bottom = (p[3] + process.bottom * p[5] - m[3]) / m[5];
  return left > -1e-7 && top > -1e-7 && right < scene.ms.width + 1e-7 && bottom < scene.ms.height + 1e-7;
}

void Stretch(FuzzedDataProvider& draw, CBaseAlgorithm& method, reference::Conversion& conversion) {
  conversion.stretch = draw.ConsumeBool();
  method.SetStretch(conversion.stretch);
}

/// What else of the conversion its caller may settle, where the method leaves it alone.
void Narrow(FuzzedDataProvider& draw, CBaseAlgorithm& method, reference::Conversion& conversion) {
  conversion.addOne = draw.ConsumeBool();
  conversion.srcMin = draw.ConsumeFloatingPointInRange(-1e3, 1e3);
  conversion.srcMax = conversion.srcMin + draw.ConsumeFloatingPointInRange(0.5, 1e5);
  method.SetAddOne(conversion.addOne);
  method.SetSrcMinMaxValue(conversion.srcMin, conversion.srcMax);
}

void Compare(FuzzedDataProvider& draw, const Scene& scene, CBaseAlgorithm& method, const reference::Run& run,
             bool hasBands) {
  method.SetOverlappedIo(draw.ConsumeBool());
  method.SetThreads(draw.ConsumeIntegralInRange(1, 3));
  method.SetBuildsOverviews(false);
  method.Process();
  EXPECT_EQ(method.GetLastErrorType(), hasBands ? 0 : static_cast<int>(ERR_BANDS))
      << CommonFun::U2Utf8(method.GetLastErrorMessage());
  if (hasBands) test_support::ExpectEqual(test_support::ReadImage(scene.outFile), reference::Fuse(run));
}

bool HasFiniteValues(const reference::Image& image) {
  return std::all_of(image.bands.begin(), image.bands.end(), [](const std::vector<double>& band) {
    return std::any_of(band.begin(), band.end(), [](double value) { return std::isfinite(value); });
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // What differs ends the program, so that its bytes are kept.
  GTEST_FLAG_SET(throw_on_failure, true);
  FuzzedDataProvider draw(data, size);
  const SceneOptions options = Shape(draw);
  Scene scene(draw.ConsumeIntegral<unsigned>(), options);
  Spice(draw, scene.pan, options.panType);
  Spice(draw, scene.ms, options.msType);
  test_support::WriteImage(scene.pan, scene.panFile, options.panType, "", options.panNoData);
  test_support::WriteImage(scene.ms, scene.msFile, options.msType, "", options.msNoData);

  FusionParam param = scene.Param(Type(draw));
  param.m_eResampleType = draw.PickValueInArray({RT_NEAREST, RT_BILINEAR, RT_BICUBIC});
  CRect& process = param.m_rcProcess;
  process.left = draw.ConsumeIntegralInRange(0, scene.pan.width - 1);
  process.top = draw.ConsumeIntegralInRange(0, scene.pan.height - 1);
  process.right = draw.ConsumeIntegralInRange(process.left + 1, scene.pan.width);
  process.bottom = draw.ConsumeIntegralInRange(process.top + 1, scene.pan.height);
  if (!OnCommonGround(scene, process)) return -1;
  const int chosen = draw.ConsumeIntegralInRange(0, 6);
  for (int i = 0; i < chosen; ++i) param.m_vecMSBands.push_back(draw.ConsumeIntegralInRange(0, options.msBands - 1));
  param.m_nOutBandCount = draw.ConsumeIntegralInRange(0, 6);
  reference::Run run = scene.Reference(param);
  if (std::min(process.Width(), process.Height()) > 2 && draw.ConsumeBool()) Area(scene, param, run);
  // A single band is an output that has to be asked for.
  const bool hasBands = param.m_nOutBandCount > 0 || run.msBands.size() > 1;
  if (draw.ConsumeBool()) {
    run.arithmetic = [n = run.outBandCount](const reference::Pixel& pixel) { return reference::Brovey(pixel, n); };
    // The range is narrowed where both images declare what is no data, and is else that of bytes.
    run.conversion.addOne = options.panNoData && options.msNoData;
    run.conversion.srcMin = run.conversion.addOne ? 1.0 : 0.0;
    run.conversion.srcMax = run.conversion.addOne ? 254.0 : 255.0;
    CBroveyFusion method(&param);
    Stretch(draw, method, run.conversion);
    Compare(draw, scene, method, run, hasBands);
  } else if (HasFiniteValues(scene.pan) && HasFiniteValues(scene.ms)) {
    run.startAtOutput = true;
    run.arithmetic = [](const reference::Pixel& pixel) {
      std::vector<double> out;
      for (const double ms : pixel.ms) out.push_back(ms * pixel.pan);
      return out;
    };
    CMultipleFusion method(&param);
    Stretch(draw, method, run.conversion);
    Narrow(draw, method, run.conversion);
    Compare(draw, scene, method, run, hasBands);
  }
  VSIUnlink("/vsimem/fuzz_area.csv");
  return 0;
}
