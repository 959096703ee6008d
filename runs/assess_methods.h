#pragma once

#include <string>
#include <vector>

#include "runs/assess.h"
#include "runs/fuse.h"

namespace fusion {

class Notices;
class RunProgress;

/// The run of Assess, and of a fusion by the best method.
/// @param prototype what the fusions have beside files and method
/// @param observer who is asked whether to cancel; null for nobody
/// Throws RunFailure.
AssessReport AssessMethods(const AssessRequest& request, const FuseRequest& prototype, RunObserver* observer,
                           Notices& notices, RunProgress& progress);

/// The request by the method that does best on parts of its scene, of those that take its options.
/// Throws RunFailure.
FuseRequest WithBestMethod(const FuseRequest& request, RunObserver* observer, Notices& notices, RunProgress& progress);

}  // namespace fusion
