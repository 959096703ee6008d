#include "platform/raster/raster_band.h"

#include <gdal_priv.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <mutex>
#include <new>
#include <vector>

#include "platform/algorithm/base_progress.h"
#include "platform/raster/gdal_access.h"
#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_fault.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/read_window.h"
#include "platform/raster/written_raster.h"
#include "platform/statistics/band_figures.h"
#include "platform/statistics/row_statistics.h"
#include "platform/statistics/survey.h"
#include "platform/system/task_queue.h"
#include "platform/utility/common_fun.h"
#include "platform/validity/no_data.h"
#include "platform/validity/sample_mask.h"

namespace {

constexpr int kFailed = 1;

GDALRasterBand* BandOf(const CRasterSource& source, int index) {
  return platform::DatasetOf(source)->GetRasterBand(index + 1);
}

/// A rectangle from its size; empty where the far edge does not fit an int.
CRect RectOf(int left, int top, int width, int height) {
  const std::int64_t right = static_cast<std::int64_t>(left) + width;
  const std::int64_t bottom = static_cast<std::int64_t>(top) + height;
  if (width <= 0 || height <= 0 || right > INT32_MAX || bottom > INT32_MAX) return {};
  return {left, top, static_cast<std::int32_t>(right), static_cast<std::int32_t>(bottom)};
}

/// GDAL reads signed bytes as unsigned ones and tells so aside.
bool HasSignedBytes(GDALRasterBand& band) {
  const char* kind = band.GetMetadataItem("PIXELTYPE", "IMAGE_STRUCTURE");
  return band.GetRasterDataType() == GDT_Byte && kind && EQUAL(kind, "SIGNEDBYTE");
}

/// Whether every row of the band lies in a strip of a GeoTIFF that holds nothing but rows of this band.
bool LiesInStrips(GDALRasterBand& band) {
  GDALDataset* dataset = band.GetDataset();
  if (!dataset || !platform::IsGeoTiff(*dataset)) return false;
  const char* interleave = dataset->GetMetadataItem("INTERLEAVE", "IMAGE_STRUCTURE");
  int x = 0;
  int y = 0;
  band.GetBlockSize(&x, &y);
  return x == band.GetXSize() && (dataset->GetRasterCount() == 1 || (interleave && EQUAL(interleave, "BAND")));
}

}  // namespace

CRasterBand::CRasterBand(CRasterSource* source, int index)
    : m_pSource(source), m_nIndex(index), m_bSignedBytes(HasSignedBytes(*BandOf(*source, index))) {
  GDALRasterBand* band = BandOf(*source, index);
  m_eType = m_bSignedBytes ? PDT_INT16 : platform::FromGdalType(band->GetRasterDataType());
  band->GetBlockSize(&m_nBlockXSize, &m_nBlockYSize);
  // Complex samples, for one, are presented as another type than the file's.
  m_bStrips = LiesInStrips(*band) && platform::ToGdalType(m_eType) == band->GetRasterDataType();
  m_bPlainStrips = m_bStrips && !band->GetDataset()->GetMetadataItem("COMPRESSION", "IMAGE_STRUCTURE");
  int declared = 0;
  const double value = band->GetNoDataValue(&declared);
  m_noData = {declared != 0, m_eType == PDT_FLOAT32, declared != 0 ? value : 0.0};
}

