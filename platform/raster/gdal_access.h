#pragma once

#include <string>

#include "platform/raster/raster_types.h"

class CRasterSource;
class GDALDataset;
class GDALRasterBand;
class OGRSpatialReference;

/// What the platform's sources share of GDAL; its own headers stay in the sources.
namespace platform {

/// Registers the drivers and bounds the block cache, once.
void InitialiseGdal();

/// Keeps GDAL's errors off the terminal while it lives, counts them and keeps the text of the first.
class GdalErrors {
 public:
  GdalErrors();
  ~GdalErrors();
  GdalErrors(const GdalErrors&) = delete;
  GdalErrors& operator=(const GdalErrors&) = delete;
  bool Any() const { return m_nFailures > 0; }
  /// Empty where GDAL gave none.
  const std::string& Reason() const { return m_strReason; }
  /// Whether one was a lack of memory.
  bool OutOfMemory() const { return m_bOutOfMemory; }
  void Count(int number, const char* text);

 private:
  int m_nFailures = 0;
  bool m_bOutOfMemory = false;
  std::string m_strReason;
};

GDALDataset* DatasetOf(const CRasterSource& source);
/// Its alpha band; null where there is none.
GDALRasterBand* AlphaOf(const CRasterSource& source);

/// Opens what a name leads to, as GDALDataset::Open does. Null for a pipe or a device too: opening one may wait for
/// ever.
GDALDataset* OpenNamed(const std::string& name, unsigned int flags, const char* const* options = nullptr);

/// Opens a raster; null where that fails, or where it has no bands. A file that is only read and whose uncompressed
/// strips are large is read past the cache of decoded blocks, where one strip would push out the other.
GDALDataset* OpenDataset(const std::string& name, bool update);

bool IsGeoTiff(GDALDataset& dataset);
/// Whether a raster is one that OpenDataset has read past the cache.
bool HasLargePlainStrips(GDALDataset& dataset);

/// GDALDataType of a pixel type and back; GDT_Unknown for PDT_UNKNOWN. Types without a counterpart become the next
/// wider one that holds them.
int ToGdalType(PixelDataType type);
PixelDataType FromGdalType(int type);

/// Sets a coordinate system from WKT with x before y; false when it cannot be read.
bool ReadWkt(const std::wstring& wkt, OGRSpatialReference& crs);

}  // namespace platform
