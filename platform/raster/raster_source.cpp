#include "platform/raster/raster_source.h"

#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/companions.h"
#include "platform/raster/gdal_access.h"
#include "platform/raster/north_up_view.h"
#include "platform/raster/pixel_type.h"
#include "platform/raster/position_grid.h"
#include "platform/raster/raster_creation.h"
#include "platform/raster/raster_fault.h"
#include "platform/raster/write_guard.h"
#include "platform/raster/written_raster.h"
#include "platform/statistics/survey.h"
#include "platform/utility/common_fun.h"
#include "platform/validity/sample_mask.h"

using platform::GdalErrors;
using platform::RasterFails;
using platform::RasterOperation;

struct CRasterSource::Impl {
  GDALDataset* dataset = nullptr;
  std::optional<GDALRasterBand*> alpha;
  std::mutex transfer;  ///< held while samples are read or written
  bool writable = false;
  bool northUpView = false;
  std::wstring path;
  std::vector<std::unique_ptr<CRasterBand>> bands;
  platform::Affine toGround;
  platform::Affine toPixel;
  bool hasGeoTransform = false;
  bool maskNoData = false;
  bool readAhead = false;
  platform::Workers* workers = nullptr;
  platform::Survey* survey = nullptr;
  std::string role;
  std::shared_ptr<platform::WrittenRaster> written;
  std::wstring wkt;
  const platform::RasterFormat* copyFormat = nullptr;  ///< set while writing a format that can only be copied
  std::wstring copySource;                             ///< the temporary raster it is copied from
  std::unique_ptr<platform::WriteGuard> guard;         ///< of a raster that is being made
  CPLStringList copyOptions;
};

namespace {

std::wstring WktOf(GDALDataset* dataset) {
  const OGRSpatialReference* crs = dataset->GetSpatialRef();
  if (!crs) return {};
  char* text = nullptr;
  if (crs->exportToWkt(&text) != OGRERR_NONE) {
    CPLFree(text);
    text = nullptr;
    const char* const wkt2[] = {"FORMAT=WKT2_2018", nullptr};
    crs->exportToWkt(&text, wkt2);
  }
  std::wstring wkt = text ? CommonFun::Utf82U(text) : std::wstring();
  CPLFree(text);
  return wkt;
}

bool IsIdentity(const double t[6]) {
  return t[0] == 0.0 && t[1] == 1.0 && t[2] == 0.0 && t[3] == 0.0 && t[4] == 0.0 && t[5] == 1.0;
}

bool IsFinite(const double t[6]) {
  return std::all_of(t, t + 6, [](double term) { return std::isfinite(term); });
}

}  // namespace

CRasterSource::CRasterSource() : m_impl(std::make_unique<Impl>()) {}

CRasterSource::~CRasterSource() {
  try {
    Close();
  } catch (const std::bad_alloc&) {
    // Nobody can be told any more.
    m_impl->bands.clear();
    if (m_impl->dataset) GDALClose(m_impl->dataset);
  }
}

void CRasterSource::Adopt(void* handle, const std::wstring& path, bool writable) {
  auto* dataset = static_cast<GDALDataset*>(handle);
  m_impl->dataset = dataset;
  m_impl->alpha.reset();
  m_impl->writable = writable;
  m_impl->path = path;
  m_impl->wkt = WktOf(dataset);
  m_impl->toGround = {};
  m_impl->toPixel = {};
  double t[6];
  m_impl->hasGeoTransform = dataset->GetGeoTransform(t) == CE_None && GDALInvGeoTransform(t, m_impl->toPixel.t) != 0 &&
                            IsFinite(t) && IsFinite(m_impl->toPixel.t);
  if (!m_impl->hasGeoTransform) m_impl->toPixel = {};
  if (m_impl->hasGeoTransform) std::copy_n(t, 6, m_impl->toGround.t);
  for (int b = 0; b < dataset->GetRasterCount(); ++b) {
    m_impl->bands.push_back(std::make_unique<CRasterBand>(this, b));
  }
}

