// The row kernel against the published operations, pixel by pixel: positions, resampling, area of interest.
#include "framework/row_kernel.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>

#include "framework/fusion.h"
#include "framework/resampling/kernels.h"
#include "tests/support/method_sweep.h"
#include "tests/support/scene.h"
#include "tests/support/test_raster.h"

namespace {

using test_support::Scene;
using test_support::SceneOptions;

/// Hands on the resampled bands, and holds each value against Resample at the position that the rasters give.
class Resampled : public CFusion {
 public:
  using CFusion::CFusion;
  void** AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect,
                          PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI* aoi) override {
    void** result = FuseRows({pan, panRect, nullptr, ms, msBandCount, msRect, outType, outBandCount, dstBlock, aoi}, {},
                             [](const fusion::FusionRow& row) {
                               for (int b = 0; b < row.outBandCount; ++b) std::copy_n(row.ms[b], row.width, row.out[b]);
                             });
    std::vector<double> expected(static_cast<std::size_t>(msBandCount));
    std::size_t at = 0;
    for (int row = panRect->top; row < panRect->bottom; ++row) {
      for (int column = panRect->left; column < panRect->right; ++column, ++at) {
        double x = 0.0;
        double y = 0.0;
        if (m_pReproject) {
          // The output's whole-number pixel, without the half.
          m_pDstSrc->ImageToGround(column - panRect->left + dstBlock->left, row - panRect->top + dstBlock->top, x, y);
          m_pReproject->GetSrcPos(&x, &y, &x, &y, 1);
        } else {
          m_pPanSrc->ImageToGround(column + 0.5, row + 0.5, x, y);
          m_pMSSrc->GroundToImage(x, y, x, y);
        }
        std::fill(expected.begin(), expected.end(), 0.0);
        Resample(x, y, const_cast<const double**>(ms), msBandCount, msRect, expected.data());
        if (aoi && !aoi->IsInAOI(column, row)) {
          std::fill(expected.begin(), expected.end(), 0.0);
          ++outside;
        }
        for (std::size_t b = 0; b < expected.size(); ++b) {
          const double value = static_cast<double*>(result[b])[at];
          if (value != expected[b] && ++wrong < 5) {
            ADD_FAILURE() << "column " << column << " row " << row << ": " << value << " instead of " << expected[b];
          }
        }
        ++seen;
      }
    }
    return result;
  }
  int seen = 0;
  int outside = 0;
  int wrong = 0;
};

/// Shares each block out among OpenMP's threads again and again.
class Repeated : public CFusion {
 public:
  using CFusion::CFusion;
  void** AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect,
                          PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI* aoi) override {
    fusion::RowPolicy policy;
    policy.parallelRows = true;
    void** result = nullptr;
    for (int i = 0; i < 4000; ++i) {
      fusion::FreeBlock(outType, outBandCount, result);
      result = FuseRows({pan, panRect, nullptr, ms, msBandCount, msRect, outType, outBandCount, dstBlock, aoi}, policy,
                        [](const fusion::FusionRow& row) {
                          for (int b = 0; b < row.outBandCount; ++b) std::copy_n(row.ms[b], row.width, row.out[b]);
                        });
    }
    return result;
  }
};

TEST(RowKernelThreads, OfOpenMpEndTogetherHoweverOften) {
  SceneOptions options;
  options.panWidth = options.panHeight = 16;
  const Scene scene(44, options);
  const FusionParam given = scene.Param();
  for (const int threads : {2, 4}) {
    FusionParam param = given;
    Repeated fusion(&param);
    const int before = omp_get_max_threads();
    omp_set_num_threads(threads);
    fusion.Process();
    omp_set_num_threads(before);
    EXPECT_TRUE(fusion.Succeeded());
  }
}

class RowKernel : public testing::TestWithParam<ResampleType> {
 protected:
  static FusionParam Param(const Scene& scene) {
    FusionParam param = scene.Param();
    param.m_eResampleType = GetParam();
    param.m_bOpenOption = false;
    return param;
  }
};

TEST_P(RowKernel, FollowsImagesThatAreRotated) {
  const double upright[] = {440000.0, 10.0, 0.0, 4470000.0, 0.0, -10.0};
  const double turned[] = {440000.0, 8.0, 6.0, 4470000.0, 6.0, -8.0};
  const double msUpright[] = {439950.0, 20.0, 0.0, 4470210.0, 0.0, -20.0};
  const double msTurned[] = {439960.0, 19.0, 2.0, 4470100.0, 2.0, -19.0};
  Scene scene(41);
  for (const double* pan : {upright, turned}) {
    for (const double* ms : {msUpright, msTurned}) {
      SCOPED_TRACE(std::string(pan == turned ? "pan turned " : "") + (ms == msTurned ? "ms turned" : ""));
      std::copy_n(pan, 6, scene.pan.geoTransform);
      std::copy_n(ms, 6, scene.ms.geoTransform);
      test_support::WriteImage(scene.pan, scene.panFile, PDT_UINT16);
      test_support::WriteImage(scene.ms, scene.msFile, PDT_UINT16);
      FusionParam param = Param(scene);
      param.m_rcProcess = {6, 5, 20, 17};
      Resampled fusion(&param);
      fusion.Process();
      EXPECT_EQ(fusion.GetLastErrorType(), 0);
      EXPECT_EQ(fusion.seen, 14 * 12);
    }
  }
}

TEST_P(RowKernel, FollowsAReprojection) {
  test_support::ReprojectedScene reprojected(43);
  FusionParam param = Param(reprojected.Base());
  param.m_rcProcess = {2, 3, 30, 27};
  param.m_bNeedReproject = true;
  Resampled fusion(&param);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  EXPECT_EQ(fusion.seen, 28 * 24);
}

TEST_P(RowKernel, AnUnknownOutputTypeYieldsNoBlock) {
  class Typed : public Resampled {
   public:
    using Resampled::Resampled;
    void** AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect, PixelDataType,
                            int outBandCount, CRect* dstBlock, CRasterAOI* aoi) override {
      for (const int type : {-1, 0, 8}) {
        const auto outType = static_cast<PixelDataType>(type);
        EXPECT_EQ(
            FuseRows({pan, panRect, nullptr, ms, msBandCount, msRect, outType, outBandCount, dstBlock, aoi}, {}, {}),
            nullptr);
        ++seen;
      }
      return nullptr;
    }
  };
  const Scene scene(44);
  FusionParam param = Param(scene);
  Typed fusion(&param);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  EXPECT_EQ(fusion.seen, 3);
}

TEST_P(RowKernel, WorksOnRowsOfAnyLength) {
  SceneOptions options;
  options.panWidth = 4500;
  options.panHeight = 6;
  options.ratio = 2.5;
  const Scene scene(42, options);
  FusionParam param = Param(scene);
  Resampled whole(&param);
  whole.Process();
  EXPECT_EQ(whole.GetLastErrorType(), 0);
  EXPECT_EQ(whole.seen, 4500 * 6);

  param.m_strAoiFile = test_support::MemoryPath(L"csv");
  test_support::WriteTriangle(param.m_strAoiFile, {440000.0, 4470000.0}, {485000.0, 4470000.0}, {440000.0, 4469940.0});
  Resampled masked(&param);
  masked.Process();
  EXPECT_EQ(masked.GetLastErrorType(), 0);
  EXPECT_GT(masked.outside, 4500 * 2);
}

INSTANTIATE_TEST_SUITE_P(Resamplings, RowKernel, testing::ValuesIn(fusion::kResampleTypes));

}  // namespace
