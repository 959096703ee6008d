#pragma once

#include <string>

#include "apps/fuse_options.h"

namespace app {

/// Runs the `fuse` command and answers its exit status. The output appears under its name only after success.
int RunFuse(const FuseOptions& options);

}  // namespace app
