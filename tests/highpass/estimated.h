#pragma once

#include "highpass/bayesian_model.h"
#include "tests/support/seen_scene.h"

namespace highpass_test {

using test_support::SeenScene;

/// An estimation that must succeed.
struct Estimated {
  explicit Estimated(const BayesianFusionParam& param, BayesianRegistration registration = BayesianRegistration::kOff,
                     bool threaded = false, const CRect& area = {});

  BayesianModel model;
  BayesianEstimate estimate;
  reference::Image source;  ///< what the model is for
};

/// The bands that a model gives.
std::vector<std::vector<double>> FuseWith(const BayesianFusionParam& param, const BayesianModel& model);

/// The model is the one that the moments of the source's images give; pan for the moments is low-passed by definition.
void ExpectModel(const Estimated& found, const SeenScene& scene, double weight = 0.5);

/// The low-passed pan behind the bands is that of the definition, wherever there is enough of pan.
/// @param least pixels that there must be of them
void ExpectLowPass(const Estimated& found, const SeenScene& scene, int least = 100);

}  // namespace highpass_test
