#pragma once

#include <string>
#include <vector>

#include "runs/assess.h"
#include "runs/assess_tile.h"

namespace fusion {

/// A row in the making.
struct AssessEntry {
  std::string name;
  MethodSums sums;
  Move moves = {};  ///< summed over the parts
  int parts = 0;
};

/// The table of a protocol, sorted, its best marked.
/// @param ratio of the pixels, for ERGAS
AssessTable MakeTable(const std::string& protocol, const std::vector<AssessEntry>& entries, int bands, double ratio);

/// What the tables say in a sentence or two. The best method goes into the report.
void Advise(AssessReport& report);

}  // namespace fusion
