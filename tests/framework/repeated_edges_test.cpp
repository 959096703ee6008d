// Kernels that see the multispectral image's edges repeated: every method gives what it gives for a larger image.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "band_arithmetic/brovey_fusion.h"
#include "band_arithmetic/multiple_fusion.h"
#include "framework/resampling/kernels.h"
#include "framework/resampling/resample_point.h"
#include "tests/support/all_methods.h"
#include "tests/support/scene.h"

namespace {

using reference::Image;
using test_support::ExpectEqual;
using test_support::ReadImage;
using test_support::Scene;
using test_support::SceneOptions;

constexpr int kMargin = 5;  // more than any kernel reaches

/// An image with rows and columns around it that repeat its edges.
Image Larger(const Image& image) {
  Image larger = image;
  larger.width += 2 * kMargin;
  larger.height += 2 * kMargin;
  larger.geoTransform[0] -= kMargin * image.geoTransform[1];
  larger.geoTransform[3] -= kMargin * image.geoTransform[5];
  for (std::size_t b = 0; b < image.bands.size(); ++b) {
    larger.bands[b].clear();
    for (int y = -kMargin; y < image.height + kMargin; ++y) {
      for (int x = -kMargin; x < image.width + kMargin; ++x) {
        const int row = std::clamp(y, 0, image.height - 1);
        const int column = std::clamp(x, 0, image.width - 1);
        larger.bands[b].push_back(image.bands[b][static_cast<std::size_t>(row * image.width + column)]);
      }
    }
  }
  return larger;
}

/// Brovey, pixel by pixel, over the larger image.
std::vector<std::vector<double>> Expected(const Scene& scene, const FusionParam& param) {
  const Image ms = Larger(scene.ms);
  const CRect whole(0, 0, ms.width, ms.height);
  const double* p = scene.pan.geoTransform;
  const CRect area =
      param.m_rcProcess.IsRectEmpty() ? CRect(0, 0, scene.pan.width, scene.pan.height) : param.m_rcProcess;
  std::vector<std::vector<double>> out(ms.bands.size());
  for (int y = area.top; y < area.bottom; ++y) {
    for (int x = area.left; x < area.right; ++x) {
      const reference::Position at = reference::GroundToSample(ms, p[0] + (x + 0.5) * p[1], p[3] + (y + 0.5) * p[5]);
      reference::Pixel pixel{scene.pan.bands[0][static_cast<std::size_t>(y * scene.pan.width + x)], 0.0, {}};
      pixel.ms = reference::Resample(param.m_eResampleType, at.x, at.y, ms.bands, whole);
      const auto values = reference::Brovey(pixel, static_cast<int>(ms.bands.size()));
      for (std::size_t b = 0; b < values.size(); ++b) out[b].push_back(values[b]);
    }
  }
  return out;
}

/// Samples that no kernel swings below 0 from.
SceneOptions Bright() {
  SceneOptions options;
  options.low = 700.0;
  return options;
}

FusionParam Repeating(const Scene& scene, ResampleType type) {
  FusionParam param = scene.Param(PDT_FLOAT64);
  param.m_eResampleType = type;
  param.m_bRepeatMsEdges = true;
  return param;
}

Image Fuse(FusionParam param, bool overlapped = false) {
  CBroveyFusion fusion(&param);
  fusion.SetOverlappedIo(overlapped);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  return ReadImage(param.m_strOutFile);
}

constexpr double kRounding = 1e-9;  // positions in the larger image have other last digits

TEST(RepeatedEdges, AreWhatEveryKernelSeesAroundTheImage) {
  for (const ResampleType type : fusion::kResampleTypes) {
    for (const double ratio : {1.0, 2.0, 4.0, 2.37, 0.5}) {
      SCOPED_TRACE(testing::Message() << "kernel " << type << " ratio " << ratio);
      SceneOptions options = Bright();
      options.ratio = ratio;
      const Scene scene(21, options);
      const FusionParam param = Repeating(scene, type);
      ExpectEqual(Fuse(param), Expected(scene, param), kRounding);
    }
  }
}

TEST(RepeatedEdges, ReachAsFarAsAPositionMayLie) {
  // One sample from the first one, bilinear along the row that is repeated there.
  const Image image = Larger(Scene(29, Bright()).ms);
  const double* band = image.bands[0].data();
  CRect rect(-kMargin, -kMargin, image.width - kMargin, image.height - kMargin);
  const auto sample = [&](int x, int y) { return band[(y + kMargin) * image.width + x + kMargin]; };
  double value = 0.0;
  fusion::ResamplePoint(RT_BILINEAR, 2.25, -1.0, &band, 1, rect, &value);
  EXPECT_DOUBLE_EQ(value, 0.75 * sample(2, 0) + 0.25 * sample(3, 0));
  fusion::ResamplePoint(RT_BILINEAR, -1.0, 2.25, &band, 1, rect, &value);
  EXPECT_DOUBLE_EQ(value, 0.75 * sample(0, 2) + 0.25 * sample(0, 3));
}

TEST(RepeatedEdges, LieInsidePanWhereTheImageDoes) {
  for (const ResampleType type : fusion::kResampleTypes) {
    SceneOptions options = Bright();
    options.msShiftX = 7.0;
    options.msShiftY = 5.0;
    options.msWidth = 9;
    options.msHeight = 8;
    const Scene scene(22, options);
    FusionParam param = Repeating(scene, type);
    const Image out = Fuse(param);
    EXPECT_EQ(out.width, 18);
    EXPECT_EQ(out.height, 16) << "the common ground is the same";
    param.m_rcProcess = {7, 5, 25, 21};
    ExpectEqual(out, Expected(scene, param), kRounding);
  }
}

TEST(RepeatedEdges, AreThoseOfImagesSmallerThanAKernel) {
  for (const int size : {1, 2, 3}) {
    SceneOptions options = Bright();
    options.panWidth = options.panHeight = 4 * size;
    options.ratio = 4.0;
    const Scene scene(23, options);
    const FusionParam param = Repeating(scene, RT_BICUBIC);
    ExpectEqual(Fuse(param), Expected(scene, param), kRounding);
  }
}

TEST(RepeatedEdges, AreSeenFromTheBlocksAtTheEdgesAlone) {
  SceneOptions options = Bright();
  options.panWidth = 20;
  options.panHeight = 1300;
  const Scene scene(24, options);
  const FusionParam whole = Repeating(scene, RT_BICUBIC);
  const auto expected = Expected(scene, whole);
  const Image plain = Fuse(whole);
  ExpectEqual(plain, expected, kRounding);
  EXPECT_EQ(Fuse(whole, true).bands, plain.bands) << "read ahead";
  for (const CRect& part : {CRect(3, 500, 20, 1300), CRect(0, 0, 9, 600), CRect(4, 600, 15, 700)}) {
    FusionParam param = whole;
    param.m_rcProcess = part;
    ExpectEqual(Fuse(param), Expected(scene, param), kRounding);
  }
}

TEST(RepeatedEdges, LeaveEverythingElseAsItIs) {
  SceneOptions options = Bright();
  options.panWidth = options.panHeight = 40;
  const Scene scene(25, options);
  for (const ResampleType type : fusion::kResampleTypes) {
    FusionParam param = Repeating(scene, type);
    const Image repeated = Fuse(param);
    param.m_bRepeatMsEdges = false;
    const Image bare = Fuse(param);
    bool differs = false;
    for (std::size_t i = 0; i < 1600; ++i) {
      const auto isInside = [](std::size_t at) { return at >= 3 && at < 35; };
      if (isInside(i % 40) && isInside(i / 40)) {
        ASSERT_EQ(repeated.bands[0][i], bare.bands[0][i]) << type << " at " << i;
      }
      differs = differs || repeated.bands[0][i] != bare.bands[0][i];
    }
    EXPECT_EQ(differs, type != RT_NEAREST) << type;
  }
}

TEST(RepeatedEdges, AreRepeatedUnderAReprojectionToo) {
  SceneOptions options = Bright();
  options.panWkt = test_support::UtmWkt();
  Scene scene(26, options);
  // Inside pan on every side, in degrees.
  Image ms = scene.ms;
  ms.width = ms.height = 9;
  const double degrees[6] = {-3.70600, 2.4e-4, 0.0, 40.37740, 0.0, -1.9e-4};
  std::copy_n(degrees, 6, ms.geoTransform);
  for (auto& band : ms.bands) band.resize(81);
  const auto fuse = [&](const Image& image, bool repeats, const CRect& area) {
    test_support::WriteImage(image, scene.msFile, PDT_UINT16, test_support::Wgs84Wkt());
    FusionParam param = scene.Param(PDT_FLOAT64);
    param.m_bNeedReproject = true;
    param.m_bRepeatMsEdges = repeats;
    param.m_rcProcess = area;
    return Fuse(param);
  };
  // What of pan the image covers.
  const Image covered = fuse(ms, true, {});
  const int left = static_cast<int>(std::lround((covered.geoTransform[0] - scene.pan.geoTransform[0]) / 10.0));
  const int top = static_cast<int>(std::lround((scene.pan.geoTransform[3] - covered.geoTransform[3]) / 10.0));
  ASSERT_GT(left, 0);
  ASSERT_GT(top, 0);
  // The rectangle around it holds ground beside the image, which is no edge.
  const CRect area(left + 2, top + 2, left + covered.width - 2, top + covered.height - 2);
  const Image repeated = fuse(ms, true, area);
  EXPECT_NE(repeated.bands, fuse(ms, false, area).bands);
  ExpectEqual(repeated, fuse(Larger(ms), false, area).bands, 1e-6);
}

TEST(RepeatedEdges, HaveNoDataWhereTheEdgeHasNone) {
  SceneOptions options = Bright();
  options.panWidth = options.panHeight = 24;
  options.msNoData = 0.0;
  options.msBands = 2;
  Scene scene(27, options);
  for (auto& band : scene.ms.bands) {
    for (const int i : {0, 5, 11, 12 * 4, 12 * 7 + 11, 12 * 11 + 3, 12 * 11 + 4, 12 * 11 + 11}) {
      band[static_cast<std::size_t>(i)] = 0.0;
    }
  }
  test_support::WriteImage(scene.ms, scene.msFile, PDT_UINT16, "", 0.0);
  FusionParam param = Repeating(scene, RT_BICUBIC);
  param.m_bMaskNoData = true;
  const Image out = Fuse(param);
  const Image larger = Larger(scene.ms);
  test_support::WriteImage(larger, scene.msFile, PDT_UINT16, "", 0.0);
  param.m_bRepeatMsEdges = false;
  ExpectEqual(out, Fuse(param).bands, kRounding);
  // In the corner, a quarter of a sample from the missing one.
  EXPECT_EQ(out.bands[0][0], 0.0);
  EXPECT_EQ(out.bands[0][24 * 23 + 23], 0.0);
  EXPECT_NE(out.bands[0][24 * 23 + 2], 0.0);
}

TEST(RepeatedEdges, AreThoseOfEveryMethod) {
  for (const auto& method : test_support::AllMethods()) {
    if (!method.isLocal) continue;
    SCOPED_TRACE(method.name);
    const Scene scene(28, Bright());
    FusionParam param = Repeating(scene, RT_BICUBIC);
    method.run(param);
    const Image repeated = ReadImage(scene.outFile);
    param.m_bRepeatMsEdges = false;
    method.run(param);
    EXPECT_NE(ReadImage(scene.outFile).bands, repeated.bands);
    test_support::WriteImage(Larger(scene.ms), scene.msFile, PDT_UINT16);
    method.run(param);
    // The pipelines hand 32-bit floats on, and ihs computes angles.
    ExpectEqual(repeated, ReadImage(scene.outFile).bands, 1e-5);
  }
}

}  // namespace
