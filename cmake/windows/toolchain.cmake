# Builds for 64-bit Windows on Debian, by mingw-w64 and against the stage of scripts/windows_stage; what is built runs in
# Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

if(NOT DEFINED ENV{FUSION_WINDOWS_STAGE})
  set(ENV{FUSION_WINDOWS_STAGE} $ENV{HOME}/.cache/fusion-windows)
endif()
set(FUSION_WINDOWS_STAGE $ENV{FUSION_WINDOWS_STAGE}/win64)
set(CMAKE_FIND_ROOT_PATH ${FUSION_WINDOWS_STAGE} /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# This machine's own files for pkg-config tell of libraries for Linux.
set(ENV{PKG_CONFIG_LIBDIR} ${FUSION_WINDOWS_STAGE}/lib/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")

# One folder of Wine for all that a build tree runs.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/in_wine ${CMAKE_BINARY_DIR}/wine)
