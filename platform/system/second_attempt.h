#pragma once

#include <new>

namespace platform {

/// Does what a destructor should not leave undone: once more where memory was short, since some of it may be there a
/// moment later, and no third time.
template <typename Action>
void WithSecondAttempt(const Action& action) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    try {
      action();
      return;
    } catch (const std::bad_alloc&) {
      // Left undone if it was the second.
    }
  }
}

}  // namespace platform
