#pragma once

#include <functional>

namespace platform {

/// Calls work with 0 to count - 1, each once, in no order: on as many threads as the machine has processors, the
/// caller's among them, or one after another on the caller's alone. Whoever keeps the results apart and puts them
/// together in their order gets the same from either way. Throws what one of the calls threw.
void ForEach(int count, bool threaded, const std::function<void(int)>& work);

}  // namespace platform
