#pragma once

#include "runs/assess.h"

namespace app {

/// Prints a table on standard output: a row for each method, the best first, each column's best with a star behind it.
void PrintTable(const fusion::AssessTable& table);

}  // namespace app
