#pragma once

#include <string>

#include "runs/fuse.h"
#include "runs/fuse_checks.h"

namespace fusion {

class FuseInputs;

/// What a run over these inputs would write, and what it would take.
/// @param overviews whether they are built where the method does
FusePlan MakePlan(const FuseInputs& inputs, const CheckedRequest& checked, const std::wstring& output,
                  PixelDataType type, bool overviews);

}  // namespace fusion
