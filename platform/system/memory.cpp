#include "platform/system/memory.h"

#include <cstdlib>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace platform {

void KeepFreedMemory() {
#ifdef __GLIBC__
  // The largest that the allocator takes.
  constexpr int kLargest = 32 << 20;
  constexpr int kKept = 1 << 30;
  mallopt(M_MMAP_THRESHOLD, kLargest);
  mallopt(M_TRIM_THRESHOLD, kKept);
#endif
}

}  // namespace platform
