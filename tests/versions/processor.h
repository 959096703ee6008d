#pragma once

namespace versions {

/// The x86-64 level that the program's loops take the machine for: 1, 3 or 4.
int ProcessorLevel();
/// Whether the machine has the instructions of that level.
bool MachineHasLevel();

}  // namespace versions
