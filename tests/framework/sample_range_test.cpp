// Values that bicubic resampling makes, kept between the samples that they are made from.
#include "framework/resampling/sample_range.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "band_arithmetic/multiple_fusion.h"
#include "framework/resampling/kernels.h"
#include "tests/support/method_sweep.h"

namespace {

using reference::Image;
using test_support::ReadImage;
using test_support::Scene;
using test_support::SceneOptions;

/// The definition: cut to the least and the largest of the sixteen samples around (x, y) that are there.
double Kept(double value, double x, double y, const std::vector<double>& samples, const CRect& rect) {
  double least = INFINITY;
  double most = -INFINITY;
  const int column = static_cast<int>(std::floor(x));
  const int row = static_cast<int>(std::floor(y));
  for (int r = std::max(row - 1, rect.top); r <= std::min(row + 2, rect.bottom - 1); ++r) {
    for (int c = std::max(column - 1, rect.left); c <= std::min(column + 2, rect.right - 1); ++c) {
      const double v = samples[static_cast<std::size_t>((r - rect.top) * rect.Width() + c - rect.left)];
      if (v < least) least = v;
      if (v > most) most = v;
    }
  }
  return least > most ? value : std::min(std::max(value, least), most);
}

TEST(SampleRange, IsThatOfTheKernelsTaps) {
  std::mt19937 random(8);
  std::uniform_real_distribution<double> sample(0.0, 100.0);
  std::uniform_real_distribution<double> value(-200.0, 300.0);
  for (int round = 0; round < 200; ++round) {
    const int left = static_cast<int>(random() % 7) - 3;
    const int top = static_cast<int>(random() % 7) - 3;
    const CRect rect(left, top, left + 1 + static_cast<int>(random() % 9), top + 1 + static_cast<int>(random() % 9));
    std::vector<std::vector<double>> bands(2, std::vector<double>(static_cast<std::size_t>(rect.Area())));
    for (auto& band : bands) {
      for (double& v : band) v = random() % 5 == 0 ? std::nan("") : sample(random);
    }
    const double* pointers[] = {bands[0].data(), bands[1].data()};
    const fusion::SampleRange range(pointers, 2, rect);
    std::uniform_real_distribution<double> columns(std::max(rect.left, 0), std::max(rect.right, 1));
    std::uniform_real_distribution<double> rows(std::max(rect.top, 0), std::max(rect.bottom, 1));
    for (int i = 0; i < 20; ++i) {
      const double x[] = {columns(random), rect.right + 40.0, columns(random)};
      const double y[] = {rows(random), rows(random), rect.bottom + 3.0};
      double values[2][3];
      double expected[2][3];
      double* out[] = {values[0], values[1]};
      for (std::size_t b = 0; b < 2; ++b) {
        for (std::size_t k = 0; k < 3; ++k) values[b][k] = expected[b][k] = value(random);
        const bool isOnIt = x[0] < rect.right && y[0] < rect.bottom;
        if (isOnIt) expected[b][0] = Kept(values[b][0], x[0], y[0], bands[b], rect);
      }
      range.Keep(x, y, 3, out);
      for (std::size_t b = 0; b < 2; ++b) {
        for (std::size_t k = 0; k < 3; ++k) ASSERT_EQ(values[b][k], expected[b][k]) << k << " off the rectangle from 1";
      }
    }
    // The same for rows of columns.
    const double x[] = {columns(random), rect.right + 40.0, columns(random), rect.right - 1.0};
    fusion::RowLimits limits(range);
    limits.SetColumns(x, 4);
    for (int i = 0; i < 8; ++i) {
      const double y = i == 3 ? rect.bottom + 3.0 : rows(random);
      std::vector<std::vector<double>> kept(2, std::vector<double>(4));
      for (auto& band : kept) std::generate(band.begin(), band.end(), [&] { return value(random); });
      auto expected = kept;
      for (std::size_t b = 0; b < 2; ++b) {
        for (std::size_t k = 0; k < 4; ++k) {
          const bool isOnIt = x[k] < rect.right && x[k] >= rect.left && y < rect.bottom;
          if (isOnIt) expected[b][k] = Kept(kept[b][k], x[k], y, bands[b], rect);
        }
      }
      double* const out[] = {kept[0].data(), kept[1].data()};
      limits.Keep(y, out);
      ASSERT_EQ(kept, expected) << i;
    }
  }
}

/// Bands times a pan of 1.
Image Resampled(FusionParam param) {
  CMultipleFusion fusion(&param);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  return ReadImage(param.m_strOutFile);
}

void MakePanOne(Scene& scene, const std::string& wkt = "") {
  scene.pan.bands[0].assign(scene.pan.bands[0].size(), 1.0);
  test_support::WriteImage(scene.pan, scene.panFile, PDT_UINT16, wkt);
}

TEST(SampleRange, IsKeptByRunsThatAreToldTo) {
  for (const double ratio : {2.0, 4.0, 2.37}) {
    SceneOptions options;
    options.ratio = ratio;
    Scene scene(61, options);
    MakePanOne(scene);
    for (const ResampleType type : fusion::kResampleTypes) {
      FusionParam param = scene.Param(PDT_FLOAT64);
      param.m_eResampleType = type;
      const Image plain = Resampled(param);
      param.m_bKeepSampleRange = true;
      const Image kept = Resampled(param);
      EXPECT_EQ(plain.bands == kept.bands, type != RT_BICUBIC) << type;
      const CRect whole(0, 0, scene.ms.width, scene.ms.height);
      for (std::size_t i = 0; i < plain.bands[0].size(); ++i) {
        const double* p = scene.pan.geoTransform;
        const std::size_t row = i / 37;
        const auto at = reference::GroundToSample(scene.ms, p[0] + (static_cast<double>(i % 37) + 0.5) * p[1],
                                                  p[3] + (static_cast<double>(row) + 0.5) * p[5]);
        for (std::size_t b = 0; b < 3; ++b) {
          ASSERT_EQ(kept.bands[b][i], Kept(plain.bands[b][i], at.x, at.y, scene.ms.bands[b], whole))
              << type << ' ' << i;
        }
      }
    }
  }
}

TEST(SampleRange, IsKeptUnderAReprojectionAndBesideGaps) {
  for (const bool masked : {false, true}) {
    test_support::ReprojectedScene reprojected(62);
    Scene& scene = reprojected.Base();
    MakePanOne(scene, test_support::UtmWkt());
    Image ms = scene.ms;
    for (auto& band : ms.bands) {
      for (std::size_t i = 0; i < band.size(); ++i) band[i] = masked && i % 11 == 0 ? 0.0 : i % 7 == 0 ? 900.0 : 20.0;
    }
    test_support::WriteImage(ms, scene.msFile, PDT_UINT16, test_support::Wgs84Wkt(),
                             masked ? std::optional(0.0) : std::nullopt);
    FusionParam param = scene.Param(PDT_FLOAT64);
    param.m_bNeedReproject = true;
    param.m_bMaskNoData = masked;
    const auto beyond = [&] {
      const Image out = Resampled(param);
      return std::count_if(out.bands[0].begin(), out.bands[0].end(),
                           [&](double v) { return (v < 20.0 || v > 900.0) && !(masked && v == 0.0); });
    };
    EXPECT_GT(beyond(), 50);
    param.m_bKeepSampleRange = true;
    EXPECT_EQ(beyond(), 0) << masked;
  }
}

}  // namespace
