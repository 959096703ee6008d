// What an estimation makes of its images, held against the definition: pan low-passed pixel by pixel, and the model
// that its moments give.
#include "highpass/bayesian_model.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "estimation/detail_moments.h"
#include "estimation/injection_model.h"
#include "highpass/bayes_pan_sharpening_fusion.h"
#include "highpass/bayesian_source.h"
#include "platform/raster/raster_fault.h"
#include "tests/highpass/bayesian_fixture.h"
#include "tests/highpass/seen_scene.h"
#include "tests/support/method_sweep.h"
#include "tests/support/recording_progress.h"

namespace {

using highpass_test::LowPassOf;
using highpass_test::SeenOptions;
using highpass_test::SeenScene;
using test_support::ReadImage;
using test_support::WriteImage;

/// An estimation that must succeed.
class Estimated {
 public:
  explicit Estimated(const BayesianFusionParam& param, BayesianRegistration registration = BayesianRegistration::kOff,
                     bool threaded = false, const CRect& area = {}) {
    BayesianModelEstimator estimator(param);
    estimator.SetRegistration(registration);
    estimator.SetOverlappedIo(threaded);
    estimator.SetArea(area);
    estimator.Process();
    EXPECT_EQ(estimator.GetLastErrorType(), 0);
    EXPECT_TRUE(estimator.GetLastErrorMessage().empty());
    model = estimator.GetModel();
    estimate = estimator.GetEstimate();
    if (model.source) source = ReadImage(model.source->Path());
  }

  BayesianModel model;
  BayesianEstimate estimate;
  reference::Image source;  ///< what the model is for
};

std::vector<std::vector<double>> FuseWith(const BayesianFusionParam& param, const BayesianModel& model) {
  FusionParam record = param;
  BayesPanSharpeningFusion fusion(&record);
  fusion.SetModel(model);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  return ReadImage(param.m_strOutFile).bands;
}

/// The model is the one that the moments of the source's images give; pan for the moments is low-passed by definition.
void ExpectModel(const Estimated& found, const SeenScene& scene, double weight = 0.5) {
  const BayesianEstimate& e = found.estimate;
  const int n = static_cast<int>(found.source.bands.size()) - 1;
  std::vector<std::vector<double>> images(found.source.bands.begin(), found.source.bands.end() - 1);
  images.push_back(LowPassOf(scene, e.isBox, e.blur * e.restoring, e.moved ? e.shiftX : 0.0, e.moved ? e.shiftY : 0.0));
  std::vector<const double*> rows;
  for (const auto& image : images) rows.push_back(image.data());
  fusion::DetailMoments moments(n, found.source.width, found.source.height, {e.isBox, e.blur});
  moments.AddRows(rows.data(), found.source.height);
  fusion::InjectionDoubt doubt = fusion::InjectionDoubt::kNone;
  const auto whole = fusion::FitInjection(moments.Statistics(), n, true, doubt);
  EXPECT_EQ(e.samples, moments.Statistics().Count());
  ASSERT_EQ(e.gains.size(), static_cast<std::size_t>(n));
  const auto part = whole.Scaled(2.0 * weight);
  const BayesianModel& model = found.model;
  EXPECT_EQ(model.weight, 0.5);
  EXPECT_EQ(model.panMean, 0.0);
  EXPECT_EQ(model.panVariance, 1.0);
  const auto size = static_cast<std::size_t>(n) + 1;
  ASSERT_EQ(model.panCovariance.size(), size);
  ASSERT_EQ(model.transform.size(), size * size);
  EXPECT_EQ(model.panCovariance.back(), 0.0);
  for (std::size_t b = 0; b + 1 < size; ++b) {
    EXPECT_NEAR(e.gains[b], whole.panGains[b], 1e-8);
    EXPECT_NEAR(model.panCovariance[b], part.panGains[b], 1e-8);
    for (std::size_t j = 0; j + 1 < size; ++j) {
      EXPECT_NEAR(model.transform[j * size + b], part.bandGains[b * (size - 1) + j], 1e-8);
    }
    EXPECT_NEAR(model.transform[(size - 1) * size + b], part.lowPassGains[b], 1e-8);
  }
  for (std::size_t j = 0; j < size; ++j) EXPECT_EQ(model.transform[j * size + size - 1], 0.0);
}

/// The low-passed pan behind the bands, by definition where there is enough of pan.
void ExpectLowPass(const Estimated& found, const SeenScene& scene) {
  const BayesianEstimate& e = found.estimate;
  const auto expected = LowPassOf(scene, e.isBox, e.blur, e.moved ? e.shiftX : 0.0, e.moved ? e.shiftY : 0.0);
  int compared = 0;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    if (std::isnan(expected[i])) continue;
    ++compared;
    ASSERT_NEAR(found.source.bands.back()[i], expected[i], 1e-3) << i;
  }
  EXPECT_GT(compared, 100);
}

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

TEST(BayesianEstimator, ThreadsFindTheSame) {
  const SeenScene scene(59, {.ratioX = 4.0, .ratioY = 4.0, .msWidth = 80, .msHeight = 300, .moveX = 1.0});
  const Estimated one(scene.Record(), BayesianRegistration::kMove, false);
  const Estimated many(scene.Record(), BayesianRegistration::kMove, true);
  EXPECT_EQ(one.model.transform, many.model.transform);
  EXPECT_EQ(one.model.panCovariance, many.model.panCovariance);
  EXPECT_EQ(one.source.bands, many.source.bands);
  EXPECT_EQ(one.estimate.score, many.estimate.score);
}

TEST(BayesianEstimator, TurnedImagesAreLowPassedAtTheirPixels) {
  // Turned by some degrees, and seen as it lies.
  const SeenScene scene(60, {.ratioX = 3.0, .ratioY = 3.0, .msWidth = 60, .msHeight = 60, .turn = 0.1});
  BayesianFusionParam param = scene.Record();
  param.m_bOpenOption = false;
  const Estimated found(param, BayesianRegistration::kMove);
  EXPECT_FALSE(found.estimate.moved);
  EXPECT_GT(found.estimate.score, 0.9);
  const auto expected = LowPassOf(scene, found.estimate.isBox, found.estimate.blur, 0.0, 0.0);
  int compared = 0;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    if (std::isnan(expected[i])) continue;
    ++compared;
    ASSERT_NEAR(found.source.bands.back()[i], expected[i], 1e-3) << i;
  }
  EXPECT_GT(compared, 500);
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

}  // namespace
