// What a fusion by an estimated model gives, and where it lies.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "platform/raster/raster_source.h"
#include "tests/highpass/estimated.h"
#include "tests/support/scene.h"

namespace {

using highpass_test::Estimated;
using highpass_test::ExpectLowPass;
using highpass_test::ExpectModel;
using highpass_test::FuseWith;
using test_support::ReadImage;
using test_support::SeenOptions;
using test_support::SeenScene;

TEST(BayesianEstimator, TheFusedImageIsNearerToTheTruthThanTheResampledOne) {
  for (const double ratio : {2.0, 4.0}) {
    const SeenScene scene(50, {.ratioX = ratio, .ratioY = ratio});
    const auto error = [&](double weight) {
      const BayesianFusionParam param = scene.Record(weight);
      const auto out = FuseWith(param, Estimated(param).model);
      EXPECT_EQ(out.size(), scene.truth.size());
      double sum = 0.0;
      for (std::size_t b = 0; b < out.size(); ++b) {
        for (int y = 8; y < scene.pan.height - 8; ++y) {
          for (int x = 8; x < scene.pan.width - 8; ++x) {
            const auto i = static_cast<std::size_t>(y * scene.pan.width + x);
            sum += std::pow(out[b][i] - scene.truth[b][i], 2);
          }
        }
      }
      return std::sqrt(sum);
    };
    EXPECT_LT(error(0.5), 0.5 * error(0.0));
    EXPECT_LT(error(0.25), error(0.0));
  }
}

TEST(BayesianEstimator, AWeightOfNothingIsPlainUpsampling) {
  const SeenScene scene(51, {});
  const BayesianFusionParam param = scene.Record(0.0);
  const auto out = FuseWith(param, Estimated(param).model);
  reference::Run run;
  run.pan = &scene.pan;
  run.ms = &scene.ms;
  run.process = {0, 0, scene.pan.width, scene.pan.height};
  for (std::size_t b = 0; b < scene.ms.bands.size(); ++b) run.msBands.push_back(static_cast<int>(b));
  run.outBandCount = static_cast<int>(scene.ms.bands.size());
  run.arithmetic = [](const reference::Pixel& pixel) { return pixel.ms; };
  EXPECT_EQ(out, reference::Fuse(run));
}

TEST(BayesianEstimator, AMovedImageIsFusedInItsPlace) {
  const SeenOptions straight{.ratioX = 4.0, .ratioY = 4.0};
  SeenOptions moved = straight;
  moved.moveX = 1.5;
  moved.moveY = -2.25;
  const SeenScene there(52, straight);
  const auto expected = FuseWith(there.Record(), Estimated(there.Record()).model);
  const SeenScene scene(52, moved);
  const BayesianFusionParam param = scene.Record();
  const Estimated found(param, BayesianRegistration::kMove);
  EXPECT_TRUE(found.estimate.moved);
  EXPECT_NEAR(found.estimate.shiftX, 1.5, 0.13);
  EXPECT_NEAR(found.estimate.shiftY, -2.25, 0.13);
  EXPECT_GE(found.estimate.agreement, 0.75);
  // To the right on the ground, and up where rows go down.
  EXPECT_DOUBLE_EQ(found.source.geoTransform[0], scene.ms.geoTransform[0] + found.estimate.shiftX * 10.0);
  EXPECT_DOUBLE_EQ(found.source.geoTransform[3], scene.ms.geoTransform[3] - found.estimate.shiftY * 10.0);
  ExpectLowPass(found, scene);
  ExpectModel(found, scene);
  // The output covers what it would have covered.
  const auto out = FuseWith(param, found.model);
  EXPECT_EQ(ReadImage(param.m_strOutFile).width, scene.pan.width);
  double apart = 0.0;
  double left = 0.0;
  const auto unmoved = FuseWith(param, Estimated(param, BayesianRegistration::kOff).model);
  for (int y = 20; y < scene.pan.height - 20; ++y) {
    for (int x = 20; x < scene.pan.width - 20; ++x) {
      const auto i = static_cast<std::size_t>(y * scene.pan.width + x);
      apart += std::fabs(out[0][i] - expected[0][i]);
      left += std::fabs(unmoved[0][i] - expected[0][i]);
    }
  }
  EXPECT_LT(apart, 0.3 * left);
}

TEST(BayesianEstimator, AShiftBetweenTwoCoordinateSystemsIsFoundInPanPixels) {
  const SeenOptions straight{.ratioX = 4.0, .ratioY = 4.0, .degrees = true};
  const SeenScene there(65, straight);
  const Estimated still(there.Record(), BayesianRegistration::kMove);
  EXPECT_FALSE(still.estimate.moved);
  EXPECT_NEAR(still.estimate.blur, 1.0, 0.06);
  for (const auto& [x, y] : {std::pair(1.5, -2.25), {-1.0, 3.0}}) {
    SeenOptions options = straight;
    options.moveX = x;
    options.moveY = y;
    SeenScene scene(65, options);
    const Estimated found(scene.Record(), BayesianRegistration::kMove);
    EXPECT_TRUE(found.estimate.moved);
    EXPECT_NEAR(found.estimate.shiftX, x, 0.13);
    EXPECT_NEAR(found.estimate.shiftY, y, 0.13);
    EXPECT_NEAR(found.estimate.blur, 1.0, 0.06);
    // The source's pixels lie that much farther on, in pan pixels, wherever they lie in degrees.
    std::vector<reference::Position> before;
    const std::pair<int, int> places[] = {{0, 0}, {63, 0}, {30, 28}, {0, 55}, {63, 55}};
    for (const auto& [column, row] : places) before.push_back(scene.Place(column, row));
    std::copy_n(found.source.geoTransform, 6, scene.ms.geoTransform);
    for (std::size_t i = 0; i < before.size(); ++i) {
      const reference::Position after = scene.Place(places[i].first, places[i].second);
      EXPECT_NEAR(after.x - before[i].x, found.estimate.shiftX, 0.01);
      EXPECT_NEAR(after.y - before[i].y, found.estimate.shiftY, 0.01);
    }
    const auto fused = FuseWith(scene.Record(), found.model);
    const auto left = FuseWith(scene.Record(), Estimated(scene.Record()).model);
    const reference::Image out = ReadImage(scene.Record().m_strOutFile);
    // Against the truth, in the middle, where all of them are.
    const int across = static_cast<int>(std::lround((out.geoTransform[0] - scene.pan.geoTransform[0]) / 10.0));
    const int down = static_cast<int>(std::lround((scene.pan.geoTransform[3] - out.geoTransform[3]) / 10.0));
    const auto error = [&](const std::vector<double>& band) {
      double sum = 0.0;
      for (int r = 60; r < out.height - 60; ++r) {
        for (int c = 60; c < out.width - 60; ++c) {
          const auto truth = static_cast<std::size_t>((r + down) * scene.pan.width + c + across);
          sum += std::pow(band[static_cast<std::size_t>(r * out.width + c)] - scene.truth[0][truth], 2);
        }
      }
      return std::sqrt(sum);
    };
    ASSERT_EQ(fused[0].size(), left[0].size());
    EXPECT_LT(error(fused[0]), 0.6 * error(left[0]));
  }
}

TEST(BayesianEstimator, AShiftIsReportedOrNotLookedFor) {
  const SeenScene scene(53, {.ratioX = 2.0, .ratioY = 2.0, .blur = 0.8, .moveX = 1.0, .moveY = 0.5});
  const Estimated off(scene.Record());
  EXPECT_FALSE(off.estimate.moved);
  EXPECT_EQ(off.estimate.shiftX, 0.0);
  EXPECT_EQ(off.estimate.agreement, 0.0);
  const Estimated told(scene.Record(), BayesianRegistration::kReport);
  EXPECT_FALSE(told.estimate.moved);
  EXPECT_NEAR(told.estimate.shiftX, 1.0, 0.13);
  EXPECT_NEAR(told.estimate.shiftY, 0.5, 0.13);
  EXPECT_EQ(told.estimate.score, off.estimate.score);
  EXPECT_EQ(told.model.transform, off.model.transform);
  EXPECT_EQ(told.model.panCovariance, off.model.panCovariance);
  EXPECT_EQ(told.source.bands, off.source.bands);
  EXPECT_EQ(told.source.geoTransform[0], scene.ms.geoTransform[0]);
  EXPECT_GT(Estimated(scene.Record(), BayesianRegistration::kMove).estimate.score, told.estimate.score);
}

TEST(BayesianEstimator, ImagesSeenNorthUpAreFusedAsTheyAreSeen) {
  const SeenScene scene(61, {.ratioX = 3.0, .ratioY = 3.0, .msWidth = 60, .msHeight = 60, .turn = 0.1});
  const BayesianFusionParam param = scene.Record();
  const Estimated found(param);
  CRasterSource seen;
  ASSERT_TRUE(seen.Open(scene.msFile, GDA_READ, true));
  EXPECT_EQ(found.source.width, seen.GetWidth());
  EXPECT_EQ(found.source.geoTransform[2], 0.0);
  EXPECT_EQ(FuseWith(param, found.model).size(), 3U);
}

}  // namespace
