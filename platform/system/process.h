#pragma once

namespace platform {

/// Suits process-wide settings to the library's runs: a small cache of decoded blocks, which runs enlarge while they
/// come back to the same rows. For programs of which the library is all, before anything else; everybody else's
/// settings stay as they are.
void OwnProcess(bool owns = true);
bool OwnsProcess();

/// Lets such a program's compressed files be decoded and encoded on several threads, which GDAL keeps for all of the
/// process.
void SetCodecThreads(int threads);
/// 1 in another program's process.
int CodecThreads();

}  // namespace platform
