#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "framework/fusion_block.h"
#include "framework/resampling/row_resampler.h"
#include "framework/resampling/sample_range.h"
#include "framework/row_method.h"
#include "platform/algorithm/value_conversion.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/reproject.h"
#include "platform/validity/raster_aoi.h"

namespace platform {
class Workers;
}

namespace fusion {

class BlockStore;

/// Everything that maps a block's pixels to positions in the multispectral image.
struct RowGeometry {
  platform::Affine toGround;    ///< of the raster that positions start from
  double offset;                ///< added to its whole pixel coordinates
  CRect rect;                   ///< the block in that raster's pixels
  platform::Affine groundToMs;  ///< unused under reprojection
  int msWidth;
  int msHeight;
  const CReproject* reproject;  ///< null without reprojection
  int edge = 0;                 ///< samples around the multispectral image that repeat its edges
};

/// Positions in the multispectral image (sample coordinates) of count pixels of a row, both counted from the block's
/// upper left corner.
void MapPixels(const RowGeometry& geometry, int first, int count, int row, double* x, double* y);

/// What a run that masks samples without data knows of a block besides its area of interest, which leaves out the
/// pixels without data.
struct BlockGaps {
  bool masked = false;                ///< whether the run masks at all
  const unsigned char* ms = nullptr;  ///< for each multispectral band whether it holds NaN
};

/// Columns to work on at a time: wide enough to pay for the calls, narrow enough for the rows at hand to stay in the
/// caches.
constexpr int kTileWidth = 2048;

/// The rows of one block with the multispectral bands resampled at every pixel. One per thread.
class RowSource {
 public:
  /// @param range what the values are to be kept in; null for none
  RowSource(const RowGeometry& geometry, ResampleType type, const FusionBlock& block, const BlockGaps& gaps,
            std::shared_ptr<const SampleRange> range = nullptr);

  int Width() const { return m_geometry.rect.Width(); }
  int Height() const { return m_geometry.rect.Height(); }
  /// Chooses the columns, counted from the block's left edge, that Resample works on.
  void SetColumns(int first, int count);
  /// Fills one row of values per band for a row counted from the block's top edge.
  void Resample(int row, double* const* out);

 private:
  void MapRow(int row);
  void FillGaps(int row, double* const* out);

  RowGeometry m_geometry;
  ResampleType m_type;
  FusionBlock m_block;
  RowResampler m_resampler;
  bool m_separable;
  int m_first = 0;
  int m_count = 0;
  std::vector<double> m_x;
  std::vector<double> m_y;
  std::vector<int> m_gapBands;
  std::shared_ptr<const SampleRange> m_range;
  std::optional<RowLimits> m_limits;  ///< of the range, where a row's position depends on the row alone
};

/// Runs the arithmetic over a block row by row and converts to the output type, which must be one of the seven; see
/// CFusion::AlgorithmProcess for the result.
/// @param range what the resampled values are to be kept in; null for none
/// @param workers who share the rows out among them; null: as the policy says
/// @param store where the result's buffers come from; null: they are new
void** RunRowKernel(const FusionBlock& block, const BlockGaps& gaps, const RowGeometry& geometry,
                    ResampleType resampleType, const RowPolicy& policy, const RowArithmetic& arithmetic,
                    const platform::ValueConversion& conversion, const std::shared_ptr<const SampleRange>& range,
                    platform::Workers* workers, BlockStore* store);

/// Frees what RunRowKernel made.
void FreeBlock(PixelDataType type, int bandCount, void** bands);

}  // namespace fusion
