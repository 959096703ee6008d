#pragma once

#include <string>
#include <vector>

#include "apps/option_reference.h"

namespace app {

/// A script by which a shell (bash, zsh or fish) completes the program's arguments. Throws RunFailure for another one.
std::string Completion(const std::string& shell, const std::vector<CommandText>& commands);

/// The manual page, as roff.
std::string ManualPage(const CommandText& program, const std::vector<CommandText>& commands,
                       const std::string& version);

}  // namespace app
