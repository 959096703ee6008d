#include "tests/support/thread_watch.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<int> g_watch{0};  ///< number of the watch at work, 0 for none
std::atomic<int> g_threads{0};
thread_local int t_seen = 0;  ///< the last watch that has counted this thread

}  // namespace

void* operator new(std::size_t size) {
  const int watch = g_watch.load(std::memory_order_relaxed);
  if (watch != 0 && t_seen != watch) {
    t_seen = watch;
    ++g_threads;
  }
  if (void* memory = std::malloc(size ? size : 1)) return memory;
  throw std::bad_alloc();
}

// All forms that libraries use, so that no memory comes from one allocator and goes back to another.
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept { return std::malloc(size ? size : 1); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace test_support {

ThreadWatch::ThreadWatch() {
  static std::atomic<int> last{0};
  g_threads = 0;
  g_watch = ++last;
}

ThreadWatch::~ThreadWatch() { g_watch = 0; }

int ThreadWatch::Count() const { return g_threads; }

}  // namespace test_support
