#include "evaluation/fusion_evaluate.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <stdexcept>

#include "evaluation/ms_cells.h"
#include "framework/messages.h"
#include "framework/run/block_buffers.h"
#include "platform/algorithm/run_threads.h"
#include "platform/raster/cache_room.h"
#include "platform/raster/gis_data_source.h"
#include "platform/system/sleep.h"
#include "platform/system/task_queue.h"
#include "platform/utility/log.h"

namespace messages = fusion::messages;

/// What lives as long as one Process call.
struct CFusionEvaluate::Run {
  CRasterSource pan;
  CRasterSource mul;
  CRasterSource fused;
  std::unique_ptr<CReproject> reproject;
  std::vector<int> mulBands;
  std::vector<int> fusionBands;
  fusion::BlockGrid grid{};
  std::unique_ptr<fusion::BandBuffers> panBuffer;
  std::unique_ptr<fusion::BandBuffers> mulBuffers;
  std::unique_ptr<fusion::BandBuffers> fusionBuffers;
  platform::CacheRoom rows;
  std::unique_ptr<platform::TaskQueue> reader;  ///< reads into the buffers, so it goes before them

  int joinedRows = 0;  ///< of each block that others were joined to; 0 where none were
  CRect next;          ///< the block behind the one at hand, empty behind a pass's last

  CRect CellAfter(int column, int row) const {
    const bool goesOn = column + 1 < grid.Across();
    if (!goesOn && row + 1 == grid.Down()) return {};
    return grid.Cell(goesOn ? column + 1 : 0, goesOn ? row : row + 1, grid.blockHeight, grid.blockHeight);
  }

  /// Makes room for what blocks have in common, which would be decoded again for each of them: their rows where they
  /// lie side by side, else what reaches over their ends. False where there is no such room.
  bool KeepRows(int blockRows, int readRows) {
    const auto bytes = grid.Across() < 2 ? platform::CacheRoom::BytesToShare : platform::CacheRoom::BytesOf;
    return rows.Reserve(bytes(fused, blockRows) + bytes(pan, blockRows) + bytes(mul, readRows));
  }

  /// Joins blocks of whole rows that are too low for threads to share.
  void JoinBlocks(std::int64_t mostPixels) {
    constexpr std::int64_t kJoined = 1 << 18;
    const std::int64_t pixels = std::int64_t{grid.blockWidth} * grid.blockHeight;
    const std::int64_t wanted = std::min(mostPixels, kJoined) / std::max<std::int64_t>(pixels, 1);
    if (grid.Across() != 1 || wanted < 2) return;
    joinedRows = grid.blockHeight;
    grid.blockHeight = static_cast<int>(std::min<std::int64_t>(wanted * grid.blockHeight, grid.height));
  }

  /// Cuts blocks of whole rows, unless that would have their strips decoded more than once.
  void CutBlocks(std::int64_t mostPixels) {
    if (mostPixels <= 0 || grid.Across() != 1 || std::int64_t{grid.blockWidth} * grid.blockHeight <= mostPixels) return;
    const int whole = grid.blockHeight;
    const auto rowsOfPiece = static_cast<int>(std::max<std::int64_t>(mostPixels / grid.blockWidth, 1));
    if (KeepRows(rowsOfPiece, 0)) grid.blockHeight = std::min(rowsOfPiece, whole);
  }
};

CFusionEvaluate::CFusionEvaluate(FusionEvaluateParam* param) {
  if (param) m_param = *param;
}

CFusionEvaluate::~CFusionEvaluate() = default;
CFusionEvaluate::CFusionEvaluate(const CFusionEvaluate&) = default;
CFusionEvaluate& CFusionEvaluate::operator=(const CFusionEvaluate&) = default;

std::wstring CFusionEvaluate::Title() const { return messages::RunTitle(m_param.m_strTaskName); }

void CFusionEvaluate::Process() {
  if (m_param.m_bWaitFirst) platform::Sleep(1000);
  ClearError();
  const platform::RunThreads threads(*this);
  Run run;
  bool prepared = false;
  Guard([&] { prepared = Prepare(run); });
  if (prepared) {
    Guard([&] { WalkPasses(run); });
    run.reader.reset();
    run.panBuffer.reset();
    run.mulBuffers.reset();
    run.fusionBuffers.reset();
    Guard([&] { EndProccess(); });
  }
  run.fused.Close();
  run.pan.Close();
  run.mul.Close();
  m_pPanSource = nullptr;
  m_pMulSource = nullptr;
  m_pFusionSource = nullptr;
  m_pReproject = nullptr;
  m_cells.reset();
  if (prepared && m_nLastErrorType == ERR_NONE && m_pProgress) m_pProgress->Finish();
}

