#pragma once

#include <string>
#include <vector>

namespace app {

/// One result array under its published name: a value for each pair of bands, or one for each multispectral band and
/// then one for each fused band.
struct Figures {
  const char* name;
  std::vector<double> values;
};

/// Prints the figures of a metric on standard output.
/// @param bands the columns' labels, one for each pair of bands
void PrintTable(const std::string& metric, const std::vector<Figures>& figures, const std::vector<std::string>& bands);

}  // namespace app
