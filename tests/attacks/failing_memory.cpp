#include "tests/attacks/failing_memory.h"

#include <cstdlib>
#include <new>

namespace attacks {

std::atomic<long> allocationsLeft{-1};
std::atomic<std::size_t> largestAllocation{0};

}  // namespace attacks

#if defined(__SANITIZE_ADDRESS__) || !defined(__linux__)
const bool attacks::memoryFails = false;
#else
const bool attacks::memoryFails = true;

// The program's own code, as the linker tells. Libraries below do not outlive a failed allocation of their own.
extern "C" const char __executable_start;
extern "C" const char etext;

__attribute__((noinline)) void* operator new(std::size_t size) {
  if (size > attacks::largestAllocation.load(std::memory_order_relaxed)) attacks::largestAllocation = size;
  std::atomic<long>& left = attacks::allocationsLeft;
  if (left.load(std::memory_order_relaxed) >= 0) {
    const char* caller = static_cast<const char*>(__builtin_return_address(0));
    if (caller >= &__executable_start && caller < &etext && left-- == 0) throw std::bad_alloc();
  }
  if (void* memory = std::malloc(size ? size : 1)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
#endif
