#pragma once

#include "apps/fuse_options.h"

namespace app {

/// Runs the `fuse` command and answers its exit status.
int RunFuse(const FuseOptions& options);

/// Reports a `fuse` command that cannot run, as far as its options are known, and answers the exit status.
int RefuseFuse(const FuseOptions& options, const fusion::RunFailure& failure);

}  // namespace app
