#include "platform/system/console.h"

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <io.h>
#include <windows.h>
// After the header that it needs.
#include <shellapi.h>

#include "platform/utility/common_fun.h"
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

std::vector<std::string> Utf8Arguments([[maybe_unused]] int argc, [[maybe_unused]] const char* const* argv) {
  std::vector<std::string> arguments;
#ifdef _WIN32
  // The narrow arguments have gone through the code page.
  int count = 0;
  wchar_t** wide = CommandLineToArgvW(GetCommandLineW(), &count);
  for (int i = 1; wide && i < count; ++i) arguments.push_back(CommonFun::U2Utf8(wide[i]));
  LocalFree(wide);
#else
  for (int i = 1; i < argc; ++i) arguments.emplace_back(argv[i]);
#endif
  return arguments;
}

}  // namespace platform