bool CFusionEvaluate::Prepare(Run& run) {
  if (m_pProgress) {
    m_pProgress->Begin(m_param.m_stage, Title(), 3);
    m_pProgress->Step(0, messages::kConfiguring);
  }
  if (!OpenRasterSource(&m_param, &run.pan, &run.mul, &run.fused, &run.mulBands, &run.fusionBands) ||
      (m_param.m_bReproject && !BuildReprojection(run))) {
    ReportError();
    return false;
  }
  m_pPanSource = &run.pan;
  m_pMulSource = &run.mul;
  m_pFusionSource = &run.fused;
  m_pReproject = run.reproject.get();

  int width = 0;
  int height = 0;
  GetBlockSize(width, height);
  run.grid = {run.fused.GetWidth(), run.fused.GetHeight(), width, height};
  run.CutBlocks(m_param.m_nMostBlockPixels);
  if (m_joinsBlocks) run.JoinBlocks(m_param.m_nMostBlockPixels);
  if (Preproccess() != GIS_SUCCESS) {
    // What is reported is the state, which a refusal leaves at success.
    ReportError();
    return false;
  }
  if (m_pProgress) m_pProgress->Begin(m_param.m_stage, Title(), run.grid.Count());
  const std::int64_t capacity = std::int64_t{run.grid.blockWidth} * run.grid.blockHeight;
  run.panBuffer = std::make_unique<fusion::BandBuffers>(1, capacity);
  run.mulBuffers = std::make_unique<fusion::BandBuffers>(run.mulBands.size(), capacity);
  run.fusionBuffers = std::make_unique<fusion::BandBuffers>(run.fusionBands.size(), capacity);
  return true;
}

bool CFusionEvaluate::BuildReprojection(Run& run) {
  run.reproject.reset(
      CReproject::Create(&run.mul, CGISDataSource::GetSpatialReferenceWKT(&run.fused), nullptr, nullptr));
  if (!run.reproject) {
    SetError(ERR_REPROJECT, messages::kReprojectFailed);
    return false;
  }
  CBoundingBox box;
  if (run.reproject->Src2DestBox(CGISDataSource::GetExtent(&run.mul), box, 0.0, 0.0)) {
    run.reproject->CreateGrid(box, 0.0, 0.0, 3);
  }
  return true;
}

void CFusionEvaluate::WalkPasses(Run& run) {
  // Nothing sets the step counter back: a second run would take several passes for others, and might never end.
  if (m_nProcessStep > 0 && !IsFinished(1)) throw std::logic_error("an evaluation of several passes runs once");
  do {
    SetProcessStep();
    int position = 0;
    for (int row = 0; row < run.grid.Down(); ++row) {
      for (int column = 0; column < run.grid.Across(); ++column) {
        // Columns advance by the block's height, not its width.
        CRect block = run.grid.Cell(column, row, run.grid.blockHeight, run.grid.blockHeight);
        CRect read;
        if (!GetReadBufferRect(&block, &read)) continue;
        if (HasUncovered(run, block)) read = CRect();
        run.mulBuffers->Reserve(read);
        run.KeepRows(block.Height(), read.Height());
        if (const GISError started = StartBolckProcess(); started != GIS_SUCCESS) {
          // A stopped run must not look like a finished one.
          if (m_nLastErrorType == ERR_NONE) m_nLastErrorType = started;
          ReportError();
          return;
        }
        run.next = run.CellAfter(column, row);
        if (!EvaluateBlock(run, block, read)) return;
        EndBolckProcess();
        if (m_pProgress && !m_pProgress->Step(++position, messages::kProcessing)) {
          m_nLastErrorType = ERR_CANCELLED;
          platform::WriteLog(2, "FusionEvaluate", 294, "CFusionEvaluate::Process", messages::kCancelled);
          return;
        }
      }
    }
  } while (!IsFinished(m_nProcessStep));
}

bool CFusionEvaluate::EvaluateBlock(Run& run, CRect& block, CRect& read) {
  CRect panRect = OnPan(block);
  bool ok = true;
  for (std::size_t i = 0; ok && i < run.fusionBands.size(); ++i) {
    ok = run.fusionBuffers->Read(i, run.fused.GetRasterBand(run.fusionBands[i]), block);
  }
  for (std::size_t i = 0; ok && i < run.mulBands.size(); ++i) {
    ok = run.mulBuffers->ReadOn(i, run.mul.GetRasterBand(run.mulBands[i]), read);
  }
  ok = ok && run.panBuffer->Read(0, run.pan.GetRasterBand(m_param.m_nPanBand), panRect);
  if (!ok) {
    Fail(ERR_READ, messages::kReadFailed);
    return false;
  }
  ReadAhead(run, run.next);
  FusionEvaluate((*run.panBuffer)[0], &panRect, run.mulBuffers->Pointers(), static_cast<int>(run.mulBands.size()),
                 &read, run.fusionBuffers->Pointers(), static_cast<int>(run.fusionBands.size()), &block);
  return true;
}

void CFusionEvaluate::ReadAhead(Run& run, const CRect& next) {
  if (!m_overlappedIo || next.Area() == 0) return;
  if (!run.reader) run.reader = std::make_unique<platform::TaskQueue>(run.fusionBands.size() + 1);
  for (std::size_t i = 0; i < run.fusionBands.size(); ++i) {
    run.fusionBuffers->Expect(i, run.fused.GetRasterBand(run.fusionBands[i]), next, *run.reader);
  }
  run.panBuffer->Expect(0, run.pan.GetRasterBand(m_param.m_nPanBand), OnPan(next), *run.reader);
}

