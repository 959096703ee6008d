#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "framework/block_buffers.h"
#include "framework/block_matching.h"
#include "framework/block_range.h"
#include "framework/fusion_block.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/row_cache.h"
#include "platform/system/task_queue.h"

namespace fusion {

/// Where one algorithm's run differs from the common block loop. Empty functions mean the common way.
struct RunVariation {
  const char* logFile = "Fusion";
  int logLine = 401;
  const char* logFunction = "CFusion::Process";
  /// Opens the inputs and creates the output, in place of ConfigDstRaster. False with the error state set.
  std::function<bool(CRasterSource& pan, CRasterSource& ms, CRasterSource& dst, std::vector<int>& bands, CRect& rect)>
      configure;
  /// A second image, opened by configure, that is read over the same rectangle and band as the pan image while open.
  CRasterSource* detailSource = nullptr;
  /// Changes a block right after it was read, on the thread that read it; the index is the place in the band list, -1
  /// for the pan block.
  BandBuffers::AfterRead afterRead;
  /// Whether a failed multispectral read gets the message and the report of a failed pan read.
  bool reportsMsRead = false;
  /// The kernel, in place of AlgorithmProcess.
  std::function<void**(const FusionBlock& block)> kernel;
  /// Work on the finished output of a successful run that has a progress reporter, before Finish.
  std::function<void()> beforeFinish;
};

/// The blocks of a run with the buffers they are read into.
struct BlockSet {
  /// @param panLeft, panTop the output raster's first pixel in the pan image
  /// @param overlapped whether blocks are read and written on threads of their own
  BlockSet(const BlockGrid& grid, std::vector<int> msBands, int panLeft, int panTop, bool overlapped);

  /// Whether blocks are fused for statistics of the result alone.
  bool IsCounting() const { return range || (matching && matching->IsCounting()); }
  /// What they are fused in; the given type where they are written as they are.
  PixelDataType FusedType(PixelDataType outType) const {
    if (range) return BlockRange::kFusedType;
    return matching ? matching->FusedType() : outType;
  }

  BlockGrid grid;
  std::optional<BlockGrid> counted;  ///< what statistics of the result are taken from, where there are any
  std::vector<int> msBands;
  int panLeft;
  int panTop;
  bool overlapped;
  platform::RowCache rows;  ///< for what consecutive blocks share
  BandBuffers pan;
  BandBuffers detail;
  BandBuffers ms;
  CRect dstBlock;  ///< the block at hand: in the output,
  CRect panRect;   ///< in the pan image,
  CRect msRect;    ///< and what was read for it from the multispectral image
  CRasterAOI* aoi = nullptr;
  std::unique_ptr<BlockMatching> matching;  ///< null where the blocks are written as they are
  std::unique_ptr<BlockRange> range;        ///< while the range of the result is taken
  int step = 0;                             ///< blocks done
  std::atomic<bool> writeFailed = false;

  // The queues come last, so that they go first, whatever way a run ends: their destructors wait for their threads, and
  // only then does what these read into, count with and write from go. The rasters outlive the set.
  platform::TaskQueue reader;  ///< reads the next block while this one is fused
  platform::TaskQueue writer;  ///< writes the one before; a second one waiting would only take memory
};

enum class LoadResult {
  kReady,
  kOutside,    ///< outside the area of interest, nothing was read
  kSkipped,    ///< GetReadBufferRect wants no such block
  kStopped,    ///< StartBolckProcess ends the run; the error state is set
  kMsFailed,   ///< a multispectral read failed
  kPanFailed,  ///< a pan or detail read failed
};

}  // namespace fusion
