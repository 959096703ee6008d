#include "platform/system/multiversion.h"

#ifdef FUSION_VECTOR_LEVELS

#include <atomic>

namespace platform {
namespace {

std::atomic<int> g_level = 0;

}  // namespace

int VectorLevel() {
  int level = g_level.load(std::memory_order_relaxed);
  if (level == 0) {
    level = __builtin_cpu_supports("x86-64-v4") ? 4 : __builtin_cpu_supports("x86-64-v3") ? 3 : 1;
    g_level = level;
  }
  return level;
}

void SetVectorLevel(int level) { g_level = level; }

}  // namespace platform

#endif
