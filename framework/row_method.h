#pragma once

#include <functional>

#include "platform/validity/no_data_rule.h"

namespace fusion {

/// A stretch of one output row, as an algorithm's arithmetic sees it: plain rows of doubles.
struct FusionRow {
  int width;
  int msBandCount;
  int outBandCount;
  const double* pan;
  const double* detail;  ///< null where the run has no second detail image
  /// The resampled multispectral bands, at least outBandCount rows: those beyond msBandCount are 0. May be overwritten.
  double* const* ms;
  double* const* out;      ///< outBandCount rows to fill
  double* const* scratch;  ///< RowPolicy::scratchRows rows for the arithmetic's own use
};

using RowArithmetic = std::function<void(const FusionRow&)>;

enum class PositionStart { kPan, kOutput };

/// Where an algorithm's positions in the multispectral image start.
struct PositionPolicy {
  /// The raster whose pixel centres positions start from when there is no reprojection.
  PositionStart start = PositionStart::kPan;
  /// Under reprojection positions start from the output raster at the whole-number pixel plus this.
  double reprojectedOffset = 0.0;
};

/// In what the algorithms' kernels differ besides positions and arithmetic.
struct RowPolicy {
  int scratchRows = 0;
  /// Rows are shared out evenly among the OpenMP threads. The arithmetic must then be callable from several, as it must
  /// where a run is asked for threads (CBaseAlgorithm::SetThreads).
  bool parallelRows = false;
  /// Pixels whose pan value is no-data by this test get that value in every output band.
  platform::NoDataRule panNoData = {};
};

/// How the rows of a block are fused. Without an arithmetic there is nothing to write.
struct RowMethod {
  RowPolicy policy;
  RowArithmetic arithmetic;
};

}  // namespace fusion
