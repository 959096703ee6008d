// Results stretched from their own range.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "band_arithmetic/brovey_fusion.h"
#include "band_arithmetic/multiple_fusion.h"
#include "framework/messages.h"
#include "platform/raster/raster_fault.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"

namespace {

using test_support::ReadImage;
using test_support::RecordingProgress;
using test_support::Scene;
using test_support::SceneOptions;

using Bands = std::vector<std::vector<double>>;

/// More rows than a block has.
SceneOptions TallScene() {
  SceneOptions options;
  options.panWidth = 13;
  options.panHeight = 1100;
  return options;
}

template <typename Algorithm = CMultipleFusion>
Bands Fuse(FusionParam param, bool stretch) {
  Algorithm algorithm(&param);
  if (stretch) algorithm.StretchOwnRange();
  algorithm.Process();
  EXPECT_EQ(algorithm.GetLastErrorType(), 0);
  return ReadImage(param.m_strOutFile).bands;
}

struct Range {
  double low = INFINITY;
  double high = -INFINITY;
};

/// Over all bands, of the pixels that count.
Range RangeOf(const Bands& raw, const std::vector<bool>& counts) {
  Range range;
  for (const auto& band : raw) {
    for (std::size_t i = 0; i < band.size(); ++i) {
      if (!counts[i]) continue;
      range.low = std::min(range.low, band[i]);
      range.high = std::max(range.high, band[i]);
    }
  }
  return range;
}

class OwnRange : public testing::Test {
 protected:
  ~OwnRange() override { platform::SetRasterFault({}); }
};

TEST_F(OwnRange, FillsEveryIntegerType) {
  const Scene scene(81, TallScene());
  const Bands raw = Fuse(scene.Param(PDT_FLOAT64), false);
  const Range range = RangeOf(raw, std::vector<bool>(raw[0].size(), true));
  const std::pair<PixelDataType, double> types[] = {{PDT_UINT8, 255.0},
                                                    {PDT_UINT16, 65535.0},
                                                    {PDT_INT16, 32767.0},
                                                    {PDT_UINT32, 4294967295.0},
                                                    {PDT_INT32, 2147483647.0}};
  for (const auto& [type, largest] : types) {
    const Bands stretched = Fuse(scene.Param(type), true);
    Range filled;
    for (std::size_t b = 0; b < raw.size(); ++b) {
      for (std::size_t i = 0; i < raw[b].size(); ++i) {
        const double expected = std::trunc((raw[b][i] - range.low) / (range.high - range.low) * largest);
        ASSERT_EQ(stretched[b][i], expected) << "type " << type << " band " << b << " at " << i;
        filled.low = std::min(filled.low, expected);
        filled.high = std::max(filled.high, expected);
      }
    }
    EXPECT_EQ(filled.low, 0.0);
    EXPECT_EQ(filled.high, largest);
  }
}

TEST_F(OwnRange, IsThatOfTheAreaOfInterest) {
  SceneOptions options = TallScene();
  options.low = 100.0;
  const Scene scene(82, options);
  const std::wstring area = L"/vsimem/own_range_area.csv";
  const double* t = scene.pan.geoTransform;
  const auto corner = [&](double x, double y) { return reference::Position{t[0] + x * t[1], t[3] + y * t[5]}; };
  test_support::WriteTriangle(area, corner(0.3, 100.2), corner(12.7, 130.4), corner(4.1, 1050.9));
  for (const bool masked : {false, true}) {
    FusionParam param = scene.Param(PDT_FLOAT64);
    param.m_strAoiFile = area;
    // Which does not swing below the samples.
    param.m_eResampleType = RT_NEAREST;
    param.m_bMaskNoData = masked;
    const Bands raw = Fuse(param, false);
    // A product of positive values is nowhere 0.
    std::vector<bool> inside;
    for (const double v : raw[0]) inside.push_back(v != 0.0);
    ASSERT_GT(std::count(inside.begin(), inside.end(), true), 1000);
    const Range range = RangeOf(raw, inside);
    ASSERT_GT(range.low, 0.0) << "which is what lies outside";
    param.m_eOutDataType = PDT_UINT16;
    const Bands stretched = Fuse(param, true);
    for (std::size_t b = 0; b < raw.size(); ++b) {
      for (std::size_t i = 0; i < raw[b].size(); ++i) {
        double expected = 0.0;
        if (inside[i]) expected = std::trunc((raw[b][i] - range.low) / (range.high - range.low) * 65535.0);
        // Where 0 stands for no data, no value is 0.
        if (inside[i] && masked) expected = std::max(expected, 1.0);
        ASSERT_EQ(stretched[b][i], expected) << masked << " band " << b << " at " << i;
      }
    }
  }
}

TEST_F(OwnRange, PixelsWithoutDataAreNoPartOfIt) {
  SceneOptions options = TallScene();
  options.low = 100.0;
  options.panNoData = 0.0;
  Scene scene(83, options);
  scene.pan.bands[0][7] = 0.0;
  test_support::WriteImage(scene.pan, scene.panFile, PDT_UINT16, "", 0.0);
  FusionParam param = scene.Param(PDT_FLOAT64);
  param.m_bMaskNoData = true;
  // Which does not swing below the samples.
  param.m_eResampleType = RT_NEAREST;
  const Bands raw = Fuse(param, false);
  ASSERT_EQ(raw[0][7], 0.0);
  std::vector<bool> hasData(raw[0].size(), true);
  hasData[7] = false;
  const Range range = RangeOf(raw, hasData);
  ASSERT_GT(range.low, 0.0);
  param.m_eOutDataType = PDT_UINT16;
  const Bands stretched = Fuse(param, true);
  for (std::size_t i = 0; i < raw[0].size(); ++i) {
    const double expected = std::trunc((raw[0][i] - range.low) / (range.high - range.low) * 65535.0);
    ASSERT_EQ(stretched[0][i], hasData[i] ? std::max(expected, 1.0) : 0.0) << i;
  }
}

TEST_F(OwnRange, APartIsStretchedAsTheWhole) {
  const Scene scene(84, TallScene());
  const Bands whole = Fuse(scene.Param(PDT_UINT16), true);
  FusionParam param = scene.Param(PDT_UINT16);
  param.m_rcScene = CRect(0, 0, 13, 1100);
  param.m_rcProcess = CRect(3, 520, 9, 640);
  const Bands part = Fuse(param, true);
  for (std::size_t b = 0; b < part.size(); ++b) {
    for (std::size_t y = 0; y < 120; ++y) {
      for (std::size_t x = 0; x < 6; ++x) ASSERT_EQ(part[b][y * 6 + x], whole[b][(y + 520) * 13 + x + 3]);
    }
  }
}

TEST_F(OwnRange, AResultThatIsTheSameEverywhereStaysAsItIs) {
  SceneOptions options = TallScene();
  options.low = options.high = 60.0;
  const Scene scene(85, options);
  // 60 times 60 over the sum of three bands.
  const Bands stretched = Fuse<CBroveyFusion>(scene.Param(PDT_UINT16), true);
  for (const auto& band : stretched) EXPECT_EQ(band, std::vector<double>(band.size(), 20.0));
}

TEST_F(OwnRange, AFailureInEitherPassEndsTheRun) {
  for (const int failing : {2, 5}) {
    const Scene scene(86, TallScene());
    FusionParam param = scene.Param(PDT_UINT16);
    int reads = 0;
    platform::SetRasterFault([&](platform::RasterOperation operation, const std::wstring& path, int, const CRect&) {
      return operation == platform::RasterOperation::kRead && path == scene.panFile && ++reads == failing;
    });
    CMultipleFusion fusion(&param);
    fusion.StretchOwnRange();
    fusion.Process();
    EXPECT_EQ(fusion.GetLastErrorType(), ERR_READ);
    EXPECT_EQ(reads, failing) << "no block after it";
  }
}

TEST_F(OwnRange, ProgressCountsEveryBlockTwice) {
  const Scene scene(87, TallScene());
  FusionParam param = scene.Param(PDT_UINT16);
  RecordingProgress progress;
  CMultipleFusion fusion(&param);
  fusion.StretchOwnRange();
  fusion.SetProgress(&progress);
  fusion.Process();
  EXPECT_EQ(std::count(progress.Calls().begin(), progress.Calls().end(),
                       L"Start " + fusion::messages::RunTitle(param.m_strAlgName) + L" 6"),
            1);
  EXPECT_TRUE(progress.Finished());
}

}  // namespace
