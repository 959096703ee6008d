#include "platform/system/console.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <windows.h>
// After the header that it needs.
#include <shellapi.h>
#else
#include <unistd.h>
#endif

#include <memory>
#include <stdexcept>

#include "platform/utility/common_fun.h"

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
  // Bytes go out as they are; ends of lines would become two.
  for (std::FILE* stream : {stdout, stderr}) _setmode(_fileno(stream), _O_BINARY);
#endif
}

namespace {

/// A name that changes on its way through the program would lead to another file.
void Check(const std::string& argument, bool faithful) {
  if (faithful) return;
  throw std::invalid_argument("'" + CommonFun::U2Utf8(CommonFun::Utf82U(argument)) +
                              "' is no Unicode text, so that it cannot be told which file is meant; rename the file.");
}

}  // namespace

std::vector<std::string> Utf8Arguments([[maybe_unused]] int argc, [[maybe_unused]] const char* const* argv) {
  std::vector<std::string> arguments;
#ifdef _WIN32
  // The narrow arguments have gone through the code page.
  int count = 0;
  wchar_t** wide = CommandLineToArgvW(GetCommandLineW(), &count);
  const std::unique_ptr<wchar_t*, decltype(&LocalFree)> release(wide, &LocalFree);
  for (int i = 1; wide && i < count; ++i) {
    arguments.push_back(CommonFun::U2Utf8(wide[i]));
    Check(arguments.back(), CommonFun::Utf82U(arguments.back()) == wide[i]);
  }
#else
  for (int i = 1; i < argc; ++i) {
    arguments.emplace_back(argv[i]);
    Check(arguments.back(), CommonFun::U2Utf8(CommonFun::Utf82U(argv[i])) == argv[i]);
  }
#endif
  return arguments;
}

}  // namespace platform
