#include "platform/system/process.h"

#include <cpl_conv.h>
#include <cpl_error.h>
#include <gdal.h>

#include <atomic>

namespace platform {
namespace {

std::atomic<bool> g_owns = false;
std::atomic<int> g_codecThreads = 1;

}  // namespace

void OwnProcess(bool owns) {
  g_owns = owns;
  // Rasters are read once from top to bottom; a large cache only costs memory and page faults. Who comes back to the
  // same rows makes room for them with a CacheRoom.
  if (owns && !CPLGetConfigOption("GDAL_CACHEMAX", nullptr)) GDALSetCacheMax64(GIntBig{16} << 20);
  // What goes wrong on GDAL's own threads is told by the operation that fails.
  CPLSetErrorHandler(owns ? CPLQuietErrorHandler : CPLDefaultErrorHandler);
}

bool OwnsProcess() { return g_owns; }

void SetCodecThreads(int threads) { g_codecThreads = threads; }
int CodecThreads() { return g_owns ? g_codecThreads.load() : 1; }

}  // namespace platform