bool CRasterSource::Open(const std::wstring& path, GISDataAccess access, bool option) {
  platform::InitialiseGdal();
  Close();
  m_strOpenFailure.clear();
  if (RasterFails(RasterOperation::kOpen, path)) return false;
  const GdalErrors errors;
  const bool update = access == GDA_UPDATE;
  GDALDataset* dataset = platform::OpenDataset(CommonFun::U2Utf8(path), update);
  const bool viewed = dataset && option && !update && platform::NeedsNorthUpView(*dataset);
  if (viewed) dataset = platform::MakeNorthUpView(dataset);
  if (!dataset) {
    m_strOpenFailure = CommonFun::Utf82U(errors.Reason());
    return false;
  }
  Adopt(dataset, path, update);
  m_impl->northUpView = viewed;
  return true;
}

bool CRasterSource::OpenSimple(const std::wstring& path) { return Open(path, GDA_READ, false); }

bool CRasterSource::CreateRaster(RasterDataFormat format, const std::wstring& path, int width, int height,
                                 int bandCount, PixelDataType type, const double geoTransform[6],
                                 const std::wstring& wkt, const std::vector<std::string>& options) {
  std::vector<const char*> list;
  list.reserve(options.size() + 1);
  for (const std::string& option : options) list.push_back(option.c_str());
  list.push_back(nullptr);
  return CreateRaster(format, path, width, height, bandCount, type, geoTransform, wkt, list.data());
}

bool CRasterSource::CreateRaster(RasterDataFormat format, const std::wstring& path, int width, int height,
                                 int bandCount, PixelDataType type, const double geoTransform[6],
                                 const std::wstring& wkt, const char* const* options) {
  platform::InitialiseGdal();
  Close();
  const platform::RasterFormat* wanted = platform::FindRasterFormat(format);
  if (!wanted || path.empty() || width <= 0 || height <= 0 || bandCount <= 0 || !platform::IsPixelType(type) ||
      RasterFails(RasterOperation::kCreate, path)) {
    return false;
  }
  const GdalErrors quiet;
  const auto gdalType = static_cast<GDALDataType>(platform::ToGdalType(type));
  GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(wanted->driver);
  CPLStringList creation = platform::CreationOptions(wanted->driver, options);
  CPLStringList copyOptions;
  std::wstring target = path;
  if (wanted->copyOnly) {
    if (!platform::CanCopy(driver, width, height, bandCount, gdalType)) return false;
    target = CommonFun::GetTempFilePath(path + L".tif");
    if (target.empty()) return false;
    driver = GetGDALDriverManager()->GetDriverByName("GTiff");
    copyOptions = std::exchange(creation, platform::CreationOptions("GTiff", nullptr));
  }
  const bool existed = CommonFun::IsExistingFile(path);
  const double bytes = static_cast<double>(width) * height * bandCount * platform::PixelSize(type);
  const bool hasRoom = !platform::IsPlain(creation) || platform::HasRoomFor(target, bytes);
  if (hasRoom) platform::RemoveEmptyFile(target);
  m_impl->guard = std::make_unique<platform::WriteGuard>(target);
  GDALDataset* dataset =
      hasRoom ? driver->Create(m_impl->guard->Name().c_str(), width, height, bandCount, gdalType, creation.List())
              : nullptr;
  if (!dataset) {
    m_impl->guard.reset();
    if (wanted->copyOnly || !existed) DeleteFileW(target);
    if (quiet.OutOfMemory()) throw std::bad_alloc();
    return false;
  }
  if (geoTransform && !IsIdentity(geoTransform)) {
    double t[6];
    std::copy_n(geoTransform, 6, t);
    dataset->SetGeoTransform(t);
  }
  // The driver would take the fourth band of bytes for opacity.
  const bool takenForColours = EQUAL(driver->GetDescription(), "GTiff") && gdalType == GDT_Byte && bandCount == 4;
  for (int b = 1; takenForColours && b <= bandCount; ++b) {
    dataset->GetRasterBand(b)->SetColorInterpretation(b == 1 ? GCI_GrayIndex : GCI_Undefined);
  }
  OGRSpatialReference crs;
  if (platform::ReadWkt(wkt, crs)) dataset->SetSpatialRef(&crs);
  Adopt(dataset, path, true);
  if (wanted->copyOnly) {
    m_impl->copyFormat = wanted;
    m_impl->copySource = target;
    m_impl->copyOptions = copyOptions;
  }
  return true;
}