int CRasterBand::Transfer(bool write, const CRect& rect, void* buffer, int bufferWidth, int bufferHeight,
                          PixelDataType type, int pixelSpace, int lineSpace) {
  const bool inside = rect.left >= 0 && rect.top >= 0 && rect.right > rect.left && rect.bottom > rect.top &&
                      rect.right <= GetWidth() && rect.bottom <= GetHeight();
  if (!inside || !buffer || bufferWidth != rect.Width() || bufferHeight != rect.Height() ||
      !platform::IsPixelType(type) || pixelSpace < 0 || lineSpace < 0) {
    return kFailed;
  }
  if (write && (m_bSignedBytes || !m_pSource->IsWritable())) return kFailed;
  const auto operation = write ? platform::RasterOperation::kWrite : platform::RasterOperation::kRead;
  if (platform::RasterFails(operation, m_pSource->GetPath(), m_nIndex, rect)) return kFailed;
  const std::lock_guard lock(m_pSource->TransferLock());
  platform::WrittenRaster* written = write ? m_pSource->GetWritten() : nullptr;
  if (written) written->Add(m_nIndex, rect, buffer, type, pixelSpace, lineSpace);
  const platform::GdalErrors quiet;
  // A lack of memory is told as one, not as a failure of the disk.
  const auto answer = [&](bool ok) {
    if (!ok && quiet.OutOfMemory()) throw std::bad_alloc();
    return ok ? 0 : kFailed;
  };
  if (write && WriteStrips(rect, buffer, type, pixelSpace, lineSpace)) return answer(!quiet.Any());
  if (m_pSource->IsWritable()) m_bStrips = false;
  if (m_bSignedBytes) return answer(ReadSignedBytes(rect, buffer, type, pixelSpace, lineSpace));
  if (!write && ReadStrips(rect, buffer, type, pixelSpace, lineSpace)) return answer(!quiet.Any());
  const CPLErr result =
      BandOf(*m_pSource, m_nIndex)
          ->RasterIO(write ? GF_Write : GF_Read, rect.left, rect.top, rect.Width(), rect.Height(), buffer, bufferWidth,
                     bufferHeight, static_cast<GDALDataType>(platform::ToGdalType(type)), pixelSpace, lineSpace,
                     nullptr);
  // A failed write of an older block shows up as an error of this call.
  return answer(result == CE_None && !(write && quiet.Any()));
}

/// Whole strips in the band's own type go straight to the file, as long as no block of the band has been in the cache
/// of decoded blocks, which would not know. False, with nothing written, where that is not possible. Failures are
/// GDAL's errors.
bool CRasterBand::WriteStrips(const CRect& rect, void* buffer, PixelDataType type, int pixelSpace, int lineSpace) {
  const int pixelBytes = platform::PixelSize(type);
  const std::int64_t rowBytes = std::int64_t{pixelBytes} * rect.Width();
  const bool packed = (pixelSpace == 0 || pixelSpace == pixelBytes) && (lineSpace == 0 || lineSpace == rowBytes);
  if (!m_bStrips || type != m_eType || !packed || rect.Width() != GetWidth() || rect.top % m_nBlockYSize != 0 ||
      rect.Height() % m_nBlockYSize != 0) {
    return false;
  }
  GDALRasterBand* band = BandOf(*m_pSource, m_nIndex);
  auto* strip = static_cast<unsigned char*>(buffer);
  for (int row = rect.top; row < rect.bottom; row += m_nBlockYSize, strip += rowBytes * m_nBlockYSize) {
    if (band->WriteBlock(0, row / m_nBlockYSize, strip) != CE_None) break;
  }
  return true;
}

/// Whole rows of an uncompressed image that nobody changes become doubles straight from its strips, each of which is
/// then still in the processor's cache: on their way through the cache of decoded blocks they would take
/// longer. False where that is not possible. Failures are GDAL's errors.
bool CRasterBand::ReadStrips(const CRect& rect, void* buffer, PixelDataType type, int pixelSpace, int lineSpace) {
  constexpr std::int64_t kMostBytes = std::int64_t{1} << 20;
  const std::int64_t width = GetWidth();
  const std::int64_t stripBytes = platform::PixelSize(m_eType) * width * m_nBlockYSize;
  if (!m_bPlainStrips || m_pSource->IsWritable() || stripBytes > kMostBytes || type != PDT_FLOAT64 || pixelSpace != 0 ||
      lineSpace != 0 || rect.Width() != width) {
    return false;
  }
  GDALRasterBand* band = BandOf(*m_pSource, m_nIndex);
  std::vector<unsigned char> strip(static_cast<std::size_t>(stripBytes));
  auto* out = static_cast<double*>(buffer);
  for (int row = rect.top; row < rect.bottom;) {
    const int block = row / m_nBlockYSize;
    if (band->ReadBlock(0, block, strip.data()) != CE_None) break;
    const int skipped = row - block * m_nBlockYSize;
    const int rows = std::min(m_nBlockYSize - skipped, rect.bottom - row);
    out = platform::DispatchPixelType(m_eType, [&](auto element) -> double* {
      const auto* samples = reinterpret_cast<const decltype(element)*>(strip.data()) + skipped * width;
      return std::copy_n(samples, rows * width, out);
    });
    row += rows;
  }
  return true;
}

