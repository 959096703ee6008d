#pragma once

#include <Eigen/Dense>
#include <functional>
#include <optional>
#include <vector>

#include "tests/support/reference_kernel.h"

/// The Bayesian model written out: all samples in memory, one dense least-squares system, matrices inverted as they
/// stand in the definition.
namespace highpass_test {

struct Box {
  double left;
  double top;
  double right;
  double bottom;
};

struct DenseSamples {
  Eigen::MatrixXd bands;    ///< one row per sample
  Eigen::MatrixXd details;  ///< bands less their 3 x 3 mean
  Eigen::VectorXd pan;
};

/// @param cell the rectangle of a multispectral pixel in pan pixels, corner-based
DenseSamples CollectSamples(const reference::Image& pan, const reference::Image& ms, const std::vector<int>& bands,
                            const std::function<Box(int column, int row)>& cell,
                            std::optional<double> panNoData = std::nullopt,
                            std::optional<double> msNoData = std::nullopt);
/// For two north-up (or south-up) images of one coordinate system.
std::function<Box(int, int)> GridCells(const reference::Image& pan, const reference::Image& ms);

struct DenseModel {
  double intercept;
  Eigen::VectorXd beta;
  double variance;
  Eigen::MatrixXd sigma;
};

DenseModel Fit(const DenseSamples& samples);

struct DenseFigures {
  Eigen::VectorXd covariance;  ///< c
  Eigen::MatrixXd transform;   ///< M
};

/// V, c and M by plain matrix inversion.
DenseFigures Figures(double weight, const Eigen::VectorXd& beta, double variance, const Eigen::MatrixXd& sigma);

}  // namespace highpass_test
