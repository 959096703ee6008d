#pragma once

#include <memory>
#include <string>

#include "platform/system/workers.h"

namespace fusion {

/// The threads that a request wants to be computed on: a number, or all, for as many as the machine has. Where it says
/// nothing, the environment's FUSION_THREADS and then its OMP_NUM_THREADS do, else it is all. Throws a usage error for
/// anything else. Where the library is all of its process, compressed files are decoded and encoded on as many, too.
std::shared_ptr<platform::Workers> MakeWorkers(const std::string& wanted);

}  // namespace fusion
