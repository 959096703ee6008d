#pragma once

#include <gtest/gtest.h>

#include "highpass/bayesian_model.h"
#include "tests/support/scene.h"

namespace highpass_test {

inline BayesianFusionParam BayesianRecord(const test_support::Scene& scene, double weight = 0.5) {
  BayesianFusionParam param;
  static_cast<FusionParam&>(param) = scene.Param();
  param.m_dBayesParam = weight;
  return param;
}

/// The model that an estimation must find without an error.
inline BayesianModel Estimate(const BayesianFusionParam& param) {
  BayesianModelEstimator estimator(param);
  estimator.Process();
  EXPECT_EQ(estimator.GetLastErrorType(), 0);
  EXPECT_TRUE(estimator.GetLastErrorMessage().empty());
  return estimator.GetModel();
}

}  // namespace highpass_test
