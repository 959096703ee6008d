#include "platform/raster/raster_fault.h"

#include <mutex>
#include <utility>

namespace platform {
namespace {

RasterFault& Fault() {
  static RasterFault fault;
  return fault;
}

}  // namespace

void SetRasterFault(RasterFault fault) { Fault() = std::move(fault); }

bool RasterFails(RasterOperation operation, const std::wstring& path, int band, const CRect& rect) {
  if (!Fault()) return false;
  // Rasters are read and written from several threads.
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  return Fault()(operation, path, band, rect);
}

}  // namespace platform
