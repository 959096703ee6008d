#pragma once

#include <atomic>

namespace attacks {

/// Allocations of this program's own code until one fails; none fails while it is negative.
extern std::atomic<long> allocationsLeft;
/// Whether they can be made to fail: a sanitizer has allocations of its own.
extern const bool memoryFails;

}  // namespace attacks
