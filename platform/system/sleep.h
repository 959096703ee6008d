#pragma once

#include <functional>

#include "platform/system/export.h"

namespace platform {

/// Suspends the calling thread for the given number of milliseconds.
FUSION_API void Sleep(unsigned int milliseconds);

/// Puts another function in the place of the system's sleep; an empty one brings the system's back. Answers what was
/// there before.
FUSION_API std::function<void(unsigned int)> SetSleep(std::function<void(unsigned int)> sleep);

}  // namespace platform
