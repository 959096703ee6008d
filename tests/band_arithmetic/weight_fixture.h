#pragma once

#include <gtest/gtest.h>

#include "band_arithmetic/weight_fusion.h"
#include "tests/support/method_sweep.h"

/// The weighted method's definition, and scenes that correlate.
namespace weight {

using test_support::Deviation;
using test_support::Mean;
using test_support::Scene;

/// The correlation pass by definition: every pixel's resampled bands against pan, in row-major order.
inline std::vector<double> Weights(const Scene& scene, reference::Run run) {
  const std::size_t n = run.msBands.size();
  std::vector<double> means;
  std::vector<double> deviations;
  for (const int b : run.msBands) {
    means.push_back(Mean(scene.ms.bands[static_cast<std::size_t>(b)]));
    deviations.push_back(Deviation(scene.ms.bands[static_cast<std::size_t>(b)]));
  }
  const std::vector<double>& pan = scene.pan.bands[static_cast<std::size_t>(run.panBand)];
  const double panMean = Mean(pan);
  std::vector<double> covariances(n, 0.0);
  long long count = 0;
  run.arithmetic = [&](const reference::Pixel& pixel) {
    for (std::size_t b = 0; b < n; ++b) {
      covariances[b] += (pixel.ms[b] - means[b]) * (pixel.pan - panMean);
      ++count;
    }
    return pixel.ms;
  };
  run.outBandCount = static_cast<int>(n);
  reference::Fuse(run);
  std::vector<double> weights;
  for (std::size_t b = 0; b < n; ++b) {
    weights.push_back(std::sqrt(covariances[b] / (Deviation(pan) * deviations[b] * static_cast<double>(count))));
  }
  return weights;
}

/// The weight needs figures whose last bits depend on the order of summing, so the definition is held with the weights
/// that the run itself found; those are compared on their own.
class Recorded : public CWeightFusion {
 public:
  using CWeightFusion::CWeightFusion;
  GISError Preproccess() override {
    const GISError result = CWeightFusion::Preproccess();
    if (m_pWeight) s_weights.assign(&m_pWeight[0], &m_pWeight[m_param.m_vecMSBands.size()]);
    return result;
  }
  static inline std::vector<double> s_weights;
};

inline reference::Run Reference(const Scene& scene, const FusionParam& param) {
  reference::Run run = scene.Reference(param);
  run.startAtOutput = true;
  run.arithmetic = [](const reference::Pixel& pixel) {
    std::vector<double> out;
    for (std::size_t b = 0; b < pixel.ms.size(); ++b) {
      const double a = std::fabs(Recorded::s_weights[b]);
      out.push_back(((1.0 - a) * pixel.ms[b] + (1.0 + a) * pixel.pan) * 0.5);
    }
    return out;
  };
  return run;
}

/// A scene whose bands follow pan to a known degree.
struct Correlated {
  explicit Correlated(int bands, int panWidth = 37, int panHeight = 29)
      : scene(51, Options(bands, panWidth, panHeight)) {
    for (std::size_t b = 0; b < scene.ms.bands.size(); ++b) {
      for (std::size_t i = 0; i < scene.pan.bands[0].size(); ++i) {
        scene.ms.bands[b][i] = scene.pan.bands[0][i] * 2.0 + 7.0 + static_cast<double>(b * ((i * 37) % 101));
      }
    }
    test_support::WriteImage(scene.ms, scene.msFile, PDT_FLOAT64);
  }
  static test_support::SceneOptions Options(int bands, int panWidth, int panHeight) {
    test_support::SceneOptions options;
    options.panWidth = panWidth;
    options.panHeight = panHeight;
    options.ratio = 1.0;
    options.msBands = bands;
    options.msType = PDT_FLOAT64;
    return options;
  }
  Scene scene;
};

/// Holds the weights of a run against the pass written out; they differ only in the last bits of the statistics.
inline void ExpectWeights(const Scene& scene, FusionParam param, const reference::Run& run) {
  Recorded fusion(&param);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  const auto expected = Weights(scene, run);
  ASSERT_EQ(Recorded::s_weights.size(), expected.size());
  for (std::size_t b = 0; b < expected.size(); ++b) {
    ASSERT_GT(expected[b], 0.0);
    EXPECT_NEAR(Recorded::s_weights[b], expected[b], 1e-10);
  }
}

}  // namespace weight
