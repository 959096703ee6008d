#pragma once

#include <string>

namespace app {

/// The `methods` command: a table, or JSON, or bare names. Answers the exit status.
int RunMethods(const std::string& name, bool json, bool namesOnly);

}  // namespace app
