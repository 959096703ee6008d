// Takes the place of the compiler's own record of the processor (in libgcc), by which the library's loops choose their
// versions when a program starts. FUSION_LEVEL is the x86-64 level that this one tells.
#include "tests/versions/processor.h"

#include <sys/platform/x86.h>

extern "C" {
unsigned __cpu_model[4];
unsigned __cpu_features2[8];
int __cpu_indicator_init();
}

namespace {

void Set(unsigned* words, int count, unsigned value) {
  for (int i = 0; i < count; ++i) words[i] = value;
}

/// The place of the bit is the compiler's affair.
bool TellsLevel4() {
  asm volatile("" ::: "memory");
  return __builtin_cpu_supports("x86-64-v4");
}

void TakeLevel4Away() {
  for (unsigned& word : __cpu_features2) {
    for (unsigned bit = 1U; bit != 0U; bit <<= 1U) {
      word &= ~bit;
      if (!TellsLevel4()) return;
      word |= bit;
    }
  }
}

}  // namespace

// Called before anything else of the program is ready: no library, no constructor.
int __cpu_indicator_init() {
  const unsigned all = FUSION_LEVEL >= 3 ? ~0U : 0U;
  Set(__cpu_model, 4, all);
  Set(__cpu_features2, 8, all);
  if (FUSION_LEVEL == 3) TakeLevel4Away();
  return 0;
}

namespace versions {

int ProcessorLevel() { return FUSION_LEVEL; }

bool MachineHasLevel() {
  const bool v3 = CPU_FEATURE_ACTIVE(AVX2) && CPU_FEATURE_ACTIVE(BMI2) && CPU_FEATURE_ACTIVE(FMA);
  const bool v4 = CPU_FEATURE_ACTIVE(AVX512F) && CPU_FEATURE_ACTIVE(AVX512VL) && CPU_FEATURE_ACTIVE(AVX512BW) &&
                  CPU_FEATURE_ACTIVE(AVX512DQ) && CPU_FEATURE_ACTIVE(AVX512CD);
  return FUSION_LEVEL < 3 || (v3 && (FUSION_LEVEL < 4 || v4));
}

}  // namespace versions
