#pragma once

#include "runs/check.h"

namespace app {

/// Prints what was seen of a pair on standard output: the images, how they lie to each other, their values, and what is
/// to be done.
void PrintTable(const fusion::CheckReport& report);

}  // namespace app
