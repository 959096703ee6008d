#include "platform/algorithm/row_stage.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <numeric>

#include "platform/algorithm/messages.h"
#include "platform/algorithm/row_buffer.h"
#include "platform/algorithm/row_conversion.h"
#include "platform/algorithm/run_threads.h"
#include "platform/raster/raster_algorithm.h"
#include "platform/system/task_queue.h"
#include "platform/system/workers.h"
#include "platform/utility/common_fun.h"

namespace platform {
namespace {

// A small chunk is still in the processor's cache when the rows that were read are worked on.
constexpr std::int64_t kChunkBytes = std::int64_t{8} << 20;
constexpr int kMostRows = 512;

/// Rows per chunk: whole blocks of the file where they fit the memory that a chunk may take.
int ChunkRows(const CRasterSource& input, std::int64_t rowBytes) {
  auto rows = static_cast<int>(std::clamp<std::int64_t>(kChunkBytes / rowBytes, 1, kMostRows));
  const int block = input.GetBlockYSize();
  if (block > 0 && rows > block) rows -= rows % block;
  return std::min(rows, input.GetHeight());
}

/// Of a chunk, for a thread to work on at a time.
constexpr int kPieceRows = 16;
int PieceCount(int rows) { return (rows + kPieceRows - 1) / kPieceRows; }

/// The row of each band.
const double* const* RowsAt(const RowBuffer& rows, int row, std::vector<const double*>& pointers) {
  pointers.resize(static_cast<std::size_t>(rows.BandCount()));
  for (int i = 0; i < rows.BandCount(); ++i) pointers[static_cast<std::size_t>(i)] = rows.Row(i, row);
  return pointers.data();
}

int ChunkCount(int rows, int chunkRows) { return rows > 0 ? (rows - 1) / chunkRows + 1 : 0; }

/// Which pixels of some rows lie inside the area of interest.
class AreaRows {
 public:
  AreaRows(CRasterAOI* area, int width) : m_area(area), m_inside(static_cast<std::size_t>(area ? width : 0)) {}

  void Load(int first, int count) {
    if (m_area) m_relation = m_area->ReadCacheAoiBuffer(0, first, static_cast<int>(m_inside.size()), count);
  }
  bool IsOutside() const { return m_relation == 0; }
  /// Null where the whole row is inside.
  const unsigned char* Row(int row) {
    if (m_relation == kInside) return nullptr;
    m_area->MarkRow(0, row, static_cast<int>(m_inside.size()), m_inside.data());
    return m_inside.data();
  }

