#include "platform/raster/raster_fault.h"

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
  return Fault() && Fault()(operation, path, band, rect);
}

}  // namespace platform
