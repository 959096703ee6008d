// In what pieces an estimation goes over its images, and what it keeps of them.
#include <gtest/gtest.h>

#include <cmath>

#include "platform/raster/raster_fault.h"
#include "tests/highpass/estimated.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"

namespace {

using highpass_test::Estimated;
using highpass_test::ExpectLowPass;
using highpass_test::ExpectModel;
using test_support::SeenScene;

TEST(BayesianEstimator, ReadsInBoundedPieces) {
  const SeenScene scene(63, {.ratioX = 8.0, .ratioY = 8.0, .msWidth = 64, .msHeight = 600});
  std::int64_t largest = 0;
  platform::SetRasterFault([&](platform::RasterOperation op, const std::wstring&, int, const CRect& rect) {
    if (op == platform::RasterOperation::kRead) largest = std::max(largest, rect.Area());
    return false;
  });
  const Estimated found(scene.Record());
  platform::SetRasterFault({});
  EXPECT_LT(largest, scene.pan.width * scene.pan.height / 3);
  ExpectLowPass(found, scene);
  ExpectModel(found, scene);
}

TEST(BayesianEstimator, OfAHugeSceneAMillionPixelsTellTheGains) {
  // A texture that repeats itself, so that parts of it tell what all of it does.
  SeenScene scene(64, {.ratioX = 1.5, .ratioY = 1.5, .bands = 2, .msWidth = 40, .msHeight = 40, .blur = 0.9});
  const auto small = Estimated(scene.Record());
  const auto repeat = [](reference::Image& image, int times) {
    reference::Image large = image;
    large.width *= times;
    large.height *= times;
    for (auto& band : large.bands) band.clear();
    for (std::size_t b = 0; b < image.bands.size(); ++b) {
      for (int y = 0; y < large.height; ++y) {
        const auto* row = image.bands[b].data() + static_cast<std::ptrdiff_t>(y % image.height) * image.width;
        for (int t = 0; t < times; ++t) large.bands[b].insert(large.bands[b].end(), row, row + image.width);
      }
    }
    image = large;
  };
  repeat(scene.pan, 45);
  repeat(scene.ms, 45);
  scene.Write();
  const BayesianFusionParam param = scene.Record();
  const Estimated found(param);
  EXPECT_GT(found.estimate.samples, 800'000);
  EXPECT_LT(found.estimate.samples, 1'400'000);
  EXPECT_NEAR(found.estimate.gains[0], small.estimate.gains[0], 0.1 * small.estimate.gains[0]);
  // The low-passed pan is everywhere.
  int missing = 0;
  for (const double v : found.source.bands.back()) missing += v == 0.0 ? 1 : 0;
  EXPECT_EQ(missing, 0);
  // And missing with the bands in every row, wherever the gains come from.
  for (auto& band : scene.ms.bands) {
    for (int y = 0; y < scene.ms.height; ++y) band[static_cast<std::size_t>(y * scene.ms.width + 5)] = NAN;
  }
  scene.Write();
  BayesianFusionParam masked = scene.Record();
  masked.m_bMaskNoData = true;
  const Estimated gaps(masked);
  for (int y = 0; y < scene.ms.height; ++y) {
    ASSERT_TRUE(std::isnan(gaps.source.bands.back()[static_cast<std::size_t>(y * scene.ms.width + 5)])) << y;
  }
}

TEST(BayesianEstimator, ThreadsFindTheSame) {
  const SeenScene scene(59, {.ratioX = 4.0, .ratioY = 4.0, .msWidth = 80, .msHeight = 300, .moveX = 1.0});
  const Estimated one(scene.Record(), BayesianRegistration::kMove, false);
  const Estimated many(scene.Record(), BayesianRegistration::kMove, true);
  EXPECT_EQ(one.model.transform, many.model.transform);
  EXPECT_EQ(one.model.panCovariance, many.model.panCovariance);
  EXPECT_EQ(one.source.bands, many.source.bands);
  EXPECT_EQ(one.estimate.score, many.estimate.score);
}

TEST(BayesianEstimator, ALargeLowPassLiesBesideTheOutputAndGoesWithTheModel) {
  SeenScene scene(62, {.ratioX = 1.0, .ratioY = 1.0, .msWidth = 20, .msHeight = 20});
  for (reference::Image* image : {&scene.pan, &scene.ms}) {
    image->width = 4200;
    image->height = 1000;
    for (auto& band : image->bands) band.assign(4200 * 1000, 5.0);
    image->bands[0][77777] = 6.0;
  }
  scene.Write();
  BayesianFusionParam param = scene.Record();
  param.m_strOutFile = L"/vsimem/beside_out.tif";
  const auto files = [] { return test_support::FilesNamedLike(L"beside_out").size(); };
  {
    BayesianModelEstimator estimator(param);
    estimator.Process();
    EXPECT_EQ(estimator.GetLastErrorType(), 0);
    EXPECT_EQ(files(), 1U);  // 4.2 million doubles
    const BayesianModel kept = estimator.GetModel();
    estimator.Process();
    EXPECT_EQ(files(), 2U);
  }
  EXPECT_EQ(files(), 0U);
  EXPECT_TRUE(test_support::FilesNamedLike(L"fusion_low_pass").empty());
  EXPECT_TRUE(test_support::FilesNamedLike(L"fusion_view").empty());
}

}  // namespace
