#pragma once

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

/// FUSION_MULTIVERSION(result, name, (parameters), (arguments)) stands before the body of a hot loop and is the
/// function's head; the arguments are its parameters' names. Compiles it for the baseline and for the wider vector
/// units, chosen when the library is loaded, or, where loaders do not choose, by each call. Floating-point contraction
/// is off in every version, so all of them give the same bits. FUSION_MULTIVERSION_INLINE is the same in a header,
/// FUSION_MULTIVERSION_MEMBER for a static function in a class.
#if defined(FUSION_TARGETS) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && \
    !defined(FUSION_SINGLE_VERSION) && defined(__linux__)
#define FUSION_CLONES __attribute__((target_clones("default", "arch=x86-64-v3", "arch=x86-64-v4")))

#elif defined(FUSION_TARGETS) && !defined(FUSION_SINGLE_VERSION) && defined(_WIN32)
namespace platform {

/// The x86-64 level, 1, 3 or 4, that the loops take the processor for: what it is, unless a program that compares the
/// versions has set another.
int VectorLevel();
void SetVectorLevel(int level);

}  // namespace platform

#define FUSION_VECTOR_LEVELS
#define FUSION_VERSIONS(specifier, result, name, parameters, arguments)                             \
  specifier __attribute__((noinline)) result name##_v1 parameters { return name##_loop arguments; } \
  specifier FUSION_TARGET_256 result name##_v3 parameters { return name##_loop arguments; }         \
  specifier FUSION_TARGET_512 result name##_v4 parameters { return name##_loop arguments; }
#define FUSION_CHOICE(result, name, parameters, arguments)         \
  result name parameters {                                         \
    const int level = ::platform::VectorLevel();                   \
    if (level >= 4) return name##_v4 arguments;                    \
    return level >= 3 ? name##_v3 arguments : name##_v1 arguments; \
  }
#define FUSION_MULTIVERSION(result, name, parameters, arguments) \
  FUSION_ALWAYS_INLINE result name##_loop parameters;            \
  FUSION_VERSIONS(static, result, name, parameters, arguments)   \
  FUSION_CHOICE(result, name, parameters, arguments)             \
  FUSION_ALWAYS_INLINE result name##_loop parameters
#define FUSION_MULTIVERSION_INLINE(result, name, parameters, arguments) \
  FUSION_ALWAYS_INLINE result name##_loop parameters;                   \
  FUSION_VERSIONS(inline, result, name, parameters, arguments)          \
  inline FUSION_CHOICE(result, name, parameters, arguments) FUSION_ALWAYS_INLINE result name##_loop parameters
#define FUSION_MULTIVERSION_MEMBER(result, name, parameters, arguments) \
  FUSION_VERSIONS(static, result, name, parameters, arguments)          \
  static FUSION_CHOICE(result, name, parameters, arguments) static FUSION_ALWAYS_INLINE result name##_loop parameters

#else
#define FUSION_CLONES
#endif

#ifndef FUSION_VECTOR_LEVELS
#define FUSION_MULTIVERSION(result, name, parameters, arguments) FUSION_CLONES result name parameters
#define FUSION_MULTIVERSION_INLINE(result, name, parameters, arguments) FUSION_CLONES inline result name parameters
#define FUSION_MULTIVERSION_MEMBER(result, name, parameters, arguments) FUSION_CLONES static result name parameters
#endif
