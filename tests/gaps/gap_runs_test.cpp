// Runs whose areas, blocks, coordinate systems and formats meet pixels without data.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>

#include "band_arithmetic/brovey_fusion.h"
#include "band_arithmetic/multiple_fusion.h"
#include "platform/raster/raster_fault.h"
#include "platform/utility/common_fun.h"
#include "tests/support/all_methods.h"
#include "tests/support/gap_scene.h"
#include "tests/support/method_sweep.h"
#include "tests/support/test_raster.h"

namespace {

using test_support::GapScene;
using test_support::GapShape;
using test_support::MaskedOutput;
using test_support::ReadMasked;

FusionParam Masked(const test_support::Scene& scene, PixelDataType type = PDT_FLOAT64) {
  FusionParam param = scene.Param(type);
  param.m_bMaskNoData = true;
  return param;
}

MaskedOutput Brovey(FusionParam param) {
  CBroveyFusion fusion(&param);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  return ReadMasked(param.m_strOutFile);
}

TEST(GapRuns, ResultsDoNotDependOnBlockBorders) {
  test_support::SceneOptions options;
  options.panWidth = 24;
  options.panHeight = 1090;
  options.ratio = 2.37;
  for (const GapShape shape : {GapShape::kHole, GapShape::kSpeckles}) {
    GapScene gaps(8, shape, PDT_UINT16, options);
    gaps.Write(0.0);
    for (const ResampleType resample : fusion::kResampleTypes) {
      FusionParam param = Masked(gaps.scene);
      param.m_eResampleType = resample;
      const reference::Image whole = Brovey(param).image;
      // Other blocks: the first border is now at row 700.
      param.m_rcProcess = {0, 188, 24, 1090};
      const reference::Image part = Brovey(param).image;
      for (std::size_t b = 0; b < whole.bands.size(); ++b) {
        const std::vector<double> expected(whole.bands[b].begin() + 188 * 24, whole.bands[b].end());
        ASSERT_EQ(part.bands[b], expected) << NameOf(shape) << ' ' << resample;
      }
    }
  }
}

TEST(GapRuns, AnAreaOfInterestAndGapsBothLeaveOut) {
  GapScene gaps(4, GapShape::kHole, PDT_UINT8);
  gaps.Write(0.0);
  FusionParam param = Masked(gaps.scene, PDT_UINT8);
  param.m_strAoiFile = L"/vsimem/gap_area.csv";
  const double x = 440000.0;
  const double y = 4470000.0;
  test_support::WriteTriangle(param.m_strAoiFile, {x, y}, {x + 300.0, y}, {x, y - 300.0});
  const MaskedOutput output = Brovey(param);
  EXPECT_TRUE(output.declaresZero);
  ASSERT_EQ(output.image.width, 30);
  int left = 0;
  for (int row = 0; row < output.image.height; ++row) {
    for (int column = 0; column < output.image.width; ++column) {
      const bool inside = column + 0.5 + row + 0.5 < 30.0;
      const double value = output.image.bands[0][static_cast<std::size_t>(row * output.image.width + column)];
      ASSERT_EQ(value != 0.0, inside && gaps.HasData(column, row)) << column << ' ' << row;
      left += inside && !gaps.HasData(column, row);
    }
  }
  EXPECT_GT(left, 10);
}

TEST(GapRuns, PixelsOffTheMultispectralImageHaveNoData) {
  test_support::SceneOptions options;
  options.msShiftX = 8.0;
  options.msShiftY = -6.0;
  options.msWidth = 10;
  options.msHeight = 9;
  GapScene gaps(6, GapShape::kHole, PDT_INT16, options);
  gaps.Write(-32768.0);
  FusionParam param = Masked(gaps.scene, PDT_INT16);
  // By itself a run takes the common area.
  const MaskedOutput common = Brovey(param);
  EXPECT_EQ(common.image.width, 20);
  EXPECT_EQ(common.image.height, 12);
  param.m_rcProcess = {0, 0, 37, 29};
  for (const ResampleType resample : fusion::kResampleTypes) {
    param.m_eResampleType = resample;
    ExpectMask(Brovey(param), gaps);
  }
}

TEST(GapRuns, AReprojectedRunKeepsGapsOutAndIsEmptyOffTheImage) {
  test_support::ReprojectedScene reprojected(21);
  test_support::Scene& scene = reprojected.Base();
  reference::Image ms = scene.ms;
  const auto isGap = [](std::size_t b, int x, int y) {
    return (x > 8 && x < 13 && y > 6 && y < 12) || (b == 1 && x == 15);
  };
  reference::Run run;
  const auto write = [&](double fill) {
    for (std::size_t b = 0; b < ms.bands.size(); ++b) {
      for (int y = 0; y < ms.height; ++y) {
        for (int x = 0; x < ms.width; ++x) {
          if (isGap(b, x, y)) ms.bands[b][static_cast<std::size_t>(y * ms.width + x)] = fill;
        }
      }
    }
    test_support::WriteImage(ms, scene.msFile, PDT_UINT16, test_support::Wgs84Wkt(), fill);
  };
  for (const ResampleType resample : fusion::kResampleTypes) {
    FusionParam param = Masked(scene, PDT_UINT16);
    param.m_bNeedReproject = true;
    param.m_eResampleType = resample;
    for (const auto& method : test_support::AllMethods()) {
      if (method.isPipeline && resample != RT_BICUBIC) continue;
      SCOPED_TRACE(method.name);
      write(0.0);
      method.run(param);
      const MaskedOutput output = ReadMasked(param.m_strOutFile);
      EXPECT_TRUE(output.declaresZero);
      if (!run.reproject) reprojected.Complete(run, output.image);
      const bool halfPixel = method.isPipeline || method.name.starts_with("bayesian");
      int empty = 0;
      for (int row = 0; row < output.image.height; ++row) {
        for (int column = 0; column < output.image.width; ++column) {
          const double* t = output.image.geoTransform;
          const double offset = halfPixel ? 0.5 : 0.0;
          const auto p = run.reproject(t[0] + (column + offset) * t[1], t[3] + (row + offset) * t[5]);
          const bool onImage = p.x >= 0.0 && p.y >= 0.0 && p.x <= ms.width - 1.0 && p.y <= ms.height - 1.0;
          const bool hasData = onImage && !isGap(0, static_cast<int>(p.x + 0.5), static_cast<int>(p.y + 0.5));
          empty += !hasData;
          const auto at = static_cast<std::size_t>(row * output.image.width + column);
          ASSERT_EQ(output.image.bands[0][at] != 0.0, hasData) << column << ' ' << row;
        }
      }
      EXPECT_GT(empty, 30);
      write(65535.0);
      method.run(param);
      test_support::ExpectEqual(ReadMasked(param.m_strOutFile).image, output.image.bands);
    }
  }
}

TEST(GapRuns, ARunWithoutCommonDataIsEmptyAndSaysSo) {
  GapScene gaps(9, GapShape::kHole, PDT_UINT8);
  // Pan has its left half, the multispectral image its right one.
  for (std::size_t i = 0; i < gaps.panGaps.size(); ++i) gaps.panGaps[i] = i % 37 > 16;
  for (auto& band : gaps.msGaps) {
    for (std::size_t i = 0; i < band.size(); ++i) band[i] = i % 19 < 10;
  }
  gaps.Write(0.0);
  for (const auto& method : test_support::AllMethods()) {
    SCOPED_TRACE(method.name);
    const FusionParam param = Masked(gaps.scene, PDT_UINT8);
    method.run(param);
    const MaskedOutput output = ReadMasked(param.m_strOutFile);
    EXPECT_TRUE(output.declaresZero);
    for (const auto& band : output.image.bands) EXPECT_EQ(band, std::vector<double>(band.size(), 0.0));
  }
}

TEST(GapRuns, BlocksWithoutDataAreZeroInEveryFormat) {
  test_support::SceneOptions options;
  options.panWidth = 20;
  options.panHeight = 1600;
  GapScene gaps(10, GapShape::kHole, PDT_UINT8, options);
  // Of four blocks the first and the third have no data.
  for (std::size_t i = 0; i < gaps.panGaps.size(); ++i) gaps.panGaps[i] = i / 20 / 512 % 2 == 0;
  gaps.Write(0.0);
  const test_support::TempFolder folder;
  const FusionParam scene = Masked(gaps.scene, PDT_UINT8);
  const MaskedOutput expected = Brovey(scene);
  ExpectMask(expected, gaps);
  for (const wchar_t* name : {L"a.tif", L"b.img", L"c.dat", L"d.png", L"e.jp2"}) {
    FusionParam param = scene;
    param.m_strOutFile = folder.Path(name);
    const RasterDataFormat format = CRasterSource::GetDataFormat(param.m_strOutFile);
    if (format == kFormatUnknown) continue;
    SCOPED_TRACE(CommonFun::U2Utf8(name));
    const MaskedOutput output = Brovey(param);
    EXPECT_TRUE(output.declaresZero);
    test_support::ExpectEqual(output.image, expected.image.bands);
  }
}

TEST(GapRuns, AValidZeroIsTheLeastPositiveValueOfItsType) {
  test_support::SceneOptions options;
  options.high = 9.0;
  const test_support::Scene scene(3, options);
  reference::Image pan = scene.pan;
  for (double& v : pan.bands[0]) v = 0.0;
  test_support::WriteImage(pan, scene.panFile, PDT_UINT16);
  for (int type = 1; type <= 7; ++type) {
    FusionParam param = Masked(scene, static_cast<PixelDataType>(type));
    CMultipleFusion fusion(&param);
    fusion.Process();
    const MaskedOutput output = ReadMasked(param.m_strOutFile);
    EXPECT_TRUE(output.declaresZero);
    const double least = type < 6 ? 1.0 : type == 6 ? std::ldexp(1.0, -126) : std::ldexp(1.0, -1022);
    for (const auto& band : output.image.bands) EXPECT_EQ(band, std::vector<double>(band.size(), least));
  }
}

TEST(GapRuns, MatchingTakesItsFiguresFromPixelsWithData) {
  GapScene gaps(12, GapShape::kCollar, PDT_FLOAT64);
  for (auto& band : gaps.msGaps) band = gaps.msGaps[0];
  gaps.Write(1e30);
  FusionParam param = Masked(gaps.scene);
  param.m_bSpectralMatch = true;
  const MaskedOutput output = Brovey(param);
  ExpectMask(output, gaps);
  for (std::size_t b = 0; b < 3; ++b) {
    std::vector<double> data;
    std::vector<double> wanted;
    for (const double v : output.image.bands[b]) {
      if (v != 0.0) data.push_back(v);
    }
    for (std::size_t i = 0; i < gaps.msGaps[b].size(); ++i) {
      if (!gaps.msGaps[b][i]) wanted.push_back(gaps.scene.ms.bands[b][i]);
    }
    EXPECT_NEAR(test_support::Mean(data), test_support::Mean(wanted), 1e-8);
    EXPECT_NEAR(test_support::Deviation(data), test_support::Deviation(wanted), 1e-8);
  }
}

TEST(GapRuns, AFailureAnywhereIsTold) {
  GapScene gaps(14, GapShape::kSpeckles, PDT_UINT16);
  gaps.Write(0.0);
  FusionParam param = Masked(gaps.scene, PDT_UINT16);
  param.m_bSpectralMatch = true;
  int failed = 0;
  for (int n = 0;; ++n) {
    std::atomic<int> left = n;
    platform::SetRasterFault(
        [&](platform::RasterOperation, const std::wstring&, int, const CRect&) { return left.fetch_sub(1) == 0; });
    CBroveyFusion fusion(&param);
    fusion.Process();
    platform::SetRasterFault({});
    if (left >= 0) break;  // this run needed no more than n operations
    // A failed pass over a band's figures is not the run's, as without gaps.
    if (fusion.GetLastErrorType() != 0) ++failed;
    ASSERT_LT(n, 1000);
  }
  EXPECT_GT(failed, 8);
  EXPECT_TRUE(Brovey(param).declaresZero);
}

TEST(GapRuns, ARecordsCopyKeepsTheMode) {
  FusionParam param;
  EXPECT_FALSE(param.m_bMaskNoData);
  param.m_bMaskNoData = true;
  FusionParam assigned;
  assigned = FusionParam(param);
  EXPECT_TRUE(assigned.m_bMaskNoData);
}

}  // namespace