/// The samples as 16-bit integers first, then in the type wanted.
bool CRasterBand::ReadSignedBytes(const CRect& rect, void* buffer, PixelDataType type, int pixelSpace, int lineSpace) {
  std::vector<std::int8_t> bytes(static_cast<std::size_t>(rect.Width()));
  std::vector<std::int16_t> samples(bytes.size());
  const int pixelStep = pixelSpace != 0 ? pixelSpace : platform::PixelSize(type);
  const std::ptrdiff_t lineStep = lineSpace != 0 ? lineSpace : std::ptrdiff_t{pixelStep} * rect.Width();
  for (int row = 0; row < rect.Height(); ++row) {
    if (BandOf(*m_pSource, m_nIndex)
            ->RasterIO(GF_Read, rect.left, rect.top + row, rect.Width(), 1, bytes.data(), rect.Width(), 1, GDT_Byte, 0,
                       0, nullptr) != CE_None) {
      return false;
    }
    std::copy(bytes.begin(), bytes.end(), samples.begin());
    GDALCopyWords(samples.data(), GDT_Int16, sizeof(std::int16_t), static_cast<char*>(buffer) + row * lineStep,
                  static_cast<GDALDataType>(platform::ToGdalType(type)), pixelStep, rect.Width());
  }
  return true;
}

int CRasterBand::ReadBlock(int left, int top, int width, int height, void* buffer, int bufferWidth, int bufferHeight,
                           PixelDataType type, int pixelSpace, int lineSpace) {
  const CRect rect = RectOf(left, top, width, height);
  const bool packedDoubles = type == PDT_FLOAT64 && pixelSpace == 0 && lineSpace == 0;
  if (m_bGaps && packedDoubles && bufferWidth == width && bufferHeight == height) {
    bool gaps = false;
    return ReadSamples(rect, static_cast<double*>(buffer), gaps);
  }
  return Transfer(false, rect, buffer, bufferWidth, bufferHeight, type, pixelSpace, lineSpace);
}

int CRasterBand::ReadSamples(const CRect& rect, double* values, bool& gaps) {
  gaps = false;
  if (!m_bGaps) return Transfer(false, rect, values, rect.Width(), rect.Height(), PDT_FLOAT64, 0, 0);
  // Where no block of the file is decoded twice for it, pieces that are still in the processor's cache when they are
  // looked through.
  constexpr std::int64_t kPiece = 1 << 15;
  const int width = rect.Width();
  const std::int64_t blockValues = std::int64_t{m_nBlockYSize} * width;
  const int step = width > 0 && blockValues <= kPiece ? static_cast<int>(kPiece / blockValues) * m_nBlockYSize
                                                      : std::max(rect.Height(), 1);
  // Pieces end where blocks do.
  int top = rect.top;
  do {
    const std::int64_t next = step < rect.Height() ? (std::int64_t{top} / step + 1) * step : rect.bottom;
    const CRect piece(rect.left, top, rect.right, static_cast<int>(std::min<std::int64_t>(next, rect.bottom)));
    if (Transfer(false, piece, values, width, piece.Height(), PDT_FLOAT64, 0, 0) != 0) return kFailed;
    if (platform::ClearNoData(platform::NoDataSample(*this), values, piece.Area())) gaps = true;
    if (m_bMask && !ClearMasked(piece, values, gaps)) return kFailed;
    values += piece.Area();
    top = piece.bottom;
  } while (top < rect.bottom);
  return 0;
}

