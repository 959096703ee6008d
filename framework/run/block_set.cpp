#include "framework/run/block_set.h"

#include <utility>

namespace fusion {

BlockSet::BlockSet(const BlockGrid& blockGrid, std::vector<int> bands, int left, int top, bool isOverlapped)
    : grid(blockGrid),
      msBands(std::move(bands)),
      panLeft(left),
      panTop(top),
      overlapped(isOverlapped),
      pan(1, std::int64_t{grid.blockWidth} * grid.blockHeight),
      detail(1, 0),
      ms(msBands.size(), std::int64_t{grid.blockWidth} * grid.blockHeight),
      reader(msBands.size() + 2, overlapped),
      writer(1, overlapped) {}

FusionBlock BlockSet::Block(bool withDetail, PixelDataType type, int outBandCount) {
  return {.pan = pan[0],
          .panRect = &panRect,
          .detail = withDetail ? detail[0] : nullptr,
          .ms = ms.Pointers(),
          .msBandCount = static_cast<int>(ms.Count()),
          .msRect = &msRect,
          .outType = type,
          .outBandCount = outBandCount,
          .dstBlock = &dstBlock,
          .aoi = aoi};
}

}  // namespace fusion
