#include <algorithm>
#include <utility>

#include "framework/fusion.h"
#include "framework/messages.h"
#include "framework/run/block_mask.h"
#include "framework/run/run.h"
#include "platform/utility/log.h"

namespace fusion {

CRect Run::KernelRect(const CRect& msRect) const {
  return m_fusion.m_param.m_bRepeatMsEdges ? BeyondEdges(msRect, m_ms.GetWidth(), m_ms.GetHeight()) : msRect;
}

CRasterBand* Run::DetailBand() const {
  const CRasterSource& source = m_variation.readDetail ? m_pan : *m_variation.detailSource;
  return source.GetRasterBand(m_fusion.m_param.m_nPanBand);
}

LoadResult Run::Load(BlockSet& blocks, const CRect& dstBlock) {
  blocks.dstBlock = dstBlock;
  blocks.panRect = Shift(dstBlock, blocks.panLeft, blocks.panTop);
  if (!m_fusion.GetReadBufferRect(&blocks.dstBlock, &blocks.msRect)) return LoadResult::kSkipped;
  blocks.msRect = KernelRect(blocks.msRect);
  blocks.ms.Reserve(blocks.msRect);
  blocks.rows.Reserve(platform::CacheRoom::BytesToShare(m_ms, blocks.msRect.Height()) +
                      platform::CacheRoom::BytesToShare(m_pan, blocks.grid.blockHeight));
  if (const GISError started = m_fusion.StartBolckProcess(); started != GIS_SUCCESS) {
    // A stopped run must not look like a finished one.
    if (m_fusion.m_nLastErrorType == ERR_NONE) m_fusion.m_nLastErrorType = started;
    return LoadResult::kStopped;
  }

  constexpr int kPartlyInside = 1;
  constexpr int kWhollyInside = 3;
  const CRect& panRect = blocks.panRect;
  const int relation =
      m_area ? m_area->ReadCacheAoiBuffer(panRect.left, panRect.top, panRect.Width(), panRect.Height()) : kWhollyInside;
  if (relation != kPartlyInside && relation != kWhollyInside) return LoadResult::kOutside;
  blocks.aoi = relation == kPartlyInside ? m_area.get() : nullptr;

  // Without a multispectral pixel there is no data either.
  if (m_fusion.m_param.m_bMaskNoData && blocks.msRect.Area() == 0) return LoadResult::kOutside;

  for (std::size_t i = 0; i < blocks.msBands.size(); ++i) {
    CRasterBand* band = m_ms.GetRasterBand(blocks.msBands[i]);
    if (!blocks.ms.Read(i, band, blocks.msRect)) return LoadResult::kMsFailed;
  }
  CRasterBand* panBand = m_pan.GetRasterBand(m_fusion.m_param.m_nPanBand);
  if (!blocks.pan.Read(0, panBand, panRect)) return LoadResult::kPanFailed;
  if (m_variation.HasDetail() && !blocks.detail.Read(0, DetailBand(), panRect)) return LoadResult::kPanFailed;
  ReadAhead(blocks);
  return MaskBlock(blocks);
}

void Run::ReadAhead(BlockSet& blocks) {
  if (!blocks.overlapped) return;
  CRect next = blocks.AtHand().After(blocks.dstBlock);
  if (next.Area() == 0 && blocks.IsCounting()) next = blocks.Behind().Block(0, 0);
  CRect msRect;
  // A guess by the common rule, since a derived class's own is to be asked only when the block's turn has come.
  if (next.Area() == 0 || !m_fusion.CFusion::GetReadBufferRect(&next, &msRect)) return;
  for (std::size_t i = 0; i < blocks.msBands.size(); ++i) {
    blocks.ms.Expect(i, m_ms.GetRasterBand(blocks.msBands[i]), KernelRect(msRect), blocks.reader);
  }
  const CRect panRect = Shift(next, blocks.panLeft, blocks.panTop);
  blocks.pan.Expect(0, m_pan.GetRasterBand(m_fusion.m_param.m_nPanBand), panRect, blocks.reader);
  if (m_variation.HasDetail()) blocks.detail.Expect(0, DetailBand(), panRect, blocks.reader);
}

bool Run::Walk(const BlockGrid& grid, const platform::SurveyPass& pass) {
  const bool walked = grid.ForEachOf(pass.Pieces(), [&](std::int64_t piece, const CRect& block) {
    m_blocks->piece = piece;
    const LoadResult loaded = Load(*m_blocks, block);
    // A block that could not be written comes before one that cannot be read.
    const bool goesOn =
        loaded == LoadResult::kReady || loaded == LoadResult::kOutside || loaded == LoadResult::kSkipped;
    if (!goesOn && !FinishWriting()) return false;
    switch (loaded) {
      case LoadResult::kSkipped:
        return true;
      case LoadResult::kStopped:
        m_fusion.ReportError();
        return false;
      case LoadResult::kMsFailed:
        // Unlike a failed pan read this one is usually neither worded nor reported.
        m_fusion.m_nLastErrorType = ERR_READ;
        if (m_variation.reportsMsRead) m_fusion.Fail(ERR_READ, messages::kReadFailed);
        return false;
      case LoadResult::kPanFailed:
        m_fusion.Fail(ERR_READ, messages::kReadFailed);
        return false;
      case LoadResult::kOutside:
        break;
      case LoadResult::kReady:
        if (!FuseAndWrite()) return false;
        break;
    }
    m_fusion.EndBolckProcess();
    return StepProgress();
  });
  return FinishWriting() && walked;
}

bool Run::FuseAndWrite() {
  BlockSet& blocks = *m_blocks;
  const PixelDataType type = blocks.FusedType(m_fusion.m_param.m_eOutDataType);
  const int bandCount = m_fusion.m_param.m_nOutBandCount;
  const FusionBlock block = blocks.Block(m_variation.HasDetail(), type, bandCount);
  // Whoever has made it: what comes back serves the next block.
  const auto keepBlock = [&blocks, type, bandCount, pixels = static_cast<std::size_t>(blocks.dstBlock.Area())](
                             void** bands) { blocks.store.Put(type, bandCount, pixels, bands); };
  const std::shared_ptr<void*> result(
      m_variation.kernel ? m_variation.kernel(block)
                         : m_fusion.AlgorithmProcess(block.pan, block.panRect, block.ms, block.msBandCount,
                                                     block.msRect, type, bandCount, block.dstBlock, block.aoi),
      keepBlock);
  if (!result) return true;
  // The area is asked now: when the block is written it may already hold the next one.
  std::vector<unsigned char> inside;
  const bool sortsPixels = blocks.matching || blocks.range;
  if (sortsPixels && blocks.aoi && !m_fusion.m_param.m_bMaskNoData) inside = MarkInside(*blocks.aoi, blocks.panRect);
  blocks.writer.Add([this, &blocks, bandCount, rect = blocks.dstBlock, piece = blocks.piece, result,
                     inside = std::move(inside)]() mutable {
    if (blocks.writeFailed) return;
    if (blocks.range) {
      platform::RowRange part = blocks.range->RangeOf(result.get(), rect, inside);
      blocks.pass->Take(piece, part, [&](const platform::RowRange& range) { blocks.range->Add(range); });
      return;
    }
    if (blocks.pass) {
      blocks.matching->Count(result.get(), rect, inside, *blocks.pass, piece);
      return;
    }
    const bool written = blocks.matching ? blocks.matching->Write(result.get(), rect, inside, m_dst)
                                         : m_fusion.WriteBlock(&m_dst, bandCount, &rect, result.get()) == GIS_SUCCESS;
    if (!written) blocks.writeFailed = true;
  });
  return !blocks.writeFailed || FinishWriting();
}

bool Run::FinishWriting() {
  m_blocks->writer.Wait();
  if (!m_blocks->writeFailed) return true;
  if (m_fusion.m_nLastErrorType != ERR_WRITE) m_fusion.Fail(ERR_WRITE, messages::kWriteFailed);
  return false;
}

bool Run::StepProgress() {
  if (!m_fusion.m_pProgress || m_fusion.m_pProgress->Step(++m_blocks->step, messages::kProcessing)) return true;
  if (!FinishWriting()) return false;
  Cancel();
  return false;
}

bool Run::Visit(const platform::Stage& stage, const std::wstring& title, const platform::SurveyPass& pass,
                const std::function<void(std::int64_t block, const FusionBlock&)>& visit) {
  const BlockGrid grid = MakeSceneGrid();
  const FusionParam& param = m_fusion.m_param;
  if (m_fusion.m_pProgress) m_fusion.m_pProgress->Begin(stage, title, grid.Count());
  const std::unique_ptr<BlockSet> made = MakeBlocks(grid, param.m_vecMSBands, param.m_rcProcess);
  BlockSet& blocks = *made;
  int done = 0;
  return grid.ForEachOf(pass.Pieces(), [&](std::int64_t piece, const CRect& rect) {
    switch (Load(blocks, rect)) {
      case LoadResult::kSkipped:
        return true;
      case LoadResult::kMsFailed:
      case LoadResult::kPanFailed:
        m_fusion.m_nLastErrorType = ERR_READ;
        return false;
      case LoadResult::kStopped:
        return false;
      case LoadResult::kOutside:
        break;
      case LoadResult::kReady:
        visit(piece, blocks.Block(m_variation.HasDetail(), PDT_FLOAT64, static_cast<int>(blocks.ms.Count())));
        break;
    }
    if (m_fusion.m_pProgress) m_fusion.m_pProgress->Step(++done, messages::kProcessing);
    return true;
  });
}

LoadResult Run::MaskBlock(BlockSet& blocks) {
  if (!m_fusion.m_param.m_bMaskNoData || !m_area) return LoadResult::kReady;
  m_gaps = {true, blocks.ms.Gaps()};
  RowGeometry geometry = m_fusion.Geometry(blocks.panRect, blocks.dstBlock);
  // What repeats the image is no data of it.
  geometry.edge = 0;
  const auto marks = MarkData(blocks, geometry, m_fusion.m_workers.get());
  if (marks.empty()) return LoadResult::kReady;
  constexpr int kNone = 0;
  constexpr int kWhole = 3;
  const int relation = m_area->Restrict(marks.data());
  blocks.aoi = relation == kWhole ? nullptr : m_area.get();
  return relation == kNone ? LoadResult::kOutside : LoadResult::kReady;
}

void Run::Cancel() {
  m_fusion.m_nLastErrorType = ERR_CANCELLED;
  platform::WriteLog(2, m_variation.logFile, m_variation.logLine, m_variation.logFunction, messages::kCancelled);
}

}  // namespace fusion
