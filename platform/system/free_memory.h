#pragma once

namespace platform {

/// Bytes that the process may still take without the system's running out of memory or a limit's being reached, as far
/// as it tells; infinite where it does not.
double FreeMemory();

}  // namespace platform
