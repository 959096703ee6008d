#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/raster/raster_types.h"
#include "platform/utility/checksums.h"

class CRasterSource;

namespace platform {

/// What a raster was made as, and what was written into it: what its file has to give back.
class WrittenRaster {
 public:
  /// @param sums whether Checksums is going to be asked
  explicit WrittenRaster(bool sums) : m_sums(sums) {}
  /// Begins with a raster just created.
  void Begin(const CRasterSource& created);
  /// For CRasterBand: samples that a band has taken.
  void Add(int index, const CRect& rect, const void* samples, PixelDataType type, int pixelSpace, int lineSpace);

  /// Why a file is not what was made; empty where it is. Samples are not looked at.
  std::string Difference(const CRasterSource& file) const;
  /// Of each band, see ChecksumsOf; empty where it was not written as whole rows from top to bottom, once.
  std::vector<std::string> Checksums() const;
  /// The share of the samples that are the largest value of their type, by the rows that are looked at: every one of a
  /// raster of less than 2048, 1024 or more evenly spread ones of a higher one.
  double ShareOfLargest() const;

 private:
  void CountLargest(const CRect& rect, const void* samples, std::int64_t lineSpace);

  bool m_sums;
  int m_width = 0;
  int m_height = 0;
  PixelDataType m_type = PDT_UNKNOWN;
  bool m_placed = false;  ///< it has a georeference
  std::array<double, 6> m_geoTransform{};
  bool m_hasSystem = false;
  struct Band {
    Crc32c sum;
    int next = 0;  ///< the row that is to come
    bool ordered = true;
  };
  std::vector<Band> m_bands;
  int m_step = 1;  ///< from one row that is looked at to the next; the first one is
  std::int64_t m_looked = 0;
  std::int64_t m_largest = 0;
};

/// Of each band the checksum of its samples, row by row, as they lie in the memory of a little-endian machine. Empty
/// after a failed read. Whoever is asked between rows says whether to go on.
std::vector<std::string> ChecksumsOf(const CRasterSource& raster, bool (*goesOn)(void* who, int percent), void* who);

}  // namespace platform
