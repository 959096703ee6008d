#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/raster/raster_types.h"
#include "platform/system/export.h"

namespace platform {

/// Samples that lie in memory, whoever has put them there.
struct MemorySamples {
  const void* first = nullptr;  ///< band 0, row 0, column 0
  PixelDataType type = PDT_UNKNOWN;
  int width = 0;                ///< pixels
  int height = 0;               ///< pixels
  int bands = 0;                ///< 1 or more
  std::int64_t pixelSpace = 0;  ///< bytes from a sample to that of the next column, positive
  std::int64_t lineSpace = 0;   ///< likewise of the next row
  std::int64_t bandSpace = 0;   ///< likewise of the next band
  bool swapped = false;         ///< bytes lie in the order of other machines
};

/// What the names of samples in memory begin with.
inline constexpr char kMemoryRasterStem[] = "/vsimem/fusion_memory_";

/// Samples in memory under a name by which rasters and runs read them where they lie: they are neither copied nor
/// changed, and have to stay while the name is in use. The name disappears with the object.
class FUSION_API MemoryRaster {
 public:
  /// @param geoTransform six terms in GDAL's order, or null for no georeference
  /// @param system coordinate system as users write it (EPSG:32633, WKT, PROJ), UTF-8; empty for none
  /// @param noData declared for all bands where given
  /// Throws std::invalid_argument, in words, for samples that are none or too far apart and for a system that is none.
  MemoryRaster(const MemorySamples& samples, const double* geoTransform, const std::string& system,
               std::optional<double> noData = std::nullopt);
  ~MemoryRaster();
  MemoryRaster(const MemoryRaster&) = delete;
  MemoryRaster& operator=(const MemoryRaster&) = delete;

  /// UTF-8.
  const std::string& Path() const { return m_path; }

 private:
  std::string m_samples;
  std::string m_path;
};

}  // namespace platform