bool CRasterSource::Close(CBaseProgress* progress, bool* cancelled) {
  if (!m_impl->dataset) return true;
  bool ok = true;
  {
    const GdalErrors errors;
    if (m_impl->writable) {
      m_impl->dataset->FlushCache(true);
      // An ENVI header tells the name under which the raster was made, folder and all.
      GDALDriver* driver = m_impl->dataset->GetDriver();
      if (driver && EQUAL(driver->GetDescription(), "ENVI")) {
        const std::wstring name = m_impl->path.substr(platform::FolderOf(m_impl->path).size());
        m_impl->dataset->SetDescription(CommonFun::U2Utf8(name).c_str());
      }
    }
    m_impl->bands.clear();
    GDALClose(std::exchange(m_impl->dataset, nullptr));
    ok = !m_impl->writable || !(errors.Any() || (m_impl->guard && m_impl->guard->HasFailed()));
  }
  if (m_impl->writable && RasterFails(RasterOperation::kClose, m_impl->path)) ok = false;
  if (m_impl->copyFormat) {
    ok = ok && platform::CopyToFormat(*m_impl->copyFormat, m_impl->copySource, m_impl->path, m_impl->copyOptions,
                                      progress, cancelled);
  }
  DeleteFileW(m_impl->copySource);
  m_impl = std::make_unique<Impl>();
  return ok;
}

void CRasterSource::Abandon() {
  m_impl->copyFormat = nullptr;
  Close();
}

bool CRasterSource::IsOpen() const { return m_impl->dataset != nullptr; }
void CRasterSource::SetMaskNoData(bool mask) {
  m_impl->maskNoData = mask;
  GDALRasterBand* const alpha = mask ? platform::AlphaOf(*this) : nullptr;
  for (std::size_t b = 0; b < m_impl->bands.size(); ++b) {
    const auto number = static_cast<int>(b) + 1;
    m_impl->bands[b]->SetMaskNoData(
        mask, mask && platform::ValidityBand(*m_impl->dataset->GetRasterBand(number), alpha) != nullptr);
  }
}

bool CRasterSource::IsNorthUpView() const { return m_impl->northUpView; }
bool CRasterSource::IsMaskNoData() const { return m_impl->maskNoData; }
void CRasterSource::SetReadAhead(bool ahead) { m_impl->readAhead = ahead; }
bool CRasterSource::IsReadAhead() const { return m_impl->readAhead; }

void CRasterSource::SetWorkers(platform::Workers* workers) { m_impl->workers = workers; }
platform::Workers* CRasterSource::GetWorkers() const { return m_impl->workers; }

void CRasterSource::SetSurvey(platform::Survey* survey, const std::string& role) {
  m_impl->survey = survey;
  m_impl->role = role;
}

platform::SurveyPass CRasterSource::Pass(const std::string& name, std::int64_t pieces) const {
  return {m_impl->survey, m_impl->role + ' ' + name, pieces};
}

void CRasterSource::TellWritten(std::shared_ptr<platform::WrittenRaster> written) {
  m_impl->written = std::move(written);
  if (m_impl->written) m_impl->written->Begin(*this);
}
platform::WrittenRaster* CRasterSource::GetWritten() const { return m_impl->written.get(); }

void CRasterSource::DeclareNoData(double value) {
  for (const auto& band : m_impl->bands) band->DeclareNoData(value);
}

std::wstring CRasterSource::GetPath() const { return m_impl->path; }
int CRasterSource::GetWidth() const { return IsOpen() ? m_impl->dataset->GetRasterXSize() : 0; }
int CRasterSource::GetHeight() const { return IsOpen() ? m_impl->dataset->GetRasterYSize() : 0; }
int CRasterSource::GetBandCount() const { return static_cast<int>(m_impl->bands.size()); }

CRasterBand* CRasterSource::GetRasterBand(int index) const {
  return index >= 0 && index < GetBandCount() ? m_impl->bands[static_cast<std::size_t>(index)].get() : nullptr;
}

PixelDataType CRasterSource::GetRasterDataType() const {
  return IsOpen() ? m_impl->bands.front()->GetRasterDataType() : PDT_UNKNOWN;
}

int CRasterSource::GetBlockXSize() const { return IsOpen() ? m_impl->bands.front()->GetBlockXSize() : 0; }
int CRasterSource::GetBlockYSize() const { return IsOpen() ? m_impl->bands.front()->GetBlockYSize() : 0; }

