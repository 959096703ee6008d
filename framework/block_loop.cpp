#include "framework/block_loop.h"

#include <algorithm>
#include <utility>

#include "framework/block_mask.h"
#include "framework/fusion.h"
#include "framework/messages.h"
#include "platform/raster/raster_algorithm.h"
#include "platform/utility/log.h"

namespace messages = fusion::messages;

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

}  // namespace fusion

using fusion::LoadResult;

void CFusion::RunBlocks(const fusion::RunVariation& variation) {
  ClearError();
  CRasterSource pan;
  CRasterSource ms;
  CRasterSource dst;
  m_pAOI = nullptr;
  m_pReproject = nullptr;
  m_gaps = {};
  m_scene = {};
  m_strTempFile.clear();

  std::unique_ptr<fusion::BlockSet> blocks;
  Guard([&] { blocks = PrepareRun(pan, ms, dst, variation); });
  if (!blocks) {
    AbandonRun(dst);
  } else {
    Guard([&] {
      if (blocks->counted) {
        if (!WalkBlocks(*blocks, *blocks->counted, variation)) return;
        EndCounting(*blocks);
      }
      WalkBlocks(*blocks, blocks->grid, variation);
    });
    blocks.reset();
    Guard([&] { FinishRun(pan, ms, dst, variation); });
  }
  m_pPanSrc = nullptr;
  m_pMSSrc = nullptr;
  m_pDstSrc = nullptr;
}

std::unique_ptr<fusion::BlockSet> CFusion::PrepareRun(CRasterSource& pan, CRasterSource& ms, CRasterSource& dst,
                                                      const fusion::RunVariation& variation) {
  const std::wstring title = messages::RunTitle(m_param.m_strAlgName);
  if (m_pProgress) {
    m_pProgress->Start(title, 100);
    m_pProgress->Step(0, messages::kConfiguring);
  }

  std::vector<int> bands;
  CRect dstRectInPan;
  const bool configured = variation.configure
                              ? variation.configure(pan, ms, dst, bands, dstRectInPan)
                              : ConfigDstRaster(&m_param, &pan, &ms, &dst, &bands, &dstRectInPan, &m_pAOI);
  if (!configured) {
    ReportError();
    return nullptr;
  }
  m_pPanSrc = &pan;
  m_pMSSrc = &ms;
  m_pDstSrc = &dst;

  fusion::BlockGrid grid = MakeBlockGrid();
  const GISError prepared = Preproccess();
  if (prepared != GIS_SUCCESS) {
    if (m_nLastErrorType == ERR_CANCELLED) {
      Cancel(variation);
      return nullptr;
    }
    if (m_nLastErrorType == ERR_NONE) m_nLastErrorType = prepared;
    ReportError();
    return nullptr;
  }
  auto blocks = std::make_unique<fusion::BlockSet>(grid, bands, dstRectInPan.left, dstRectInPan.top, m_overlappedIo);
  if (variation.afterRead) {
    blocks->ms.SetAfterRead(variation.afterRead);
    blocks->pan.SetAfterRead([&variation](CRasterBand& band, int, double* values, std::int64_t count) {
      variation.afterRead(band, -1, values, count);
    });
  }
  if (!PrepareMatching(*blocks)) {
    ReportError();
    return nullptr;
  }
  PrepareRange(*blocks);
  if (m_pProgress) m_pProgress->Start(title, grid.Count() + (blocks->counted ? blocks->counted->Count() : 0));
  return blocks;
}

bool CFusion::PrepareMatching(fusion::BlockSet& blocks) {
  if (!m_matchTargets) return true;
  const auto bandCount = static_cast<std::size_t>(m_param.m_nOutBandCount);
  if (m_matchTargets->means.size() != bandCount || m_matchTargets->stdDevs.size() != bandCount) {
    SetError(ERR_STATISTICS, messages::kMsStatisticsFailed);
    return false;
  }
  blocks.matching =
      std::make_unique<fusion::BlockMatching>(*m_matchTargets, m_param.m_eOutDataType, m_param.m_bMaskNoData);
  blocks.counted = MakeSceneGrid();
  SetOutRange(blocks.matching->FusedType());
  return true;
}

