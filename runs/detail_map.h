#pragma once

#include <vector>

#include "platform/raster/raster_types.h"

namespace fusion {

/// How much changes along the rows of an image, block by block: where there is something to be seen.
class DetailMap {
 public:
  /// @param rect of the image that is looked at; @param side of a block, in pixels
  DetailMap(const CRect& rect, int side);

  /// @param samples of a row of the rectangle; NaN for no data
  void AddRow(int y, const std::vector<double>& samples);
  /// The window of width x height pixels with most change in it, of those that are full of data where there are any.
  /// @param others windows that it must not touch; empty where there is no room beside them
  CRect Best(int width, int height, const std::vector<CRect>& others = {}) const;

 private:
  /// Of all blocks above and to the left, one row and column more than blocks.
  std::vector<double> Sums(const std::vector<double>& values) const;

  CRect m_rect;
  int m_side;
  int m_width;
  int m_height;
  std::vector<double> m_changes;
  std::vector<double> m_known;
  std::vector<double> m_looked;
};

}  // namespace fusion
