#pragma once

#include "framework/fusion_param.h"

namespace fusion {

/// The record behind the pointer as the high-pass family's own: a plain fusion record keeps the defaults for the rest,
/// null gives an empty one.
HpfFusionParam ToHpfParam(const FusionParam* param);

}  // namespace fusion
