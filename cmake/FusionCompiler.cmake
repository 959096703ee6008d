# How every target of the project is compiled.

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # With precompiled headers it asks for this much trust (and for -fpch-preprocess, below).
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE_PROGRAM})
endif()

add_library(fusion_options INTERFACE)
if(MSVC)
  target_compile_options(fusion_options INTERFACE /W4 /permissive- /utf-8 /fp:precise)
  if(FUSION_WERROR)
    target_compile_options(fusion_options INTERFACE /WX)
  endif()
else()
  # Results must be the same on every machine, so nothing is contracted or reordered. Trapping and errno are not
  # observable here, and without them guarded divisions vectorise.
  target_compile_options(
    fusion_options INTERFACE -Wall -Wextra -Wconversion -ffp-contract=off -fno-trapping-math -fno-math-errno)
  if(NOT CMAKE_UNITY_BUILD)
    # Of files compiled together, one's names may hide another's.
    target_compile_options(fusion_options INTERFACE -Wshadow)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # GCC 12 sees overlapping copies in the concatenation of strings where there are none (its bug 105651).
    target_compile_options(fusion_options INTERFACE -Wno-restrict -fpch-preprocess)
  endif()
  if(FUSION_WERROR)
    target_compile_options(fusion_options INTERFACE -Werror)
  endif()
endif()

if(WIN32)
  # Of the system's header no more than is asked for, and wide.
  target_compile_definitions(fusion_options INTERFACE NOMINMAX WIN32_LEAN_AND_MEAN UNICODE _WIN32_WINNT=0x0A00)
endif()

# For a target whose own code takes no time that would be worth the compiler's.
function(fusion_compile_quickly target)
  target_compile_options(${target} PRIVATE $<$<AND:$<CXX_COMPILER_ID:GNU,Clang>,$<NOT:$<CONFIG:Debug>>>:-O1>)
endfunction()

# What turns a fault that is exploited into one that is noticed. Not beside the sanitizers, which watch more closely, nor
# without optimisation, which the checked functions want.
if(FUSION_HARDEN AND NOT MSVC AND NOT FUSION_SANITIZE)
  set(optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
  target_compile_options(fusion_options INTERFACE $<${optimised}:-fstack-protector-strong>
                                                  $<${optimised}:-U_FORTIFY_SOURCE> $<${optimised}:-D_FORTIFY_SOURCE=2>)
  if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    target_link_options(fusion_options INTERFACE LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
  elseif(MINGW)
    # The checks are in a library of their own, which needs not be shipped so.
    target_link_libraries(fusion_options INTERFACE -l:libssp.a)
  endif()
endif()

if(FUSION_SANITIZE)
  # What the tests do themselves is not watched for undefined behaviour, which takes half of their compiler's time.
  set(watched $<NOT:$<BOOL:$<TARGET_PROPERTY:FUSION_ONLY_TESTS>>>)
  target_compile_options(fusion_options INTERFACE -fsanitize=address $<${watched}:-fsanitize=undefined>
                                                  -fno-sanitize-recover=all -fno-omit-frame-pointer)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Instrumented code makes GCC see uninitialised variables in the standard library's own headers.
    target_compile_options(fusion_options INTERFACE -Wno-maybe-uninitialized)
  endif()
  target_link_options(fusion_options INTERFACE -fsanitize=address,undefined)
endif()
