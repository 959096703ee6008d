#pragma once

#include "framework/fusion_param.h"

namespace fusion {

/// The 7 x 7 mean of simple pan-sharpening.
FilterDescription MeanFilter();

}  // namespace fusion