void CFusion::PrepareRange(fusion::BlockSet& blocks) {
  if (!m_stretchesOwnRange || blocks.matching) return;
  blocks.range = std::make_unique<fusion::BlockRange>(m_param.m_nOutBandCount, m_param.m_bMaskNoData);
  blocks.counted = MakeSceneGrid();
  SetStretch(false);
  SetOutRange(fusion::BlockRange::kFusedType);
}

void CFusion::EndCounting(fusion::BlockSet& blocks) {
  if (blocks.matching) blocks.matching->Settle();
  if (!blocks.range) return;
  const platform::RowRange range = blocks.range->Range();
  blocks.range.reset();
  // What is the same everywhere has no range to be stretched.
  SetStretch(range.Minimum() < range.Maximum());
  SetSrcMinMaxValue(range.Minimum(), range.Maximum());
  SetOutRange(m_param.m_eOutDataType);
}

void CFusion::SetOutRange(PixelDataType type) {
  double minimum = 0.0;
  double maximum = 0.0;
  CRasterAlgorithm::GetMaxMinVal(type, maximum, minimum);
  SetOutMinMaxValue(minimum, maximum);
}

fusion::BlockGrid CFusion::MakeBlockGrid() {
  int width = 1024;
  int height = 1024;
  GetBlockSize(width, height);
  return {m_pDstSrc->GetWidth(), m_pDstSrc->GetHeight(), width, height};
}

fusion::BlockGrid CFusion::MakeSceneGrid() {
  if (m_scene.Area() == 0) return MakeBlockGrid();
  constexpr int kRows = 512;
  return {m_scene.Width(),
          m_scene.Height(),
          m_scene.Width(),
          std::min(kRows, m_scene.Height()),
          m_scene.left - m_param.m_rcProcess.left,
          m_scene.top - m_param.m_rcProcess.top};
}

LoadResult CFusion::LoadBlock(fusion::BlockSet& blocks, const CRect& dstBlock, const fusion::RunVariation& variation) {
  blocks.dstBlock = dstBlock;
  blocks.panRect = fusion::Shift(dstBlock, blocks.panLeft, blocks.panTop);
  if (!GetReadBufferRect(&blocks.dstBlock, &blocks.msRect)) return LoadResult::kSkipped;
  blocks.ms.Reserve(blocks.msRect);
  blocks.rows.Reserve(platform::RowCache::BytesToShare(*m_pMSSrc, blocks.msRect.Height()) +
                      platform::RowCache::BytesToShare(*m_pPanSrc, blocks.grid.blockHeight));
  if (const GISError started = StartBolckProcess(); started != GIS_SUCCESS) {
    // A stopped run must not look like a finished one.
    if (m_nLastErrorType == ERR_NONE) m_nLastErrorType = started;
    return LoadResult::kStopped;
  }

  constexpr int kPartlyInside = 1;
  constexpr int kWhollyInside = 3;
  const CRect& panRect = blocks.panRect;
  const int relation =
      m_pAOI ? m_pAOI->ReadCacheAoiBuffer(panRect.left, panRect.top, panRect.Width(), panRect.Height()) : kWhollyInside;
  if (relation != kPartlyInside && relation != kWhollyInside) return LoadResult::kOutside;
  blocks.aoi = relation == kPartlyInside ? m_pAOI : nullptr;

  // Without a multispectral pixel there is no data either.
  if (m_param.m_bMaskNoData && blocks.msRect.Area() == 0) return LoadResult::kOutside;

  for (std::size_t i = 0; i < blocks.msBands.size(); ++i) {
    CRasterBand* band = m_pMSSrc->GetRasterBand(blocks.msBands[i]);
    if (!blocks.ms.Read(i, band, blocks.msRect)) return LoadResult::kMsFailed;
  }
  CRasterBand* panBand = m_pPanSrc->GetRasterBand(m_param.m_nPanBand);
  if (!blocks.pan.Read(0, panBand, panRect)) return LoadResult::kPanFailed;
  if (variation.detailSource && variation.detailSource->IsOpen() &&
      !blocks.detail.Read(0, variation.detailSource->GetRasterBand(m_param.m_nPanBand), panRect)) {
    return LoadResult::kPanFailed;
  }
  ReadAhead(blocks, variation);
  return MaskBlock(blocks);
}

