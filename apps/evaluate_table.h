#pragma once

#include <string>
#include <vector>

#include "runs/evaluate.h"

namespace app {

/// Prints the figures of a metric on standard output.
/// @param bands the columns' labels, one for each pair of bands
void PrintTable(const std::string& metric, const std::vector<fusion::Figures>& figures,
                const std::vector<std::string>& bands);

}  // namespace app
