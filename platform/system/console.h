#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace platform {

/// Whether a stream of the program leads to a terminal.
bool IsTerminal(std::FILE* stream);

/// Makes the terminal read UTF-8 where it would not by itself, and lets bytes through as they are.
void UseUtf8Console();

/// The program's arguments, without its name, as UTF-8. Throws std::invalid_argument for one that is no Unicode text.
std::vector<std::string> Utf8Arguments(int argc, const char* const* argv);

}  // namespace platform
