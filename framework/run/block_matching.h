#pragma once

#include <vector>

#include "framework/match_targets.h"
#include "platform/algorithm/row_conversion.h"
#include "platform/processing/moment_matching.h"

namespace fusion {

/// Brings fused blocks to target moments on their way to the output. Every block comes twice: once to be counted, once
/// more, after EndCounting, to be written. That is faster than keeping a floating-point copy of the whole result in
/// between.
class BlockMatching {
 public:
  /// @param outType of the output raster
  /// @param masked 0 marks pixels without data in the fused blocks, and in the output
  BlockMatching(const MatchTargets& targets, PixelDataType outType, bool masked);

  /// The type that the blocks are to be fused in.
  PixelDataType FusedType() const { return m_fusedType; }
  bool IsCounting() const { return !m_counted; }
  void EndCounting();
  MatchOutliers Outliers() const { return {m_matching.Outliers(), m_matching.Widening()}; }

  /// Counts or writes a block.
  /// @param bands one buffer of FusedType per band
  /// @param rect the block in the output raster
  /// @param inside one byte per pixel, 0 outside the area of interest; empty where all are inside
  /// @return false after a failed write
  bool Take(void* const* bands, const CRect& rect, const std::vector<unsigned char>& inside, CRasterSource& output);

 private:
  void Count(void* const* bands, const CRect& rect, const unsigned char* inside);
  bool Write(void* const* bands, const CRect& rect, const unsigned char* inside, CRasterSource& output);
  void LoadRow(void* const* bands, std::ptrdiff_t at, int width);

  PixelDataType m_outType;
  PixelDataType m_fusedType;
  bool m_masked;
  bool m_root;
  bool m_counted = false;
  platform::MomentMatching m_matching;
  platform::RowConversion m_store;
  std::vector<std::vector<double>> m_rows;  ///< the present row of each band
  std::vector<double*> m_pointers;
  std::vector<std::vector<unsigned char>> m_pixels;  ///< some rows of output pixels of each band
};

}  // namespace fusion
