#include "platform/system/process.h"

#include <cpl_conv.h>
#include <gdal.h>

#include <atomic>

namespace platform {
namespace {

std::atomic<bool> g_owns = false;

}  // namespace

void OwnProcess(bool owns) {
  g_owns = owns;
  // Rasters are read once from top to bottom; a large cache only costs memory and page faults. Who comes back to the
  // same rows makes room for them with a CacheRoom.
  if (owns && !CPLGetConfigOption("GDAL_CACHEMAX", nullptr)) GDALSetCacheMax64(GIntBig{16} << 20);
}

bool OwnsProcess() { return g_owns; }

}  // namespace platform
