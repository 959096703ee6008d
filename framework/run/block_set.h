#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "framework/fusion_block.h"
#include "framework/run/block_buffers.h"
#include "framework/run/block_matching.h"
#include "framework/run/block_range.h"
#include "framework/run/block_store.h"
#include "platform/raster/cache_room.h"
#include "platform/statistics/survey.h"
#include "platform/system/task_queue.h"

namespace fusion {

/// The blocks of a run with the buffers they are read into.
struct BlockSet {
  /// @param panLeft, panTop the output raster's first pixel in the pan image
  /// @param overlapped whether blocks are read and written on threads of their own
  BlockSet(const BlockGrid& grid, std::vector<int> msBands, int panLeft, int panTop, bool overlapped);

  /// Whether blocks are fused for statistics of the result alone.
  bool IsCounting() const { return CountsToCome() > 0; }
  /// How often they still are.
  int CountsToCome() const { return range ? 1 : matching ? matching->CountsToCome() : 0; }
  /// The blocks of the count at hand, where there is one, and of what comes behind it.
  const BlockGrid& AtHand() const { return !IsCounting() ? grid : sampled ? *sampled : *counted; }
  const BlockGrid& Behind() const { return CountsToCome() > 1 ? *counted : grid; }
  /// What the count at hand is, in a survey.
  std::string CountName() const {
    if (range) return "range";
    return sampled ? "sampled moments" : "count " + std::to_string(matching->CountsToCome());
  }
  /// What they are fused in; the given type where they are written as they are.
  PixelDataType FusedType(PixelDataType outType) const {
    if (range) return BlockRange::kFusedType;
    return matching ? matching->FusedType() : outType;
  }
  /// The block at hand as kernels take it.
  FusionBlock Block(bool withDetail, PixelDataType type, int outBandCount);

  BlockGrid grid;
  std::optional<BlockGrid> counted;          ///< what statistics of the result are taken from, where there are any
  std::optional<BlockGrid> sampled;          ///< what the first of them are taken from in place of all of that
  std::optional<platform::SurveyPass> pass;  ///< that the count at hand is; the writer folds its parts
  std::int64_t piece = 0;                    ///< of it, that the block at hand is
  std::vector<int> msBands;
  int panLeft;
  int panTop;
  bool overlapped;
  platform::CacheRoom rows;  ///< for what consecutive blocks share
  BandBuffers pan;
  BandBuffers detail;
  BandBuffers ms;
  CRect dstBlock;  ///< the block at hand: in the output,
  CRect panRect;   ///< in the pan image,
  CRect msRect;    ///< and what was read for it from the multispectral image, with its edges repeated where asked for
  CRasterAOI* aoi = nullptr;
  std::unique_ptr<BlockMatching> matching;  ///< null where the blocks are written as they are fused
  std::unique_ptr<BlockRange> range;        ///< while the range of the result is taken
  int step = 0;                             ///< blocks done
  std::atomic<bool> writeFailed = false;
  BlockStore store;

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