bool CRasterSource::GetGeoTransform(double geoTransform[6]) const {
  std::copy_n(m_impl->toGround.t, 6, geoTransform);
  return IsOpen();
}

bool CRasterSource::HasGeoTransform() const { return m_impl->hasGeoTransform; }
std::wstring CRasterSource::GetSpatialReferenceWKT() const { return m_impl->wkt; }

void CRasterSource::ImageToGround(double x, double y, double& groundX, double& groundY) const {
  groundX = m_impl->toGround.X(x, y);
  groundY = m_impl->toGround.Y(x, y);
}

void CRasterSource::ImageToGround(int x, int y, double& groundX, double& groundY) const {
  ImageToGround(static_cast<double>(x), static_cast<double>(y), groundX, groundY);
}

CBoundingBox CRasterSource::ImageToGround(const CRect& rect) const {
  const platform::Affine& map = m_impl->toGround;
  if (map.IsAxisAligned()) {
    return {map.X(rect.left, rect.top), map.Y(rect.left, rect.top), map.X(rect.right, rect.bottom),
            map.Y(rect.right, rect.bottom)};
  }
  const std::pair<int, int> corners[] = {
      {rect.left, rect.top}, {rect.right, rect.top}, {rect.left, rect.bottom}, {rect.right, rect.bottom}};
  CBoundingBox box(INFINITY, -INFINITY, -INFINITY, INFINITY);
  for (const auto& [x, y] : corners) {
    box.m_dLeft = std::min(box.m_dLeft, map.X(x, y));
    box.m_dRight = std::max(box.m_dRight, map.X(x, y));
    box.m_dTop = std::max(box.m_dTop, map.Y(x, y));
    box.m_dBottom = std::min(box.m_dBottom, map.Y(x, y));
  }
  return box;
}

void CRasterSource::GroundToImage(double groundX, double groundY, double& x, double& y) const {
  x = groundX;
  y = groundY;
  platform::GroundToSamples(m_impl->toPixel, GetWidth(), GetHeight(), 1, &x, &y);
}

CRect CRasterSource::GroundToImage(const CBoundingBox& box) const {
  const platform::Affine& map = m_impl->toPixel;
  double minX = INFINITY;
  double maxX = -INFINITY;
  double minY = INFINITY;
  double maxY = -INFINITY;
  for (const double gx : {box.m_dLeft, box.m_dRight}) {
    for (const double gy : {box.m_dTop, box.m_dBottom}) {
      minX = std::min(minX, map.X(gx, gy));
      maxX = std::max(maxX, map.X(gx, gy));
      minY = std::min(minY, map.Y(gx, gy));
      maxY = std::max(maxY, map.Y(gx, gy));
    }
  }
  // A box that ends on a pixel edge must not take in the next pixel for a rounding error.
  constexpr double kTolerance = 1e-6;
  // So far that even the width of a rectangle that reaches both ways fits an int.
  static constexpr double kFar = 1073741823.0;
  const auto whole = [](double v) { return static_cast<std::int32_t>(std::clamp(v, -kFar, kFar)); };
  if (!(minX <= maxX && minY <= maxY)) return {};
  return {whole(std::floor(minX + kTolerance)), whole(std::floor(minY + kTolerance)),
          whole(std::ceil(maxX - kTolerance)), whole(std::ceil(maxY - kTolerance))};
}

const platform::Affine& CRasterSource::PixelToGround() const { return m_impl->toGround; }
const platform::Affine& CRasterSource::GroundToPixel() const { return m_impl->toPixel; }

RasterDataFormat CRasterSource::GetDataFormat(const std::wstring& path) {
  const platform::RasterFormat* format = platform::FindRasterFormat(CommonFun::GetExtensionName(path));
  return format ? format->number : kFormatUnknown;
}

bool CRasterSource::IsWritable() const { return m_impl->writable; }
void* CRasterSource::NativeHandle() const { return m_impl->dataset; }
void* CRasterSource::AlphaHandle() const {
  // Of a raster that is being made it may be declared at any time.
  if (!m_impl->alpha || m_impl->writable) m_impl->alpha = platform::AlphaBand(m_impl->dataset);
  return *m_impl->alpha;
}
std::mutex& CRasterSource::TransferLock() const { return m_impl->transfer; }
