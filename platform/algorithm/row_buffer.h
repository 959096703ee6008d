#pragma once

#include <vector>

#include "platform/raster/cache_room.h"
#include "platform/raster/raster_source.h"

namespace platform {

/// Columns of a raster, the last one excluded.
struct Columns {
  int left;
  int right;
  int Width() const { return right - left; }
};

/// A window of rows over some bands of a raster, read as doubles: whole ones, or a range of their columns.
class RowBuffer {
 public:
  /// @param bands counted from 0
  /// @param halo rows kept above and below the loaded ones
  RowBuffer(const CRasterSource& input, std::vector<int> bands, int halo, int chunkRows);
  RowBuffer(const CRasterSource& input, std::vector<int> bands, int halo, int chunkRows, const Columns& columns);

  /// Makes count rows from first on available, with their halo. Rows at its top that the window before still holds are
  /// copied from there. False after a failed read. At most chunkRows at once.
  bool Load(int first, int count, const RowBuffer& before);

  int Width() const { return m_width; }
  /// The column of the raster that rows begin with.
  int Left() const { return m_left; }
  int BandCount() const { return static_cast<int>(m_bands.size()); }
  /// A row of the chosen bands' index-th; above and below the image its first or last row.
  const double* Row(int index, int row) const;

 private:
  bool ReadRows(int index, int first, int end);
  double* At(int index, int row);

  const CRasterSource& m_input;
  std::vector<int> m_bands;
  int m_left;
  int m_width;
  int m_height;
  int m_halo;
  int m_top = 0;  ///< rows m_top .. m_bottom - 1 are in the buffers
  int m_bottom = 0;
  std::vector<std::vector<double>> m_rows;
  CacheRoom m_cache;  ///< for bands that lie in the same blocks of the file
};

}  // namespace platform
