#pragma once

#include <string>
#include <vector>

namespace versions {

/// Notices which of the program's hot loops run, in one of their versions: a breakpoint stands at the beginning of each
/// until it is met. One object at a time.
class LoopWatch {
 public:
  /// @param symbols file with what nm says of the program
  /// @param version what the names of the loops' symbols end with
  LoopWatch(const std::string& symbols, const std::string& version);
  LoopWatch(const LoopWatch&) = delete;
  LoopWatch& operator=(const LoopWatch&) = delete;

  int Count() const;
  /// The names of the loops that have not been run, as the compiler writes them.
  std::vector<std::string> NotRun() const;
};

}  // namespace versions