bool CRasterBand::ClearMasked(const CRect& rect, double* values, bool& gaps) {
  const std::lock_guard lock(m_pSource->TransferLock());
  GDALRasterBand* const validity = platform::ValidityBand(*BandOf(*m_pSource, m_nIndex), platform::AlphaOf(*m_pSource));
  return !validity || platform::ClearMasked(*validity, rect, values, gaps);
}

int CRasterBand::WriteBlock(int left, int top, int width, int height, const void* buffer, int bufferWidth,
                            int bufferHeight, PixelDataType type, int pixelSpace, int lineSpace) {
  return Transfer(true, RectOf(left, top, width, height), const_cast<void*>(buffer), bufferWidth, bufferHeight, type,
                  pixelSpace, lineSpace);
}

PixelDataType CRasterBand::GetRasterDataType() const { return m_eType; }
int CRasterBand::GetBlockXSize() const { return m_nBlockXSize; }
int CRasterBand::GetBlockYSize() const { return m_nBlockYSize; }
int CRasterBand::GetWidth() const { return m_pSource->GetWidth(); }
int CRasterBand::GetHeight() const { return m_pSource->GetHeight(); }

bool CRasterBand::IsHaveNoData() const { return m_noData.declared; }
double CRasterBand::GetNoDataValue() const { return m_noData.value; }
platform::NoDataRule CRasterBand::GetNoDataRule() const { return m_noData; }
bool CRasterBand::IsNoData(double value) const { return m_noData(value); }

void CRasterBand::DeclareNoData(double value) {
  if (!platform::IsRepresentable(value, m_eType)) return;
  const platform::GdalErrors quiet;
  if (BandOf(*m_pSource, m_nIndex)->SetNoDataValue(value) != CE_None) return;
  m_noData.declared = true;
  m_noData.value = value;
}

std::wstring CRasterBand::GetDescription() const {
  return CommonFun::Utf82U(BandOf(*m_pSource, m_nIndex)->GetDescription());
}

bool CRasterBand::IsAlpha() const { return BandOf(*m_pSource, m_nIndex)->GetColorInterpretation() == GCI_AlphaBand; }

bool CRasterBand::HasMask() const {
  return platform::ValidityBand(*BandOf(*m_pSource, m_nIndex), platform::AlphaOf(*m_pSource)) != nullptr;
}

void CRasterBand::SetMaskNoData(bool mask, bool hasMask) {
  m_bMask = mask && hasMask;
  m_bGaps = m_bMask || (mask && (m_noData.declared || platform::IsFloatType(m_eType)));
}

bool CRasterBand::MayHoldGaps() const { return m_bGaps; }

template <typename PieceAt, typename Visit>
bool CRasterBand::ForEachWindow(const platform::WindowGrid& windows, std::int64_t count, const PieceAt& pieceAt,
                                const Visit& visit) {
  std::vector<double> values[2];
  bool wanted = true;
  const auto load = [&](std::int64_t i, int slot) {
    const CRect rect = windows.At(pieceAt(i));
    values[slot].resize(static_cast<std::size_t>(windows.step.Area()));
    double* samples = values[slot].data();
    // The figures leave the no-data value out by themselves.
    bool gaps = false;
    return Transfer(false, rect, samples, rect.Width(), rect.Height(), PDT_FLOAT64, 0, 0) == 0 &&
           (!m_bMask || ClearMasked(rect, samples, gaps));
  };
  const auto use = [&](std::int64_t i, int slot) {
    return wanted = visit(pieceAt(i), values[slot].data(), windows.At(pieceAt(i)).Area());
  };
  return platform::LoadInTurn(m_pSource->IsReadAhead(), count, load, use) || !wanted;
}

