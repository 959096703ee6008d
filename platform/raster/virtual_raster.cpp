#include "platform/raster/virtual_raster.h"

#include <gdal_priv.h>
#include <gdal_utils.h>
#include <ogr_spatialref.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <stdexcept>

#include "platform/raster/gdal_access.h"
#include "platform/raster/raster_source.h"
#include "platform/utility/common_fun.h"

namespace platform {
namespace {

/// Counted from 0, -1 without alpha.
int AlphaBand(GDALDataset& dataset) {
  for (int b = 0; b < dataset.GetRasterCount(); ++b) {
    if (dataset.GetRasterBand(b + 1)->GetColorInterpretation() == GCI_AlphaBand) return b;
  }
  return -1;
}

}  // namespace

VirtualRaster::VirtualRaster(const std::wstring& file, const std::vector<int>& bands, const double* geoTransform,
                             const std::wstring* wkt, std::optional<double> noData) {
  InitialiseGdal();
  const GdalErrors quiet;
  const std::string name = CommonFun::U2Utf8(file);
  const std::unique_ptr<GDALDataset> source(GDALDataset::Open(name.c_str(), GDAL_OF_RASTER));
  if (!source) throw std::runtime_error("cannot open " + name);

  CPLStringList arguments;
  arguments.AddString("-of").AddString("VRT");
  for (const int band : bands) {
    if (band < 0 || band >= source->GetRasterCount()) throw std::runtime_error("no such band in " + name);
    arguments.AddString("-b").AddString(std::to_string(band + 1).c_str());
  }
  const int alpha = AlphaBand(*source);
  if (!bands.empty() && alpha >= 0 && std::find(bands.begin(), bands.end(), alpha) == bands.end()) {
    arguments.AddString("-mask").AddString(std::to_string(alpha + 1).c_str());
  }
  GDALTranslateOptions* options = GDALTranslateOptionsNew(arguments.List(), nullptr);
  static std::atomic<int> count{0};
  const std::string path = "/vsimem/fusion_view_" + std::to_string(++count) + ".vrt";
  int usageError = 0;
  GDALDataset* view =
      GDALDataset::FromHandle(GDALTranslate(path.c_str(), GDALDataset::ToHandle(source.get()), options, &usageError));
  GDALTranslateOptionsFree(options);
  if (!view) throw std::runtime_error("cannot make a view of " + name);
  if (geoTransform) {
    double t[6];
    std::copy_n(geoTransform, 6, t);
    view->SetGeoTransform(t);
  }
  if (wkt) {
    OGRSpatialReference crs;
    view->SetSpatialRef(ReadWkt(*wkt, crs) ? &crs : nullptr);
  }
  for (GDALRasterBand* band : view->GetBands()) {
    if (noData) band->SetNoDataValue(*noData);
  }
  GDALClose(view);
  m_strPath = CommonFun::Utf82U(path);
}

VirtualRaster::~VirtualRaster() { VSIUnlink(CommonFun::U2Utf8(m_strPath).c_str()); }

}  // namespace platform
