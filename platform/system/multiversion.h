#pragma once

/// Compiles a hot loop for the baseline and for the wider vector units, chosen when the library is loaded.
/// Floating-point contraction is off in every version, so all of them give the same bits.
#if defined(__x86_64__) && defined(__linux__) && defined(__GNUC__) && !defined(__clang__) && \
    !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !defined(FUSION_SINGLE_VERSION)
#define FUSION_MULTIVERSION __attribute__((target_clones("default", "arch=x86-64-v3", "arch=x86-64-v4")))
#else
#define FUSION_MULTIVERSION
#endif

/// For a loop that is worth its while with the wider vector units alone: whoever calls it asks the processor first.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define FUSION_TARGETS
#define FUSION_TARGET_256 __attribute__((target("arch=x86-64-v3")))
#define FUSION_TARGET_512 __attribute__((target("arch=x86-64-v4")))
#endif

/// For what such a loop calls: only what is inlined is compiled for its instruction set.
#if defined(_MSC_VER)
#define FUSION_ALWAYS_INLINE __forceinline
#else
#define FUSION_ALWAYS_INLINE inline __attribute__((always_inline))
#endif
