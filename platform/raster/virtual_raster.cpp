#include "platform/raster/virtual_raster.h"

#include <gdal_priv.h>
#include <gdal_utils.h>
#include <gdal_vrt.h>
#include <ogr_spatialref.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>
#include <stdexcept>

#include "platform/raster/gdal_access.h"
#include "platform/raster/north_up_view.h"
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

std::string NewName() {
  static std::atomic<int> count{0};
  return "/vsimem/fusion_view_" + std::to_string(++count) + ".vrt";
}

}  // namespace

OpenFailure::OpenFailure(const std::wstring& file, const std::wstring& reason)
    : std::runtime_error("cannot open " + CommonFun::U2Utf8(file)), m_strFile(file), m_strReason(reason) {}

VirtualRaster::VirtualRaster(const std::wstring& file, const std::vector<int>& bands, const double* geoTransform,
                             const std::wstring* wkt, std::optional<double> noData, bool northUp) {
  InitialiseGdal();
  const GdalErrors quiet;
  const std::string name = CommonFun::U2Utf8(file);
  std::unique_ptr<GDALDataset> source(OpenNamed(name, GDAL_OF_RASTER));
  if (!source) throw OpenFailure(file, CommonFun::Utf82U(quiet.Reason()));
  if (northUp && NeedsNorthUpView(*source)) {
    const std::string turned = NewName();
    source.reset(MakeNorthUpView(source.release()));
    if (!source) throw std::runtime_error("cannot make a view of " + name);
    m_strNorthUpPath = CommonFun::Utf82U(turned);
    // Written down when it is closed.
    source->SetDescription(turned.c_str());
    source.reset();
    source.reset(GDALDataset::Open(turned.c_str(), GDAL_OF_RASTER));
    if (!source) throw std::runtime_error("cannot make a view of " + name);
  }

  CPLStringList arguments;
  arguments.AddString("-of").AddString("VRT");
  // Of a description without a wish that cannot be met by it a view would be a copy, which cannot take a further band
  // where it warps or sharpens.
  if (EQUAL(source->GetDriverName(), "VRT")) arguments.AddString("-norat");
  for (const int band : bands) {
    if (band < 0 || band >= source->GetRasterCount()) throw std::runtime_error("no such band in " + name);
    arguments.AddString("-b").AddString(std::to_string(band + 1).c_str());
  }
  const int alpha = AlphaBand(*source);
  if (!bands.empty() && alpha >= 0 && std::find(bands.begin(), bands.end(), alpha) == bands.end()) {
    arguments.AddString("-mask").AddString(std::to_string(alpha + 1).c_str());
  }
  GDALTranslateOptions* options = GDALTranslateOptionsNew(arguments.List(), nullptr);
  const std::string path = NewName();
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

VirtualRaster::~VirtualRaster() {
  try {
    VSIUnlink(CommonFun::U2Utf8(m_strPath).c_str());
    if (!m_strNorthUpPath.empty()) VSIUnlink(CommonFun::U2Utf8(m_strNorthUpPath).c_str());
  } catch (const std::bad_alloc&) {
    // A few bytes of memory stay taken.
  }
}

void VirtualRaster::AddBand(const std::wstring& file, int band) {
  const GdalErrors quiet;
  const std::string name = CommonFun::U2Utf8(file);
  const std::unique_ptr<GDALDataset> source(OpenNamed(name, GDAL_OF_RASTER));
  if (!source || band < 0 || band >= source->GetRasterCount()) throw std::runtime_error("no such band in " + name);
  const std::unique_ptr<GDALDataset> view(
      GDALDataset::Open(CommonFun::U2Utf8(m_strPath).c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
  const int width = source->GetRasterXSize();
  const int height = source->GetRasterYSize();
  if (!view || view->GetRasterXSize() != width || view->GetRasterYSize() != height) {
    throw std::runtime_error(name + " has not the size of the view");
  }
  GDALRasterBand* added = source->GetRasterBand(band + 1);
  if (view->AddBand(added->GetRasterDataType(), nullptr) != CE_None ||
      VRTAddSimpleSource(view->GetRasterBand(view->GetRasterCount()), added, 0, 0, width, height, 0, 0, width, height,
                         nullptr, VRT_NODATA_UNSET) != CE_None) {
    throw std::runtime_error("cannot add " + name + " to a view");
  }
}

}  // namespace platform