void CFusion::ReadAhead(fusion::BlockSet& blocks, const fusion::RunVariation& variation) {
  if (!blocks.overlapped) return;
  const bool counting = blocks.IsCounting();
  CRect next = (counting ? *blocks.counted : blocks.grid).After(blocks.dstBlock);
  if (next.Area() == 0 && counting) next = blocks.grid.Block(0, 0);
  CRect msRect;
  // A guess by the common rule, since a derived class's own is to be asked only when the block's turn has come.
  if (next.Area() == 0 || !CFusion::GetReadBufferRect(&next, &msRect)) return;
  for (std::size_t i = 0; i < blocks.msBands.size(); ++i) {
    blocks.ms.Expect(i, m_pMSSrc->GetRasterBand(blocks.msBands[i]), msRect, blocks.reader);
  }
  const CRect panRect = fusion::Shift(next, blocks.panLeft, blocks.panTop);
  blocks.pan.Expect(0, m_pPanSrc->GetRasterBand(m_param.m_nPanBand), panRect, blocks.reader);
  if (variation.detailSource && variation.detailSource->IsOpen()) {
    blocks.detail.Expect(0, variation.detailSource->GetRasterBand(m_param.m_nPanBand), panRect, blocks.reader);
  }
}

bool CFusion::WalkBlocks(fusion::BlockSet& blocks, const fusion::BlockGrid& grid,
                         const fusion::RunVariation& variation) {
  const bool walked = grid.ForEach([&](const CRect& block) {
    const LoadResult loaded = LoadBlock(blocks, block, variation);
    // A block that could not be written comes before one that cannot be read.
    const bool goesOn =
        loaded == LoadResult::kReady || loaded == LoadResult::kOutside || loaded == LoadResult::kSkipped;
    if (!goesOn && !FinishWriting(blocks)) return false;
    switch (loaded) {
      case LoadResult::kSkipped:
        return true;
      case LoadResult::kStopped:
        ReportError();
        return false;
      case LoadResult::kMsFailed:
        // Unlike a failed pan read this one is usually neither worded nor reported.
        m_nLastErrorType = ERR_READ;
        if (variation.reportsMsRead) Fail(ERR_READ, messages::kReadFailed);
        return false;
      case LoadResult::kPanFailed:
        Fail(ERR_READ, messages::kReadFailed);
        return false;
      case LoadResult::kOutside:
        break;
      case LoadResult::kReady:
        if (!FuseAndWrite(blocks, variation)) return false;
        break;
    }
    EndBolckProcess();
    return StepProgress(blocks, variation);
  });
  return FinishWriting(blocks) && walked;
}

