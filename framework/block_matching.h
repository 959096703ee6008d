#pragma once

#include <vector>

#include "platform/algorithm/row_store.h"
#include "platform/processing/moment_matching.h"

namespace fusion {

/// The moments that a run is to bring each band of its result to.
struct MatchTargets {
  std::vector<double> means;  ///< one per output band
  std::vector<double> stdDevs;
  bool makeGreen = false;  ///< mix near infrared into green first
};

/// The float type that a result is to be computed in before it is matched: nothing is cut or rounded then that an
/// output of the given type could show.
FUSION_API PixelDataType TypeToMatch(PixelDataType outType);

/// Brings fused blocks to target moments on their way to the output. Every block comes twice: once to be counted, once
/// more, after Settle, to be written. That is faster than keeping a floating-point copy of the whole result in between.
class BlockMatching {
 public:
  /// @param outType of the output raster
  /// @param masked 0 marks pixels without data in the fused blocks, and in the output
  BlockMatching(const MatchTargets& targets, PixelDataType outType, bool masked);

  /// The type that the blocks are to be fused in.
  PixelDataType FusedType() const { return m_fusedType; }
  bool IsCounting() const { return !m_settled; }
  void Settle();

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
  bool m_settled = false;
  platform::MomentMatching m_matching;
  platform::RowStore m_store;
  std::vector<std::vector<double>> m_rows;  ///< the present row of each band
  std::vector<double*> m_pointers;
  std::vector<std::vector<unsigned char>> m_pixels;  ///< some rows of output pixels of each band
};

}  // namespace fusion
