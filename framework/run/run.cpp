#include "framework/run/run.h"

#include <algorithm>
#include <utility>

#include "framework/fusion.h"
#include "framework/messages.h"
#include "platform/raster/raster_algorithm.h"
#include "platform/system/send_message.h"

namespace fusion {

Run::Run(CFusion& fusion, const RunVariation& variation) : m_fusion(fusion), m_variation(variation) {
  m_fusion.m_run = this;
  m_fusion.m_pAOI = nullptr;
  m_fusion.m_pReproject = nullptr;
}

Run::~Run() {
  DropArea();
  DropReprojection();
  m_fusion.m_pPanSrc = nullptr;
  m_fusion.m_pMSSrc = nullptr;
  m_fusion.m_pDstSrc = nullptr;
  m_fusion.m_run = nullptr;
}

void Run::Execute() {
  const std::shared_ptr<platform::Survey> survey = m_fusion.m_param.m_pSurvey;
  const bool gathers = survey && survey->Gathers();
  m_pendingBefore = survey ? survey->Pending() : 0;
  bool prepared = false;
  m_fusion.Guard([&] { prepared = Prepare(); });
  if (!prepared) {
    Abandon();
    return;
  }
  m_fusion.Guard([&] {
    while (m_blocks->IsCounting()) {
      if (!Count()) return;
      EndCounting();
    }
    if (!gathers) Walk(m_blocks->grid, platform::SurveyPass(nullptr, "", m_blocks->grid.Count()));
  });
  m_blocks.reset();
  if (gathers) {
    Abandon();
    return;
  }
  m_fusion.Guard([&] { Finish(); });
}

std::unique_ptr<BlockSet> Run::MakeBlocks(const BlockGrid& grid, const std::vector<int>& bands,
                                          const CRect& inPan) const {
  auto blocks = std::make_unique<BlockSet>(grid, bands, inPan.left, inPan.top, m_fusion.m_overlappedIo);
  // Before anything is read ahead, which looks at it on a thread of its own.
  blocks->ms.RepeatEdges(m_fusion.m_param.m_bRepeatMsEdges);
  return blocks;
}

bool Run::Prepare() {
  const std::wstring title = messages::RunTitle(m_fusion.m_param.m_strAlgName);
  CBaseProgress* progress = m_fusion.m_pProgress;
  if (progress) {
    progress->Begin(m_fusion.m_param.m_stage, title, 100);
    progress->Step(0, messages::kConfiguring);
  }

  std::vector<int> bands;
  CRect dstRectInPan;
  if (!Configure(bands, dstRectInPan)) {
    m_fusion.ReportError();
    return false;
  }
  m_fusion.m_pPanSrc = &m_pan;
  m_fusion.m_pMSSrc = &m_ms;
  m_fusion.m_pDstSrc = &m_dst;

  const BlockGrid grid = MakeBlockGrid();
  const GISError prepared = m_fusion.Preproccess();
  if (prepared != GIS_SUCCESS) {
    if (m_fusion.m_nLastErrorType == ERR_CANCELLED) {
      Cancel();
      return false;
    }
    if (m_fusion.m_nLastErrorType == ERR_NONE) m_fusion.m_nLastErrorType = prepared;
    m_fusion.ReportError();
    return false;
  }
  m_blocks = MakeBlocks(grid, bands, dstRectInPan);
  m_blocks->ms.SetReadSamples(m_variation.readMs);
  m_blocks->pan.SetReadSamples(m_variation.readPan);
  m_blocks->detail.SetReadSamples(m_variation.readDetail);
  if (m_variation.afterRead) {
    m_blocks->ms.SetAfterRead(m_variation.afterRead);
    m_blocks->pan.SetAfterRead([this](CRasterBand& band, int, double* values, std::int64_t count) {
      m_variation.afterRead(band, -1, values, count);
    });
  }
  if (!PrepareMatching()) {
    m_fusion.ReportError();
    return false;
  }
  PrepareRange();
  BeginBlocks();
  return true;
}

bool Run::AwaitsSurvey() const {
  const std::shared_ptr<platform::Survey>& survey = m_fusion.m_param.m_pSurvey;
  if (!survey || survey->Pending() == m_pendingBefore) return false;
  survey->Wait();
  return true;
}

bool Run::Count() {
  BlockSet& blocks = *m_blocks;
  platform::Survey* survey = m_fusion.m_param.m_pSurvey.get();
  const std::string name = blocks.CountName();
  const platform::SurveyPass pass(survey, name, blocks.AtHand().Count(), AwaitsSurvey());
  blocks.pass = pass;
  const bool walked = Walk(blocks.AtHand(), pass);
  blocks.pass.reset();
  if (!walked) return false;
  if (blocks.range) {
    return pass.End<platform::RowRange>([&](const platform::RowRange& part) { blocks.range->Add(part); });
  }
  return blocks.matching->End(pass);
}

void Run::BeginBlocks() {
  BlockSet& blocks = *m_blocks;
  int count = blocks.grid.Count();
  for (int i = blocks.CountsToCome(); i > 0; --i) count += blocks.counted->Count();
  if (blocks.sampled) count += blocks.sampled->Count() - blocks.counted->Count();
  blocks.step = 0;
  const FusionParam& param = m_fusion.m_param;
  if (m_fusion.m_pProgress) m_fusion.m_pProgress->Begin(param.m_stage, messages::RunTitle(param.m_strAlgName), count);
}

bool Run::Configure(std::vector<int>& bands, CRect& dstRectInPan) {
  // What the configuration makes is the run's, whichever way it ends.
  struct Adoption {
    Run& run;
    ~Adoption() {
      run.m_area.reset(run.m_fusion.m_pAOI);
      run.m_reproject.reset(run.m_fusion.m_pReproject);
    }
  } const adoption{*this};
  if (m_variation.configure) return m_variation.configure(m_pan, m_ms, m_dst, bands, dstRectInPan);
  return m_fusion.ConfigDstRaster(&m_fusion.m_param, &m_pan, &m_ms, &m_dst, &bands, &dstRectInPan, &m_fusion.m_pAOI);
}

void Run::SetScene(const CRect& rect, const platform::Affine& toGround) {
  m_scene = rect;
  m_sceneToGround = toGround;
}

void Run::DropArea() {
  m_fusion.m_pAOI = nullptr;
  m_area.reset();
}

void Run::DropReprojection() {
  m_fusion.m_pReproject = nullptr;
  m_reproject.reset();
}

bool Run::PrepareMatching() {
  BlockSet& blocks = *m_blocks;
  const auto& match = m_fusion.m_matchTargets;
  const auto& level = m_fusion.m_levelTargets;
  if (!match && !level) return true;
  const auto bandCount = static_cast<std::size_t>(m_fusion.m_param.m_nOutBandCount);
  if (match && (match->means.size() != bandCount || match->stdDevs.size() != bandCount)) {
    m_fusion.SetError(ERR_STATISTICS, messages::kMsStatisticsFailed);
    return false;
  }
  blocks.matching =
      std::make_unique<BlockMatching>(match, level, m_fusion.m_param.m_nOutBandCount, m_fusion.m_param.m_eOutDataType,
                                      m_fusion.m_param.m_bMaskNoData, m_fusion.m_workers.get());
  blocks.counted = MakeSceneGrid();
  if (match) blocks.sampled = Sampled(*blocks.counted, match->mostPixels);
  m_fusion.SetOutRange(blocks.matching->FusedType());
  return true;
}

std::optional<BlockGrid> Run::Sampled(BlockGrid grid, std::int64_t mostPixels) const {
  const std::int64_t share = mostPixels > 0 ? std::int64_t{grid.width} * grid.height / mostPixels : 0;
  if (share < 2) return std::nullopt;
  // Enough to pay for the multispectral rows around them; a block of the file is decoded as a whole.
  constexpr int kRows = 8;
  grid.blockHeight = std::min(grid.blockHeight, std::max(kRows, m_pan.GetBlockYSize()));
  grid.apart = static_cast<int>(std::min<std::int64_t>(grid.blockHeight * share, grid.height));
  return grid;
}

void Run::PrepareRange() {
  BlockSet& blocks = *m_blocks;
  if (!m_fusion.m_stretchesOwnRange || blocks.matching) return;
  blocks.range = std::make_unique<BlockRange>(m_fusion.m_param.m_nOutBandCount, m_fusion.m_param.m_bMaskNoData,
                                              m_fusion.m_workers.get());
  blocks.counted = MakeSceneGrid();
  m_fusion.SetStretch(false);
  m_fusion.SetOutRange(BlockRange::kFusedType);
}

void Run::EndCounting() {
  BlockSet& blocks = *m_blocks;
  if (blocks.matching) {
    // Less than this share of what was looked at is too little to stand for all of it.
    constexpr std::int64_t kShare = 16;
    const bool ended = blocks.matching->EndCounting(blocks.sampled ? m_fusion.m_matchTargets->mostPixels / kShare : 0);
    blocks.sampled.reset();
    if (!ended) {
      BeginBlocks();
      return;
    }
    m_fusion.m_matchOutliers = blocks.matching->Outliers();
  }
  if (!blocks.range) return;
  const platform::RowRange range = blocks.range->Range();
  blocks.range.reset();
  // What is the same everywhere has no range to be stretched.
  m_fusion.SetStretch(range.Minimum() < range.Maximum());
  m_fusion.SetSrcMinMaxValue(range.Minimum(), range.Maximum());
  m_fusion.SetOutRange(m_fusion.m_param.m_eOutDataType);
}

BlockGrid Run::MakeBlockGrid() {
  int width = 1024;
  int height = 1024;
  m_fusion.GetBlockSize(width, height);
  return Lower({m_dst.GetWidth(), m_dst.GetHeight(), width, height}, m_dst.GetBlockYSize());
}

BlockGrid Run::Lower(BlockGrid grid, int fileBlock) const {
  const std::int64_t most = m_fusion.m_param.m_nMostBlockPixels;
  if (most <= 0 || grid.Across() != 1) return grid;
  // A block of the file that is written in parts is encoded more than once.
  const std::int64_t whole = std::max(fileBlock, 1);
  const std::int64_t rows = std::max(BlockRows(most, grid.blockWidth), whole);
  grid.blockHeight = static_cast<int>(std::min<std::int64_t>(grid.blockHeight, rows / whole * whole));
  return grid;
}

BlockGrid Run::MakeSceneGrid() {
  if (m_scene.Area() == 0) return MakeBlockGrid();
  constexpr int kRows = 512;
  // Of what is looked at the pieces are the same whatever is written, and however the file holds it.
  return Lower({m_scene.Width(), m_scene.Height(), m_scene.Width(), std::min(kRows, m_scene.Height()),
                m_scene.left - m_fusion.m_param.m_rcProcess.left, m_scene.top - m_fusion.m_param.m_rcProcess.top},
               1);
}

void Run::Abandon() {
  DropArea();
  DropReprojection();
  m_dst.Abandon();
  CRasterSource::DeleteFileW(m_fusion.m_strTempFile);
}

void Run::CloseOutput() {
  if (m_fusion.m_nLastErrorType != ERR_NONE) {
    m_dst.Abandon();
    return;
  }
  bool cancelled = false;
  if (m_dst.Close(m_fusion.m_pProgress, &cancelled)) return;
  if (cancelled) {
    Cancel();
  } else {
    m_fusion.Fail(ERR_WRITE, messages::kWriteFailed);
  }
}

void Run::Finish() {
  DropArea();
  CloseOutput();
  m_pan.Close();
  m_ms.Close();
  if (m_variation.detailSource) m_variation.detailSource->Close();
  DropReprojection();
  m_fusion.EndProccess();
  if (m_fusion.m_nLastErrorType != ERR_NONE) return;

  const FusionParam& param = m_fusion.m_param;
  if (m_fusion.m_pProgress) {
    if (m_variation.beforeFinish) m_variation.beforeFinish();
    m_fusion.m_pProgress->Finish();
  }
  if (param.m_pNotifyWnd) {
    constexpr UINT kFusionDone = 0x400 + 100;
    const auto output = reinterpret_cast<WPARAM>(param.m_strOutFile.c_str());
    platform::SendToWindow(param.m_pNotifyWnd->GetSafeHwnd(), kFusionDone, output, 1);
  }
}

}  // namespace fusion
