#include "platform/raster/written_raster.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_source.h"

namespace platform {
namespace {

std::string Numbers(const std::array<double, 6>& t) {
  std::string text;
  for (const double v : t) text += (text.empty() ? "" : " ") + std::to_string(v);
  return text;
}

std::string SizeText(int width, int height, std::size_t bands) {
  return std::to_string(width) + "x" + std::to_string(height) + " with " + std::to_string(bands) +
         (bands == 1 ? " band" : " bands");
}

/// Whether two georeferences agree to a thousandth of a pixel all over the image. Formats keep them as text or in
/// numbers of their own.
bool Agree(const std::array<double, 6>& made, const std::array<double, 6>& read, double width, double height) {
  constexpr double kOfPixel = 1e-3;
  const auto differ = [&](std::size_t first, double pixel) {
    const auto off = [&](double x, double y) {
      const double made0 = made[first] + made[first + 1] * x + made[first + 2] * y;
      return std::fabs(made0 - (read[first] + read[first + 1] * x + read[first + 2] * y));
    };
    return !(std::max(std::max(off(0, 0), off(width, 0)), std::max(off(0, height), off(width, height))) <=
             kOfPixel * pixel);
  };
  const double pixelX = std::hypot(made[1], made[2]);
  const double pixelY = std::hypot(made[4], made[5]);
  return !differ(0, pixelX) && !differ(3, pixelY);
}

}  // namespace

void WrittenRaster::Begin(const CRasterSource& created) {
  m_width = created.GetWidth();
  m_height = created.GetHeight();
  m_type = created.GetRasterDataType();
  m_placed = created.HasGeoTransform();
  created.GetGeoTransform(m_geoTransform.data());
  m_hasSystem = !created.GetSpatialReferenceWKT().empty();
  m_bands.assign(static_cast<std::size_t>(created.GetBandCount()), {});
  constexpr int kRows = 1024;
  m_step = std::max(m_height / kRows, 1);
  m_looked = m_largest = 0;
}

void WrittenRaster::Add(int index, const CRect& rect, const void* samples, PixelDataType type, int pixelSpace,
                        int lineSpace) {
  const std::int64_t size = PixelSize(type);
  const std::int64_t rowBytes = size * rect.Width();
  if (type == m_type && (pixelSpace == 0 || pixelSpace == size)) {
    CountLargest(rect, samples, lineSpace == 0 ? rowBytes : lineSpace);
  }
  if (!m_sums) return;
  Band& band = m_bands[static_cast<std::size_t>(index)];
  const bool packed = (pixelSpace == 0 || pixelSpace == size) && (lineSpace == 0 || lineSpace == rowBytes);
  band.ordered =
      band.ordered && packed && type == m_type && rect.left == 0 && rect.Width() == m_width && rect.top == band.next;
  if (!band.ordered) return;
  band.sum.Add(samples, static_cast<std::size_t>(rowBytes * rect.Height()));
  band.next = rect.bottom;
}

void WrittenRaster::CountLargest(const CRect& rect, const void* samples, std::int64_t lineSpace) {
  for (int row = (rect.top + m_step - 1) / m_step * m_step; row < rect.bottom; row += m_step) {
    const auto* line = static_cast<const unsigned char*>(samples) + (row - rect.top) * lineSpace;
    m_largest += DispatchPixelType(m_type, [&](auto element) -> std::int64_t {
      using T = decltype(element);
      const auto* values = reinterpret_cast<const T*>(line);
      return std::count(values, values + rect.Width(), std::numeric_limits<T>::max());
    });
    m_looked += rect.Width();
  }
}

double WrittenRaster::ShareOfLargest() const {
  return m_looked > 0 ? static_cast<double>(m_largest) / static_cast<double>(m_looked) : 0.0;
}

std::string WrittenRaster::Difference(const CRasterSource& file) const {
  const auto bands = static_cast<std::size_t>(file.GetBandCount());
  if (file.GetWidth() != m_width || file.GetHeight() != m_height || bands != m_bands.size()) {
    return "it was made as " + SizeText(m_width, m_height, m_bands.size()) + " and reads as " +
           SizeText(file.GetWidth(), file.GetHeight(), bands);
  }
  for (int b = 0; b < file.GetBandCount(); ++b) {
    if (file.GetRasterBand(b)->GetRasterDataType() != m_type) {
      return "band " + std::to_string(b + 1) + " reads as another type of samples than it was made as";
    }
  }
  std::array<double, 6> read{};
  file.GetGeoTransform(read.data());
  if (m_placed && !Agree(m_geoTransform, read, m_width, m_height)) {
    return "its georeference was made as " + Numbers(m_geoTransform) + " and reads as " +
           (file.HasGeoTransform() ? Numbers(read) : "none");
  }
  if (m_hasSystem && file.GetSpatialReferenceWKT().empty()) return "it has lost its coordinate system";
  return {};
}

std::vector<std::string> WrittenRaster::Checksums() const {
  std::vector<std::string> sums;
  for (const Band& band : m_bands) {
    if (!band.ordered || band.next != m_height) return {};
    sums.push_back(band.sum.Text());
  }
  return sums;
}

std::vector<std::string> ChecksumsOf(const CRasterSource& raster, bool (*goesOn)(void* who, int percent), void* who) {
  constexpr int kRows = 64;
  const int width = raster.GetWidth();
  const int height = raster.GetHeight();
  std::vector<Crc32c> sums(static_cast<std::size_t>(raster.GetBandCount()));
  std::vector<unsigned char> rows;
  for (int top = 0; top < height; top += kRows) {
    const int count = std::min(kRows, height - top);
    for (std::size_t b = 0; b < sums.size(); ++b) {
      CRasterBand& band = *raster.GetRasterBand(static_cast<int>(b));
      const PixelDataType type = band.GetRasterDataType();
      rows.resize(static_cast<std::size_t>(PixelSize(type)) * static_cast<std::size_t>(width) *
                  static_cast<std::size_t>(count));
      if (band.ReadBlock(0, top, width, count, rows.data(), width, count, type) != 0) return {};
      sums[b].Add(rows.data(), rows.size());
    }
    if (!goesOn(who, static_cast<int>(std::int64_t{100} * (top + count) / height))) return {};
  }
  std::vector<std::string> texts;
  for (const Crc32c& sum : sums) texts.push_back(sum.Text());
  return texts;
}

}  // namespace platform
