#include "platform/raster/cache_room.h"

#include <cpl_conv.h>
#include <cpl_vsi.h>
#include <gdal_priv.h>

#include <algorithm>
#include <mutex>

#include "platform/raster/gdal_access.h"
#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_source.h"
#include "platform/system/process.h"

namespace platform {
namespace {

/// Changes the process-wide limit of decoded blocks; what the caches of all runs ask for adds up.
void Grow(std::int64_t bytes) {
  static std::mutex mutex;
  const std::lock_guard<std::mutex> lock(mutex);
  GDALSetCacheMax64(GDALGetCacheMax64() + bytes);
}

/// More than this is not kept: 1 GiB, on small machines a quarter of the memory.
std::int64_t MostBytes() {
  constexpr std::int64_t kMost = std::int64_t{1} << 30;
  const std::int64_t memory = CPLGetUsablePhysicalRAM();
  return memory > 0 ? std::min(kMost, memory / 4) : kMost;
}

}  // namespace

CacheRoom::~CacheRoom() {
  if (m_bytes > 0) Grow(-m_bytes);
}

std::int64_t CacheRoom::BytesOf(const CRasterSource& source, std::int64_t rows) {
  if (!source.IsWritable() && HasLargePlainStrips(*DatasetOf(source))) return 0;
  // Rows that begin and end inside native blocks have those decoded as well.
  const std::int64_t block = std::max(source.GetBlockYSize(), 1);
  const std::int64_t blocks = (source.GetHeight() + (block - 1)) / block;
  const std::int64_t decoded = std::min(rows + 2 * (block - 1), blocks * block);
  return decoded * source.GetWidth() * source.GetBandCount() * PixelSize(source.GetRasterDataType());
}

std::int64_t CacheRoom::BytesToShare(const CRasterSource& source, std::int64_t rows) {
  const char* interleave = DatasetOf(source)->GetMetadataItem("INTERLEAVE", "IMAGE_STRUCTURE");
  const bool together = source.GetBandCount() > 1 && !(interleave && EQUAL(interleave, "BAND"));
  return BytesOf(source, together ? rows : 0);
}

bool CacheRoom::Reserve(std::int64_t bytes) {
  if (bytes <= m_bytes) return true;
  if (!OwnsProcess()) return bytes <= GDALGetCacheMax64();
  if (bytes > MostBytes() || CPLGetConfigOption("GDAL_CACHEMAX", nullptr)) return false;
  Grow(bytes - m_bytes);
  m_bytes = bytes;
  return true;
}

}  // namespace platform
