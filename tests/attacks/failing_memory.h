#pragma once

#include <atomic>
#include <cstddef>

namespace attacks {

/// Allocations of this program's own code until one fails; none fails while it is negative.
extern std::atomic<long> allocationsLeft;
/// The most bytes that were asked for at once, by anybody; 0 where that is not counted.
extern std::atomic<std::size_t> largestAllocation;
/// Whether they can be made to fail: a sanitizer has allocations of its own.
extern const bool memoryFails;

}  // namespace attacks
