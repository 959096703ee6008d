#pragma once

#include "runs/methods.h"

namespace fusion {

/// Estimates the model, tells what it has found, and hands it to the fusion. Throws RunFailure.
std::unique_ptr<CBaseAlgorithm> MakeBayesian(HpfFusionParam& param, const MethodSetup& setup);

}  // namespace fusion