template <typename Part, typename Reduce, typename Fold, typename GoesOn>
bool CRasterBand::FoldWindows(const char* name, bool& pending, const Reduce& reduce, const Fold& fold,
                              const GoesOn& goesOn) {
  if (platform::RasterFails(platform::RasterOperation::kStatistics, m_pSource->GetPath(), m_nIndex)) return false;
  const platform::WindowGrid windows = platform::ReadWindows(*this, platform::kStatisticsWindow);
  const platform::SurveyPass pass =
      m_pSource->Pass("band " + std::to_string(m_nIndex + 1) + ' ' + name, windows.Count());
  const std::vector<std::int64_t>& pieces = pass.Pieces();
  const auto pieceAt = [&](std::int64_t i) { return pieces[static_cast<std::size_t>(i)]; };
  const auto take = [&](std::int64_t piece, const double* values, std::int64_t count) {
    Part part = reduce(values, count);
    pass.Take(piece, part, fold);
    return goesOn();
  };
  if (!ForEachWindow(windows, static_cast<std::int64_t>(pieces.size()), pieceAt, take)) return false;
  pending = !pass.End<Part>(fold);
  return true;
}

bool CRasterBand::ComputeStatics(double* minimum, double* maximum, double* mean, double* stdDev, bool /*approximate*/,
                                 CBaseProgress* progress) {
  *minimum = *maximum = *mean = *stdDev = 0.0;
  platform::BandFigures figures(platform::NoDataSample(*this));
  bool cancelled = false;
  bool pending = false;
  const bool read = FoldWindows<platform::BandFigures::Part>(
      "figures", pending,
      [&](const double* values, std::int64_t count) { return figures.Reduce(values, count, m_pSource->GetWorkers()); },
      [&](const platform::BandFigures::Part& part) { figures.Add(part); },
      [&] {
        cancelled = progress && progress->IsCancelRequested();
        return !cancelled;
      });
  if (!read || cancelled) return false;
  // Whoever goes on asks the survey first.
  if (pending) return true;
  if (figures.IsEmpty()) return false;
  *minimum = figures.Minimum();
  *maximum = figures.Maximum();
  *mean = figures.Mean();
  *stdDev = figures.StdDev();
  return true;
}

bool CRasterBand::HasValidPixel() {
  if (platform::RasterFails(platform::RasterOperation::kStatistics, m_pSource->GetPath(), m_nIndex)) return false;
  platform::RowRange range(platform::NoDataSample(*this));
  // Most images have one in the first rows.
  const platform::WindowGrid windows = platform::ReadWindows(*this, std::int64_t{1} << 16);
  const auto look = [&](std::int64_t, const double* values, std::int64_t count) {
    range.Add(values, count);
    return range.IsEmpty();
  };
  return ForEachWindow(
             windows, windows.Count(), [](std::int64_t i) { return i; }, look) &&
         !range.IsEmpty();
}

bool CRasterBand::ComputeMinMax(double* minimum, double* maximum, bool /*approximate*/) {
  *minimum = *maximum = 0.0;
  const double noData = platform::NoDataSample(*this);
  platform::RowRange range(noData);
  const auto reduce = [&](const double* values, std::int64_t count) {
    platform::RowRange whole(noData);
    platform::FoldPieces(
        m_pSource->GetWorkers(), count,
        [&](std::int64_t first, std::int64_t end) {
          platform::RowRange part(noData);
          part.Add(values + first, end - first);
          return part;
        },
        [&](const platform::RowRange& part) { whole.Add(part); });
    return whole;
  };
  bool pending = false;
  const bool read = FoldWindows<platform::RowRange>(
      "range", pending, reduce, [&](const platform::RowRange& part) { range.Add(part); }, [] { return true; });
  if (read && pending) return true;
  if (!read || range.IsEmpty()) return false;
  *minimum = range.Minimum();
  *maximum = range.Maximum();
  return true;
}
