#pragma once

#include <cstdint>
#include <vector>

#include "platform/raster/raster_source.h"
#include "platform/raster/reproject.h"

namespace fusion {

/// For the pixels of a fused row the cells of the multispectral buffer under them, clamped into the buffer, as linear
/// indices into a buffer that holds a rectangle.
class MsCells {
 public:
  MsCells() = default;
  /// @param reprojectedShift columns added to a pixel's position under reprojection
  MsCells(const CRasterSource& fused, const CRasterSource& ms, const CReproject* reproject, int reprojectedShift);

  /// Whether the pixels of a row lie on one multispectral row, and those of a column on one column: a pixel's cell is
  /// then what its row and its column come to together.
  bool InRows() const { return m_separable; }
  const std::vector<std::int64_t>& Columns(const CRect& block, const CRect& read);
  std::int64_t RowStart(int y, const CRect& block, const CRect& read) const;

  /// The cells of a row's pixels, however they lie.
  void Row(int y, const CRect& block, const CRect& read, std::int64_t* cells);

 private:
  platform::Affine m_toGround;
  platform::Affine m_toPixel;
  int m_msWidth = 0;
  int m_msHeight = 0;
  const CReproject* m_reproject = nullptr;
  int m_shift = 0;
  bool m_separable = false;

  CRect m_block;  ///< columns of the block and of the buffer that m_columns was made for
  CRect m_read;
  std::vector<std::int64_t> m_columns;
  std::vector<double> m_x;
  std::vector<double> m_y;
};

/// Column (or row) of a buffer for a sample coordinate: rounded half up, clamped to 0 .. size - 1.
std::int64_t BufferCell(double position, int origin, int size);

/// out[i] = band[cells[i]]
void Gather(const double* band, const std::int64_t* cells, int n, double* out);

}  // namespace fusion
