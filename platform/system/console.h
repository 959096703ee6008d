#pragma once

#include <cstdio>

#include "platform/system/export.h"

namespace platform {

/// Whether a stream of the program leads to a terminal.
FUSION_API bool IsTerminal(std::FILE* stream);

/// Makes the terminal read UTF-8 where it would not by itself.
FUSION_API void UseUtf8Console();

}  // namespace platform
