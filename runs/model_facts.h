#pragma once

#include <string>
#include <vector>

namespace fusion {

/// A name and its numbers: "gains", one for each band.
struct ModelFact {
  std::string name;
  std::vector<double> values;
};

/// What a run has found out of its images and worked with: statistics, weights, gains.
using ModelFacts = std::vector<ModelFact>;

}  // namespace fusion
