#pragma once

#include "platform/raster/pending_output.h"

namespace fusion {

/// Throws a RunFailure that tells what stands in the way of an output, and what to do.
void ThrowObstacle(const platform::OutputObstacle& obstacle, const std::wstring& output);

}  // namespace fusion
