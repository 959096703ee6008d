// An area of interest of any bytes, laid on a small raster. The first byte chooses what it is called.
#include <cpl_error.h>
#include <cpl_vsi.h>
#include <gdal_priv.h>

#include <cstdint>
#include <memory>

#include "platform/raster/raster_source.h"
#include "platform/raster/references.h"
#include "platform/utility/common_fun.h"
#include "platform/validity/raster_aoi.h"

namespace {

/// A raster of one degree a pixel around the origin.
const CRasterSource& Raster() {
  // Never closed: at the program's end GDAL may have gone before it.
  static CRasterSource& raster = *new CRasterSource;
  if (raster.IsOpen()) return raster;
  GDALAllRegister();
  const double geo[6] = {-10.0, 1.0, 0.0, 10.0, 0.0, -1.0};
  raster.CreateRaster(CRasterSource::GetDataFormat(L"in.tif"), L"/vsimem/raster.tif", 20, 20, 1, PDT_UINT8, geo,
                      L"EPSG:4326", std::vector<std::string>{});
  return raster;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const char* const kNames[] = {"area.geojson", "area.gpkg", "area.csv", "area.kml", "area.vrt", "area.shp"};
  if (size < 2) return 0;
  CPLSetErrorHandler(CPLQuietErrorHandler);
  const CRasterSource& raster = Raster();
  const std::string name = std::string("/vsimem/fuzz/") + kNames[data[0] % std::size(kNames)];
  VSILFILE* file = VSIFOpenL(name.c_str(), "wb");
  VSIFWriteL(data + 1, 1, size - 1, file);
  VSIFCloseL(file);
  {
    const platform::ReferenceScope confined({false, true});
    CRasterAOI area;
    if (area.Load(CommonFun::Utf82U(name), raster)) {
      const CRect covering = area.GetCoveringRect();
      static_cast<void>(area.ReadCacheAoiBuffer(0, 0, 20, 20));
      static_cast<void>(area.ReadCacheAoiBuffer(covering.left, covering.top, 16, 16));
      static_cast<void>(area.IsInAOI(3, 3));
    }
  }
  VSIRmdirRecursive("/vsimem/fuzz");
  return 0;
}
