#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/reference_kernel.h"

/// The definition of the evaluations, one pixel after another, written without the evaluation's code: slow and plain.
namespace reference {

struct Evaluation {
  const Image* pan = nullptr;
  const Image* ms = nullptr;
  const Image* fused = nullptr;
  std::vector<int> msBands;
  std::vector<int> fusedBands;
  int offsetX = 0;  ///< of the fused image in the pan image
  int offsetY = 0;
  std::optional<double> panNoData;
  std::optional<double> msNoData;
  std::optional<double> fusedNoData;
  int blockWidth = 1024;
  int blockHeight = 1024;
  /// Under reprojection: ground point to sample position, and the rectangle read for a ground box.
  std::function<Position(double groundX, double groundY)> reproject;
  std::function<CRect(double left, double top, double right, double bottom)> reprojectedRect;
};

/// Result arrays by their names.
using Figures = std::map<std::string, std::vector<double>>;

Figures Entropy(const Evaluation& e);
Figures Statistic(const Evaluation& e);
Figures SignalToNoise(const Evaluation& e);
Figures Gradient(const Evaluation& e);

}  // namespace reference
