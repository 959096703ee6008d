#pragma once

#include <system_error>

namespace platform {

/// The number, of those that errno has, of what a function of the system or of the standard library has failed for; on
/// some systems theirs are others.
inline int FailureNumber(const std::error_code& error) { return error.default_error_condition().value(); }

}  // namespace platform