 private:
  static constexpr int kInside = 3;
  CRasterAOI* m_area;
  std::vector<unsigned char> m_inside;
  int m_relation = kInside;
};

}  // namespace

struct RowStage::Run {
  CRasterSource input;
  CRasterSource output;
  bool created = false;
  StagePlan plan;
  std::unique_ptr<CRasterAOI> area;
  CRect part;  ///< of the input, which is written
  int chunkRows = 1;
  int step = 0;
  /// A chunk of output pixels per band, twice: one is filled while the other is written.
  std::vector<std::vector<unsigned char>> outRows[2];
};

RowStage::RowStage(const AlgorithmParam* param) : m_param(param ? *param : AlgorithmParam()) {}
RowStage::~RowStage() = default;
RowStage::RowStage(const RowStage& other) : CBaseAlgorithm(other), m_param(other.m_param) {}
RowStage& RowStage::operator=(const RowStage& other) {
  if (this != &other) {
    CBaseAlgorithm::operator=(other);
    m_param = other.m_param;
  }
  return *this;
}

bool RowStage::Prepare() { return true; }

void RowStage::Process() {
  ClearError();
  const RunThreads threads(*this);
  Run run;
  m_run = &run;
  bool done = false;
  Guard([&] { done = Execute(run); });
  m_run = nullptr;
  if (!done) run.output.Abandon();
  bool cancelled = false;
  if (!run.output.Close(m_pProgress, &cancelled)) {
    done = false;
    if (cancelled) {
      m_nLastErrorType = ERR_CANCELLED;
    } else {
      Fail(ERR_WRITE, messages::kWriteFailed);
    }
  }
  run.input.Close();
  if (!done) {
    if (run.created) CRasterSource::DeleteFileW(m_param.m_strOutFile);
    return;
  }
  ReportFinished();
}

bool RowStage::Execute(Run& run) {
  const std::wstring title = messages::RunTitle(m_param.m_strAlgName);
  if (m_pProgress) {
    m_pProgress->Begin(m_param.m_stage, title, 100);
    m_pProgress->Step(0, messages::kConfiguring);
  }
  if (!Open(run)) {
    ReportError();
    return false;
  }
  const auto steps = [&run](int rows) { return ChunkCount(rows, run.chunkRows); };
  if (m_pProgress) {
    m_pProgress->Begin(m_param.m_stage, title,
                       steps(run.input.GetHeight()) * run.plan.scanCount + steps(run.part.Height()));
  }
  return Prepare() && CreateOutput(run) && WriteRows(run);
}

bool RowStage::Open(Run& run) {
  if (!run.input.Open(m_param.m_strInFile, GDA_READ, m_param.m_bOpenOption)) {
    SetError(ERR_OPEN, messages::OpenFailed(m_param.m_strInFile));
    return false;
  }
  // Creating the output would destroy an input of the same name.
  if (m_param.m_strOutFile.empty() || CommonFun::IsSameFile(m_param.m_strInFile, m_param.m_strOutFile)) {
    SetError(ERR_CREATE, messages::CreateFailed(m_param.m_strOutFile));
    return false;
  }
  run.input.SetMaskNoData(m_param.m_bMaskNoData);
  run.plan.outType = m_param.m_eOutDataType;
  if (!Configure(run.input, run.plan)) return false;
  if (run.plan.outType == PDT_UNKNOWN) run.plan.outType = run.input.GetRasterDataType();
  const auto& bands = run.plan.bands;
  if (bands.empty() || !std::all_of(bands.begin(), bands.end(), [&](int b) { return run.input.GetRasterBand(b); })) {
    SetError(ERR_READ, messages::kReadFailed);
    return false;
  }
  if (!ChoosePart(run)) return false;
  if (run.plan.useArea) {
    CRasterAOI* area = nullptr;
    // The statistics are those of the whole area, whatever part is written.
    AlgorithmParam whole = m_param;
    whole.m_rcProcess = {};
    if (!ConfigRasterAOI(&whole, &run.input, &area)) {
      // Whoever runs a stage asks for its error type alone.
      if (m_nLastErrorType == ERR_NONE) m_nLastErrorType = ERR_OPEN;
      return false;
    }
    run.area.reset(area);
  }
  const auto planes = static_cast<std::int64_t>(bands.size()) + run.plan.outBandCount;
  run.chunkRows = ChunkRows(run.input, planes * run.input.GetWidth() * std::int64_t{sizeof(double)});
  return true;
}

bool RowStage::ChoosePart(Run& run) {
  run.part = {0, 0, run.input.GetWidth(), run.input.GetHeight()};
  const CRect& wanted = m_param.m_rcProcess;
  if (wanted.IsRectEmpty()) return true;
  run.part = {std::max(wanted.left, 0), std::max(wanted.top, 0), std::min(wanted.right, run.part.right),
              std::min(wanted.bottom, run.part.bottom)};
  if (run.part.Area() > 0) return true;
  SetError(ERR_OPEN, messages::kWrongExtent);
  return false;
}

bool RowStage::CreateRaster(Run& run, RasterDataFormat format, double geoTransform[6]) const {
  const CRect& part = run.part;
  for (double* row : {geoTransform, geoTransform + 3}) row[0] += part.left * row[1] + part.top * row[2];
  return run.output.CreateRaster(format, m_param.m_strOutFile, part.Width(), part.Height(), run.plan.outBandCount,
                                 run.plan.outType, geoTransform, run.input.GetSpatialReferenceWKT(),
                                 m_param.m_vecCreationOptions);
}

bool RowStage::CreateOutput(Run& run) {
  RasterDataFormat format = m_param.m_eOutFormat;
  if (format == kFormatUnknown) format = CRasterSource::GetDataFormat(m_param.m_strOutFile);
  if (format == kFormatUnknown) format = kFormatGeoTiff;
  double geoTransform[6];
  double minimum = 0.0;
  double maximum = 0.0;
  if (!run.input.GetGeoTransform(geoTransform) || !CRasterAlgorithm::GetMaxMinVal(run.plan.outType, maximum, minimum) ||
      !CreateRaster(run, format, geoTransform)) {
    Fail(ERR_CREATE, messages::CreateFailed(m_param.m_strOutFile));
    return false;
  }
  run.created = true;
  if (m_param.m_pDescription) m_param.m_pDescription->Apply(run.output);
  SetOutMinMaxValue(minimum, maximum);
  const CRasterBand* noData = run.plan.noData;
  if (m_param.m_bMaskNoData) {
    run.output.DeclareNoData(0.0);
  } else if (noData && noData->IsHaveNoData()) {
    run.output.DeclareNoData(noData->GetNoDataValue());
  }
  return true;
}

bool RowStage::PlanFirstBands(const CRasterSource& input, StagePlan& plan) {
  plan.outBandCount = m_param.m_nOutBandCount > 0 ? m_param.m_nOutBandCount : input.GetBandCount();
  if (plan.outBandCount > input.GetBandCount()) {
    SetError(ERR_READ, messages::kReadFailed);
    return false;
  }
  plan.bands.resize(static_cast<std::size_t>(plan.outBandCount));
  std::iota(plan.bands.begin(), plan.bands.end(), 0);
  return true;
}

RowStage::ChunksEnd RowStage::ForChunks(Run& run, const std::vector<int>& bands, int halo, int top, int bottom,
                                        const std::function<bool(RowBuffer& rows, int first, int count)>& work) {
  RowBuffer rows[2] = {{run.input, bands, halo, run.chunkRows}, {run.input, bands, halo, run.chunkRows}};
  const auto first = [&](int chunk) { return top + chunk * run.chunkRows; };
  const auto count = [&](int chunk) { return std::min(run.chunkRows, bottom - first(chunk)); };
  bool goesOn = true;
  const auto load = [&](int chunk, int slot) { return rows[slot].Load(first(chunk), count(chunk), rows[1 - slot]); };
  const auto use = [&](int chunk, int slot) {
    goesOn = work(rows[slot], first(chunk), count(chunk));
    if (goesOn && m_pProgress && !m_pProgress->Step(++run.step, messages::kProcessing)) {
      m_nLastErrorType = ERR_CANCELLED;
      goesOn = false;
    }
    return goesOn;
  };
  if (LoadInTurn(m_overlappedIo, ChunkCount(bottom - top, run.chunkRows), load, use)) return ChunksEnd::kDone;
  return goesOn ? ChunksEnd::kReadFailed : ChunksEnd::kStopped;
}

bool RowStage::Scan(const std::vector<int>& bands, const RowVisitor& visit) {
  return ScanChunks(bands, [&](const RowBuffer& rows, AreaRows& area, int first, int count) {
    std::vector<const double*> pointers;
    for (int row = first; row < first + count; ++row) visit(RowsAt(rows, row, pointers), area.Row(row), rows.Width());
  });
}

bool RowStage::ScanParts(const std::vector<int>& bands, const RowLook& look,
                         const std::function<void(const std::any&)>& fold) {
  return ScanChunks(bands, [&](const RowBuffer& rows, const AreaRows& loaded, int first, int count) {
    FoldInOrder(
        m_workers.get(), PieceCount(count), [&] { return loaded; },
        [&](AreaRows& area, int i) {
          std::any part;
          std::vector<const double*> pointers;
          const int end = std::min((i + 1) * kPieceRows, count);
          for (int row = first + i * kPieceRows; row < first + end; ++row) {
            look(RowsAt(rows, row, pointers), area.Row(row), rows.Width(), part);
          }
          return part;
        },
        fold);
  });
}

template <typename Work>
bool RowStage::ScanChunks(const std::vector<int>& bands, const Work& work) {
  Run& run = *m_run;
  AreaRows area(run.area.get(), run.input.GetWidth());
  const auto visitRows = [&](RowBuffer& rows, int first, int count) {
    area.Load(first, count);
    if (!area.IsOutside()) work(rows, area, first, count);
    return true;
  };
  const ChunksEnd end = ForChunks(run, bands, 0, 0, run.input.GetHeight(), visitRows);
  if (end == ChunksEnd::kReadFailed) Fail(ERR_READ, messages::kReadFailed);
  return end == ChunksEnd::kDone;
}

bool RowStage::WriteRows(Run& run) {
  const auto bandCount = static_cast<std::size_t>(run.plan.outBandCount);
  const std::size_t rowBytes =
      static_cast<std::size_t>(run.part.Width()) * static_cast<std::size_t>(PixelSize(run.plan.outType));
  for (auto& rows : run.outRows) {
    rows.assign(bandCount, std::vector<unsigned char>(rowBytes * static_cast<std::size_t>(run.chunkRows)));
  }
  std::atomic<bool> written = true;
  TaskQueue writer(1, m_overlappedIo);
  int slot = 0;
  const auto writeRows = [&](RowBuffer& rows, int first, int count) {
    slot = 1 - slot;
    const auto& outRows = run.outRows[slot];
    FillChunk(run, rows, first, count, run.outRows[slot]);
    writer.Add(
        [&run, &outRows, &written, first, count] { written = written && WriteChunk(run, outRows, first, count); });
    return written.load();
  };
  const ChunksEnd end = ForChunks(run, run.plan.bands, run.plan.halo, run.part.top, run.part.bottom, writeRows);
  writer.Wait();
  // A chunk that could not be written comes before one that could not be read.
  if (!written) {
    Fail(ERR_WRITE, messages::kWriteFailed);
  } else if (end == ChunksEnd::kReadFailed) {
    Fail(ERR_READ, messages::kReadFailed);
  }
  return written && end == ChunksEnd::kDone;
}

bool RowStage::WriteChunk(Run& run, const std::vector<std::vector<unsigned char>>& rows, int first, int count) {
  const int width = run.part.Width();
  for (int b = 0; b < run.plan.outBandCount; ++b) {
    CRasterBand* band = run.output.GetRasterBand(b);
    if (!band || band->WriteBlock(0, first - run.part.top, width, count, rows[static_cast<std::size_t>(b)].data(),
                                  width, count, run.plan.outType) != 0) {
      return false;
    }
  }
  return true;
}

void RowStage::FillChunk(Run& run, const RowBuffer& rows, int first, int count,
                         std::vector<std::vector<unsigned char>>& outRows) {
  const int width = run.part.Width();
  const std::size_t rowBytes = static_cast<std::size_t>(PixelSize(run.plan.outType)) * static_cast<std::size_t>(width);
  AreaRows area(run.area.get(), rows.Width());
  area.Load(first, count);
  const bool shared = m_workers && run.plan.makeRowWork;
  struct Filler {
    StagePlan::RowWork work;
    RowConversion store;
    AreaRows area;
    std::vector<std::vector<double>> row;  ///< one computed row per output band
    std::vector<double*> pointers;
  };
  const auto makeFiller = [&] {
    Filler filler{shared ? run.plan.makeRowWork()
                         : [this](const RowBuffer& from, int row, double* const* out) { ProcessRow(from, row, out); },
                  {run.plan.outType, m_conversion, run.plan.roundToNearest, m_param.m_bMaskNoData},
                  area,
                  {outRows.size(), std::vector<double>(static_cast<std::size_t>(rows.Width()))},
                  {}};
    for (auto& row : filler.row) filler.pointers.push_back(row.data());
    return filler;
  };
  const auto fillRow = [&](Filler& filler, int row) {
    const unsigned char* inside = filler.area.Row(row);
    filler.work(rows, row, filler.pointers.data());
    for (std::size_t b = 0; b < outRows.size(); ++b) {
      filler.store.Store(filler.pointers[b] + run.part.left, inside ? inside + run.part.left : nullptr, width,
                         outRows[b].data() + static_cast<std::size_t>(row - first) * rowBytes);
    }
  };
  ForEachWith(shared ? m_workers.get() : nullptr, PieceCount(count), makeFiller, [&](Filler& filler, int i) {
    const int end = std::min((i + 1) * kPieceRows, count);
    for (int row = first + i * kPieceRows; row < first + end; ++row) fillRow(filler, row);
  });
}

}  // namespace platform
