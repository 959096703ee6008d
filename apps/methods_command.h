#pragma once

namespace app {

/// The `methods` command: a table, or JSON, or bare names. Answers the exit status.
int RunMethods(bool json, bool namesOnly);

}  // namespace app