bool CFusion::FuseAndWrite(fusion::BlockSet& blocks, const fusion::RunVariation& variation) {
  const PixelDataType type = blocks.FusedType(m_param.m_eOutDataType);
  const int bandCount = m_param.m_nOutBandCount;
  const fusion::FusionBlock block{
      blocks.pan[0],
      &blocks.panRect,
      variation.detailSource && variation.detailSource->IsOpen() ? blocks.detail[0] : nullptr,
      blocks.ms.Pointers(),
      static_cast<int>(blocks.ms.Count()),
      &blocks.msRect,
      type,
      bandCount,
      &blocks.dstBlock,
      blocks.aoi};
  const auto freeBlock = [type, bandCount](void** bands) { fusion::FreeBlock(type, bandCount, bands); };
  const std::shared_ptr<void*> result(variation.kernel
                                          ? variation.kernel(block)
                                          : AlgorithmProcess(block.pan, block.panRect, block.ms, block.msBandCount,
                                                             block.msRect, type, bandCount, block.dstBlock, block.aoi),
                                      freeBlock);
  if (!result) return true;
  // The area is asked now: when the block is written it may already hold the next one.
  std::vector<unsigned char> inside;
  const bool sortsPixels = blocks.matching || blocks.range;
  if (sortsPixels && blocks.aoi && !m_param.m_bMaskNoData) inside = fusion::MarkInside(*blocks.aoi, blocks.panRect);
  blocks.writer.Add([this, &blocks, bandCount, rect = blocks.dstBlock, result, inside = std::move(inside)]() mutable {
    if (blocks.writeFailed) return;
    if (blocks.range) {
      blocks.range->Count(result.get(), rect, inside);
      return;
    }
    const bool taken = blocks.matching ? blocks.matching->Take(result.get(), rect, inside, *m_pDstSrc)
                                       : WriteBlock(m_pDstSrc, bandCount, &rect, result.get()) == GIS_SUCCESS;
    if (!taken) blocks.writeFailed = true;
  });
  return !blocks.writeFailed || FinishWriting(blocks);
}

bool CFusion::FinishWriting(fusion::BlockSet& blocks) {
  blocks.writer.Wait();
  if (!blocks.writeFailed) return true;
  if (m_nLastErrorType != ERR_WRITE) Fail(ERR_WRITE, messages::kWriteFailed);
  return false;
}

bool CFusion::StepProgress(fusion::BlockSet& blocks, const fusion::RunVariation& variation) {
  if (!m_pProgress || m_pProgress->Step(++blocks.step, messages::kProcessing)) return true;
  if (!FinishWriting(blocks)) return false;
  Cancel(variation);
  return false;
}

void CFusion::Cancel(const fusion::RunVariation& variation) {
  m_nLastErrorType = ERR_CANCELLED;
  if (!CLog::m_pLogger) return;
  CLog::m_pLogger->WriteLog(2, variation.logFile, variation.logLine, variation.logFunction, messages::kCancelled);
}

void CFusion::AbandonRun(CRasterSource& dst) {
  delete m_pAOI;
  m_pAOI = nullptr;
  delete m_pReproject;
  m_pReproject = nullptr;
  dst.Abandon();
  CRasterSource::DeleteFileW(m_strTempFile);
}

void CFusion::CloseOutput(CRasterSource& dst, const fusion::RunVariation& variation) {
  if (m_nLastErrorType != ERR_NONE) {
    dst.Abandon();
    return;
  }
  bool cancelled = false;
  if (dst.Close(m_pProgress, &cancelled)) return;
  if (cancelled) {
    Cancel(variation);
  } else {
    Fail(ERR_WRITE, messages::kWriteFailed);
  }
}

void CFusion::FinishRun(CRasterSource& pan, CRasterSource& ms, CRasterSource& dst,
                        const fusion::RunVariation& variation) {
  delete m_pAOI;
  m_pAOI = nullptr;
  CloseOutput(dst, variation);
  pan.Close();
  ms.Close();
  if (variation.detailSource) variation.detailSource->Close();
  delete m_pReproject;
  m_pReproject = nullptr;
  EndProccess();
  if (m_nLastErrorType != ERR_NONE) return;

  if (m_pProgress) {
    if (variation.beforeFinish) variation.beforeFinish();
    m_pProgress->Finish();
  }
  if (m_param.m_pNotifyWnd) {
    constexpr UINT kFusionDone = 0x400 + 100;
    SendMessageW(m_param.m_pNotifyWnd->GetSafeHwnd(), kFusionDone,
                 reinterpret_cast<WPARAM>(m_param.m_strOutFile.c_str()), 1);
  }
}
