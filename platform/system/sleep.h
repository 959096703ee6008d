#pragma once

#include <functional>

namespace platform {

/// Suspends the calling thread for the given number of milliseconds.
void Sleep(unsigned int milliseconds);

/// Puts another function in the place of the system's sleep; an empty one brings the system's back. Answers what was
/// there before.
std::function<void(unsigned int)> SetSleep(std::function<void(unsigned int)> sleep);

}  // namespace platform
