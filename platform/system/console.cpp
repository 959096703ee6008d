#include "platform/system/console.h"

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <io.h>
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace platform {

bool IsTerminal(std::FILE* stream) {
#ifdef _WIN32
  return _isatty(_fileno(stream)) != 0;
#else
  return isatty(fileno(stream)) != 0;
#endif
}

void UseUtf8Console() {
#ifdef _WIN32
  SetConsoleOutputCP(CP_UTF8);
#endif
}

}  // namespace platform