bool CFusionEvaluate::HasUncovered(const Run& run, const CRect& block) {
  for (int top = block.top; run.joinedRows > 0 && top < block.bottom; top += run.joinedRows) {
    CRect part(block.left, top, block.right, std::min(top + run.joinedRows, block.bottom));
    CRect read;
    if (GetReadBufferRect(&part, &read) && read.Area() == 0) return true;
  }
  return false;
}

CRect CFusionEvaluate::OnPan(const CRect& block) const {
  return fusion::Shift(block, m_param.m_rcPanOffset.left, m_param.m_rcPanOffset.top);
}

GISError CFusionEvaluate::Preproccess() { return GIS_SUCCESS; }

bool CFusionEvaluate::OpenRasterSource(FusionEvaluateParam* param, CRasterSource* pan, CRasterSource* mul,
                                       CRasterSource* fusion, std::vector<int>* mulBands,
                                       std::vector<int>* fusionBands) {
  const std::pair<CRasterSource*, const std::wstring*> inputs[] = {
      {pan, &param->m_strPanFile}, {mul, &param->m_strMulFile}, {fusion, &param->m_strFusionFile}};
  for (const auto& [source, path] : inputs) {
    if (source->Open(*path, GDA_READ, true)) {
      source->SetMaskNoData(param->m_bMaskNoData);
      continue;
    }
    SetError(ERR_OPEN, messages::OpenFailed(*path));
    return false;
  }
  mulBands->insert(mulBands->end(), param->m_vecMulBands.begin(), param->m_vecMulBands.end());
  fusionBands->insert(fusionBands->end(), param->m_vecFusionBands.begin(), param->m_vecFusionBands.end());
  return true;
}

void CFusionEvaluate::GetBlockSize(int& xSize, int& ySize) {
  constexpr int kUsual = 1024;
  xSize = kUsual;
  ySize = kUsual;
  if (!m_pFusionSource || !m_pFusionSource->IsOpen() || !m_pFusionSource->GetRasterBand(0)) return;
  xSize = m_pFusionSource->GetBlockXSize();
  ySize = m_pFusionSource->GetBlockYSize();
  if (xSize < kUsual && ySize < kUsual) {
    xSize = kUsual;
    ySize = kUsual;
  }
}

bool CFusionEvaluate::GetReadBufferRect(CRect* blockRect, CRect* readRect) {
  const CBoundingBox box = m_pFusionSource->ImageToGround(*blockRect);
  if (m_pReproject) {
    if (!m_pReproject->GetInImgEnveFromGeoOut(box, *readRect, 0.0, 0.0)) *readRect = CRect();
    return true;
  }
  constexpr int kMargin = 5;
  const CRect rect = m_pMulSource->GroundToImage(box);
  readRect->left = std::max(rect.left - kMargin, 0);
  readRect->top = std::max(rect.top - kMargin, 0);
  readRect->right = std::min(rect.right + kMargin, m_pMulSource->GetWidth());
  readRect->bottom = std::min(rect.bottom + kMargin, m_pMulSource->GetHeight());
  return true;
}

GISError CFusionEvaluate::StartBolckProcess() { return GIS_SUCCESS; }
void CFusionEvaluate::EndBolckProcess() {}
void CFusionEvaluate::SetProcessStep() { ++m_nProcessStep; }

void CFusionEvaluate::EndProccess() {
  m_pFusionMax.reset();
  m_pFusionMin.reset();
  m_pMulMax.reset();
  m_pMulMin.reset();
}

void CFusionEvaluate::ImgXY2BufXY(double x, double y, CRect* rect, int& col, int& row) {
  col = static_cast<int>(fusion::BufferCell(x, rect->left, rect->Width()));
  row = static_cast<int>(fusion::BufferCell(y, rect->top, rect->Height()));
}

namespace {

platform::NoDataRule NoDataOf(const CRasterSource* source, int band) {
  if (source && source->IsMaskNoData()) return {true, false, std::numeric_limits<double>::quiet_NaN()};
  const CRasterBand* found = source ? source->GetRasterBand(band) : nullptr;
  return found ? found->GetNoDataRule() : platform::NoDataRule{};
}

}  // namespace

platform::NoDataRule CFusionEvaluate::PanNoData() const { return NoDataOf(m_pPanSource, m_param.m_nPanBand); }

platform::NoDataRule CFusionEvaluate::MulNoData(std::size_t i) const {
  return NoDataOf(m_pMulSource, m_param.m_vecMulBands[i]);
}

platform::NoDataRule CFusionEvaluate::FusionNoData(std::size_t i) const {
  return NoDataOf(m_pFusionSource, m_param.m_vecFusionBands[i]);
}

fusion::MsCells& CFusionEvaluate::Cells(int reprojectedShift) {
  if (!m_cells) {
    m_cells = std::make_shared<fusion::MsCells>(*m_pFusionSource, *m_pMulSource, m_pReproject, reprojectedShift);
  }
  return *m_cells;
}
