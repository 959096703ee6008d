#pragma once

#include <string>

namespace platform {

/// What the names of a process's temporary files tell of it: its machine, when that was started, its number and when it
/// was started itself, since numbers are taken again. 32 letters, 0 to 9 and a to f.
const std::string& OwnProcessMark();

/// How it is with the process of a mark.
enum class MarkedProcess {
  kRuns,     ///< or may do so: it is of another machine, or the system does not tell
  kEnded,    ///< it was one of this machine as it runs
  kOfOldRun  ///< it was one of a machine of this name before it was last started, or of one that is set up likewise
};
MarkedProcess LookAtProcess(const std::string& mark);

}  // namespace platform
