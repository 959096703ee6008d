#include "platform/raster/raster_band.h"

#include <gdal_priv.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "platform/algorithm/base_progress.h"
#include "platform/raster/gdal_access.h"
#include "platform/raster/no_data.h"
#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_fault.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/row_statistics.h"

namespace {

constexpr int kFailed = 1;

GDALRasterBand* BandOf(const CRasterSource& source, int index) {
  return platform::DatasetOf(source)->GetRasterBand(index + 1);
}

}  // namespace

CRasterBand::CRasterBand(CRasterSource* source, int index) : m_pSource(source), m_nIndex(index) {}

int CRasterBand::Transfer(bool write, const CRect& rect, void* buffer, int bufferWidth, int bufferHeight,
                          PixelDataType type, int pixelSpace, int lineSpace) {
  const bool inside = rect.left >= 0 && rect.top >= 0 && rect.right > rect.left && rect.bottom > rect.top &&
                      rect.right <= GetWidth() && rect.bottom <= GetHeight();
  if (!inside || !buffer || bufferWidth != rect.Width() || bufferHeight != rect.Height() ||
      !platform::IsPixelType(type) || pixelSpace < 0 || lineSpace < 0) {
    return kFailed;
  }
  const auto operation = write ? platform::RasterOperation::kWrite : platform::RasterOperation::kRead;
  if (platform::RasterFails(operation, m_pSource->GetPath(), m_nIndex, rect)) return kFailed;
  const platform::GdalErrors quiet;
  const CPLErr result =
      BandOf(*m_pSource, m_nIndex)
          ->RasterIO(write ? GF_Write : GF_Read, rect.left, rect.top, rect.Width(), rect.Height(), buffer, bufferWidth,
                     bufferHeight, static_cast<GDALDataType>(platform::ToGdalType(type)), pixelSpace, lineSpace,
                     nullptr);
  // A failed write of an older block shows up as an error of this call.
  return result == CE_None && !(write && quiet.Any()) ? 0 : kFailed;
}

namespace {

/// A rectangle from its size; empty where the far edge does not fit an int.
CRect RectOf(int left, int top, int width, int height) {
  const std::int64_t right = static_cast<std::int64_t>(left) + width;
  const std::int64_t bottom = static_cast<std::int64_t>(top) + height;
  if (width <= 0 || height <= 0 || right > INT32_MAX || bottom > INT32_MAX) return {};
  return {left, top, static_cast<std::int32_t>(right), static_cast<std::int32_t>(bottom)};
}

}  // namespace

int CRasterBand::ReadBlock(int left, int top, int width, int height, void* buffer, int bufferWidth, int bufferHeight,
                           PixelDataType type, int pixelSpace, int lineSpace) {
  return Transfer(false, RectOf(left, top, width, height), buffer, bufferWidth, bufferHeight, type, pixelSpace,
                  lineSpace);
}

int CRasterBand::WriteBlock(int left, int top, int width, int height, const void* buffer, int bufferWidth,
                            int bufferHeight, PixelDataType type, int pixelSpace, int lineSpace) {
  return Transfer(true, RectOf(left, top, width, height), const_cast<void*>(buffer), bufferWidth, bufferHeight, type,
                  pixelSpace, lineSpace);
}

PixelDataType CRasterBand::GetRasterDataType() const {
  return platform::FromGdalType(BandOf(*m_pSource, m_nIndex)->GetRasterDataType());
}

int CRasterBand::GetBlockXSize() const {
  int x = 0;
  int y = 0;
  BandOf(*m_pSource, m_nIndex)->GetBlockSize(&x, &y);
  return x;
}

int CRasterBand::GetBlockYSize() const {
  int x = 0;
  int y = 0;
  BandOf(*m_pSource, m_nIndex)->GetBlockSize(&x, &y);
  return y;
}

int CRasterBand::GetWidth() const { return m_pSource->GetWidth(); }
int CRasterBand::GetHeight() const { return m_pSource->GetHeight(); }

bool CRasterBand::IsHaveNoData() const {
  int declared = 0;
  BandOf(*m_pSource, m_nIndex)->GetNoDataValue(&declared);
  return declared != 0;
}

double CRasterBand::GetNoDataValue() const {
  int declared = 0;
  const double value = BandOf(*m_pSource, m_nIndex)->GetNoDataValue(&declared);
  return declared ? value : 0.0;
}

platform::NoDataTest CRasterBand::GetNoDataTest() const {
  return {IsHaveNoData(), GetRasterDataType() == PDT_FLOAT32, GetNoDataValue()};
}

bool CRasterBand::IsNoData(double value) const { return GetNoDataTest()(value); }

/// Hands on whole rows in strips of bounded size until visit answers false. False after a failed read.
template <typename Visit>
bool CRasterBand::ForEachStrip(const Visit& visit) {
  const int width = GetWidth();
  const int height = GetHeight();
  constexpr std::int64_t kBufferBytes = std::int64_t{8} << 20;
  const std::int64_t blockRows = std::max(GetBlockYSize(), 1);
  std::int64_t rows = std::max<std::int64_t>(kBufferBytes / (static_cast<std::int64_t>(sizeof(double)) * width), 1);
  // Whole native blocks, so that none is decoded twice.
  if (rows > blockRows) rows -= rows % blockRows;
  const int strip = static_cast<int>(std::min<std::int64_t>(rows, height));

  std::vector<double> values(static_cast<std::size_t>(strip) * static_cast<std::size_t>(width));
  for (int top = 0; top < height; top += strip) {
    const int count = std::min(strip, height - top);
    if (ReadBlock(0, top, width, count, values.data(), width, count, PDT_FLOAT64) != 0) return false;
    if (!visit(values.data(), width, count)) return true;
  }
  return true;
}

bool CRasterBand::ComputeStatics(double* minimum, double* maximum, double* mean, double* stdDev, bool /*approximate*/,
                                 CBaseProgress* progress) {
  *minimum = *maximum = *mean = *stdDev = 0.0;
  platform::RowStatistics statistics(platform::NoDataSample(*this));
  bool cancelled = false;
  const bool read = ForEachStrip([&](const double* values, int width, int rows) {
    for (int row = 0; row < rows; ++row) statistics.Add(values + static_cast<std::ptrdiff_t>(row) * width, width);
    cancelled = progress && progress->IsCancelRequested();
    return !cancelled;
  });
  if (!read || cancelled || statistics.Count() == 0) return false;
  *minimum = statistics.Minimum();
  *maximum = statistics.Maximum();
  *mean = statistics.Mean();
  *stdDev = statistics.StdDev();
  return true;
}

bool CRasterBand::HasValidPixel() {
  platform::RowStatistics statistics(platform::NoDataSample(*this));
  return ForEachStrip([&](const double* values, int width, int rows) {
           statistics.Add(values, static_cast<std::int64_t>(width) * rows);
           return statistics.Count() == 0;
         }) &&
         statistics.Count() > 0;
}

bool CRasterBand::ComputeMinMax(double* minimum, double* maximum, bool approximate) {
  double mean = 0.0;
  double stdDev = 0.0;
  return ComputeStatics(minimum, maximum, &mean, &stdDev, approximate, nullptr);
}
