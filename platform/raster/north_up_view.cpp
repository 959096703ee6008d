#include "platform/raster/north_up_view.h"

#include <gdal_priv.h>
#include <gdalwarper.h>

#include <memory>

namespace platform {
namespace {

using WarpOptions = std::unique_ptr<GDALWarpOptions, decltype(&GDALDestroyWarpOptions)>;

/// Hands the declared no-data values on, band by band; false where no band has one.
bool CarryNoData(GDALDataset& dataset, GDALWarpOptions& options) {
  bool any = false;
  for (int b = 0; b < dataset.GetRasterCount(); ++b) {
    int declared = 0;
    const double value = dataset.GetRasterBand(b + 1)->GetNoDataValue(&declared);
    if (!declared) continue;
    if (!any) {
      // Far from any sample, for the bands that declare none.
      constexpr double kNone = -1.1e20;
      GDALWarpInitSrcNoDataReal(&options, kNone);
      GDALWarpInitDstNoDataReal(&options, 0.0);
      any = true;
    }
    options.padfSrcNoDataReal[b] = value;
    options.padfDstNoDataReal[b] = value;
  }
  if (any) options.papszWarpOptions = CSLSetNameValue(options.papszWarpOptions, "INIT_DEST", "NO_DATA");
  return any;
}

}  // namespace

bool NeedsNorthUpView(GDALDataset& dataset) {
  double t[6];
  if (dataset.GetGeoTransform(t) == CE_None) return t[2] != 0.0 || t[4] != 0.0;
  return dataset.GetGCPCount() > 0 || dataset.GetMetadata("RPC") != nullptr;
}

GDALDataset* MakeNorthUpView(GDALDataset* dataset) {
  const WarpOptions options(GDALCreateWarpOptions(), &GDALDestroyWarpOptions);
  GDALWarpInitDefaultBandMapping(options.get(), dataset->GetRasterCount());
  const bool hasNoData = CarryNoData(*dataset, *options);
  auto* view = GDALDataset::FromHandle(
      GDALAutoCreateWarpedVRT(dataset, nullptr, nullptr, GRA_NearestNeighbour, 0.125, options.get()));
  dataset->ReleaseRef();
  if (view && !hasNoData) {
    for (GDALRasterBand* band : view->GetBands()) band->SetNoDataValue(0.0);
  }
  return view;
}

}  // namespace platform
