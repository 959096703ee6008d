// What an estimation makes of its images, held against the definition: pan low-passed pixel by pixel, and the model
// that its moments give.
#include "highpass/bayesian_model.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/highpass/estimated.h"
#include "tests/support/scene.h"

namespace {

using highpass_test::Estimated;
using highpass_test::ExpectLowPass;
using highpass_test::ExpectModel;
using highpass_test::FuseWith;
using test_support::LowPassOf;
using test_support::SeenOptions;
using test_support::SeenScene;
using test_support::WriteImage;

TEST(BayesianEstimator, FollowsTheDefinitionForRatiosBandsAndBlurs) {
  const SeenOptions cases[] = {{.ratioX = 4.0, .ratioY = 4.0},
                               {.ratioX = 2.0, .ratioY = 2.0, .bands = 2, .blur = 0.8},
                               {.ratioX = 1.5, .ratioY = 1.5, .bands = 3, .blur = 1.2},
                               {.ratioX = 8.0, .ratioY = 8.0, .msWidth = 60, .msHeight = 48, .blur = 0.9},
                               {.ratioX = 3.0, .ratioY = 2.0, .blur = 0.9},
                               {.ratioX = 2.0, .ratioY = 2.0, .bands = 12, .msWidth = 70},
                               {.ratioX = 2.37, .ratioY = 2.37, .southUp = true}};
  unsigned seed = 40;
  for (const SeenOptions& options : cases) {
    const SeenScene scene(++seed, options);
    SCOPED_TRACE("ratio " + std::to_string(options.ratioX) + ", bands " + std::to_string(options.bands));
    for (const double weight : {0.5, 0.2}) {
      const Estimated found(scene.Record(weight));
      EXPECT_NEAR(found.estimate.blur, options.blur, 0.06);
      EXPECT_EQ(found.estimate.doubt, BayesianDoubt::kNone);
      EXPECT_GT(found.estimate.score, 0.9);
      EXPECT_GT(found.estimate.gains[0], 0.1);
      ASSERT_EQ(found.source.bands.size(), scene.ms.bands.size() + 1);
      for (std::size_t b = 0; b < scene.ms.bands.size(); ++b) EXPECT_EQ(found.source.bands[b], scene.ms.bands[b]);
      ExpectLowPass(found, scene);
      ExpectModel(found, scene, weight);
    }
  }
}

TEST(BayesianEstimator, TurnedImagesAreLowPassedAtTheirPixels) {
  // Turned by some degrees, and seen as it lies.
  const SeenScene scene(60, {.ratioX = 3.0, .ratioY = 3.0, .msWidth = 60, .msHeight = 60, .turn = 0.1});
  BayesianFusionParam param = scene.Record();
  param.m_bOpenOption = false;
  const Estimated found(param, BayesianRegistration::kMove);
  EXPECT_FALSE(found.estimate.moved);
  EXPECT_GT(found.estimate.score, 0.9);
  ExpectLowPass(found, scene, 500);
}

TEST(BayesianEstimator, PixelsWithoutDataCountNowhereAndArePredictedFromTheBands) {
  SeenScene scene(54, {.ratioX = 2.0, .ratioY = 2.0, .blur = 0.8});
  const auto clean = Estimated(scene.Record());
  for (int y = 30; y < 60; ++y) {
    for (int x = 40; x < 70; ++x) scene.pan.bands[0][static_cast<std::size_t>(y * scene.pan.width + x)] = -7.0;
  }
  for (int y = 40; y < 50; ++y) {
    for (int x = 44; x < 60; ++x) {
      for (auto& band : scene.ms.bands) band[static_cast<std::size_t>(y * scene.ms.width + x)] = -7.0;
    }
  }
  scene.ms.bands[1][400] = NAN;
  scene.Write(-7.0);
  BayesianFusionParam param = scene.Record();
  param.m_bMaskNoData = true;
  const Estimated found(param);
  EXPECT_LT(found.estimate.samples, clean.estimate.samples);
  EXPECT_NEAR(found.estimate.gains[0], clean.estimate.gains[0], 0.05 * clean.estimate.gains[0]);
  for (double& v : scene.pan.bands[0]) v = v == -7.0 ? NAN : v;
  const auto known = LowPassOf(scene, found.estimate.isBox, found.estimate.blur, 0.0, 0.0);
  // Where no band has data neither has the low-passed pan; in a gap of pan it is about what it would have been.
  const auto& lowPass = found.source.bands.back();
  const auto& before = clean.source.bands.back();
  int without = 0;
  for (std::size_t i = 0; i < lowPass.size(); ++i) {
    if (scene.ms.bands[0][i] == -7.0) {
      EXPECT_TRUE(std::isnan(lowPass[i])) << i;
      ++without;
      continue;
    }
    if (std::isfinite(known[i])) {
      ASSERT_NEAR(lowPass[i], known[i], 1e-3) << i;
    }
    ASSERT_TRUE(std::isfinite(lowPass[i])) << i;
    ASSERT_NEAR(lowPass[i], before[i], 90.0) << i;
  }
  EXPECT_EQ(without, 160);
}

TEST(BayesianEstimator, TakesTheChosenBandsInTheirOrderAndTheChosenPanBand) {
  SeenScene scene(55, {.ratioX = 2.0, .ratioY = 2.0, .bands = 4, .blur = 0.8});
  BayesianFusionParam param = scene.Record();
  param.m_vecMSBands = {3, 0};
  const Estimated found(param);
  ASSERT_EQ(found.source.bands.size(), 3U);
  EXPECT_EQ(found.source.bands[0], scene.ms.bands[3]);
  EXPECT_EQ(found.source.bands[1], scene.ms.bands[0]);
  EXPECT_EQ(FuseWith(param, found.model).size(), 2U);

  reference::Image twoBands = scene.pan;
  twoBands.bands.insert(twoBands.bands.begin(), std::vector<double>(twoBands.bands[0].size(), 3.0));
  WriteImage(twoBands, scene.panFile, PDT_FLOAT64);
  param.m_nPanBand = 1;
  const Estimated second(param);
  EXPECT_EQ(second.model.transform, found.model.transform);
  EXPECT_EQ(second.source.bands, found.source.bands);
}

TEST(BayesianEstimator, LooksAtTheCommonGroundWhateverTheWindow) {
  const SeenScene scene(56, {.ratioX = 2.0, .ratioY = 2.0, .msWidth = 120, .msHeight = 110, .blur = 0.8});
  const Estimated whole(scene.Record());
  BayesianFusionParam param = scene.Record();
  param.m_rcProcess = {30, 30, 90, 90};
  const Estimated window(param);
  EXPECT_EQ(window.model.transform, whole.model.transform);
  EXPECT_EQ(window.source.bands, whole.source.bands);
  const Estimated part(scene.Record(), BayesianRegistration::kOff, false, {60, 40, 160, 180});
  EXPECT_LT(part.estimate.samples, whole.estimate.samples);
  EXPECT_NE(part.model.transform, whole.model.transform);
  EXPECT_NEAR(part.estimate.gains[0], whole.estimate.gains[0], 0.1 * whole.estimate.gains[0]);
}

TEST(BayesianEstimator, FarPartsOfAPartlyCommonImageDoNotMatter) {
  SeenScene scene(57, {.ratioX = 2.0, .ratioY = 2.0, .msWidth = 120, .msHeight = 110, .blur = 0.8});
  reference::Image corner = scene.pan;
  corner.width = 120;
  corner.height = 100;
  corner.bands[0] = {};
  for (int y = 40; y < 140; ++y) {
    for (int x = 50; x < 170; ++x) {
      corner.bands[0].push_back(scene.pan.bands[0][static_cast<std::size_t>(y * scene.pan.width + x)]);
    }
  }
  corner.geoTransform[0] += 50 * 10.0;
  corner.geoTransform[3] -= 40 * 10.0;
  WriteImage(corner, scene.panFile, PDT_FLOAT64);
  const Estimated found(scene.Record());
  // The bands from which the low-pass beyond pan is predicted are those beneath it alone.
  for (std::size_t i = 0; i < 120; ++i) scene.ms.bands[0][i] = 9999.0;
  WriteImage(scene.ms, scene.msFile, PDT_FLOAT64);
  const Estimated again(scene.Record());
  EXPECT_EQ(again.model.transform, found.model.transform);
  EXPECT_EQ(again.source.bands.back(), found.source.bands.back());
  const auto out = FuseWith(scene.Record(), found.model);
  EXPECT_EQ(out[0].size(), corner.bands[0].size());
}

TEST(BayesianEstimator, AllPixelTypesGiveAModel) {
  for (int type = PDT_UINT8; type <= PDT_FLOAT64; ++type) {
    SeenScene scene(58, {.ratioX = 2.0, .ratioY = 2.0, .blur = 0.8});
    const double scale = type == PDT_UINT8 ? 0.15 : type == PDT_UINT16 || type == PDT_INT16 ? 20.0 : 1000.0;
    const auto convert = [&](reference::Image& image) {
      for (auto& band : image.bands) {
        for (double& v : band) v = std::clamp(std::round(v * scale), 0.0, type == PDT_UINT8 ? 255.0 : 4e6);
      }
    };
    convert(scene.pan);
    convert(scene.ms);
    WriteImage(scene.pan, scene.panFile, static_cast<PixelDataType>(type));
    WriteImage(scene.ms, scene.msFile, static_cast<PixelDataType>(type));
    SCOPED_TRACE(type);
    const Estimated found(scene.Record());
    EXPECT_NEAR(found.estimate.blur, 0.8, 0.06);
    const auto expected = LowPassOf(scene, found.estimate.isBox, found.estimate.blur, 0.0, 0.0);
    for (std::size_t i = 0; i < expected.size(); ++i) {
      if (std::isnan(expected[i])) continue;
      // Wide pan types keep all of the low-pass, as their detail may be a small part of them.
      const bool wide = type == PDT_UINT32 || type == PDT_INT32 || type == PDT_FLOAT64;
      ASSERT_NEAR(found.source.bands.back()[i], expected[i], expected[i] * (wide ? 1e-13 : 1e-7));
    }
  }
}

}  // namespace
