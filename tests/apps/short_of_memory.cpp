// A library to be loaded before a program's others: from the program's FUSION_ALLOCATIONS-th allocation on there is no
// memory. What the program calls first in main is where the count begins, since nobody can catch what libraries throw
// before it.
#include <cstdlib>
#include <new>

namespace {

bool g_counts = false;
long g_left = 0;

}  // namespace

extern "C" int mallopt(int /*option*/, int /*value*/) {
  if (!g_counts) g_left = std::atol(std::getenv("FUSION_ALLOCATIONS"));
  g_counts = true;
  return 1;
}

void* operator new(std::size_t size) {
  if (g_counts && --g_left < 0) throw std::bad_alloc();
  if (void* memory = std::malloc(size ? size : 1)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
