#pragma once

namespace platform {

/// Makes the process keep the memory of large buffers that were freed for the next ones, where its allocator would give
/// it back and fetch it again page by page for every block. For programs, not for libraries, since it holds for all.
void KeepFreedMemory();

}  // namespace platform
