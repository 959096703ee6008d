#include "framework/row_kernel.h"

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <utility>

#ifdef _OPENMP
#include <omp.h>
#endif

#include "framework/fusion_block.h"
#include "framework/resampling/gap_resampling.h"
#include "framework/run/block_store.h"
#include "platform/raster/pixel_type.h"
#include "platform/raster/position_grid.h"
#include "platform/system/workers.h"
#include "platform/validity/gap_marks.h"

namespace fusion {
namespace {

/// Rows of doubles in one allocation.
class Rows {
 public:
  Rows(int count, int width) : m_values(static_cast<std::size_t>(count) * static_cast<std::size_t>(width), 0.0) {
    for (int i = 0; i < count; ++i) m_pointers.push_back(m_values.data() + static_cast<std::ptrdiff_t>(i) * width);
  }
  double* const* Pointers() const { return m_pointers.data(); }

 private:
  std::vector<double> m_values;
  std::vector<double*> m_pointers;
};

/// Output buffers until they are handed over.
class OutputBlock {
 public:
  OutputBlock(PixelDataType type, int bandCount, std::size_t pixels, BlockStore* store)
      : m_type(type), m_bandCount(bandCount), m_bands(new void*[static_cast<std::size_t>(bandCount)]()) {
    try {
      for (int b = 0; b < bandCount; ++b) {
        m_bands[b] = store ? store->Take(type, pixels) : NewPixels(type, pixels);
      }
    } catch (...) {
      FreeBlock(m_type, m_bandCount, m_bands);
      throw;
    }
  }
  ~OutputBlock() { FreeBlock(m_type, m_bandCount, m_bands); }
  OutputBlock(const OutputBlock&) = delete;
  OutputBlock& operator=(const OutputBlock&) = delete;

  unsigned char* Band(int b) const { return static_cast<unsigned char*>(m_bands[b]); }
  void** Release() {
    void** bands = m_bands;
    m_bands = nullptr;
    return bands;
  }

 private:
  PixelDataType m_type;
  int m_bandCount;
  void** m_bands;
};

/// What one thread needs to work through rows of a block.
class RowWorker {
 public:
  RowWorker(const FusionBlock& block, const BlockGaps& gaps, const RowGeometry& geometry, ResampleType resampleType,
            const RowPolicy& policy, const RowArithmetic& arithmetic, const platform::ValueConversion& conversion,
            const std::shared_ptr<const SampleRange>& range, const OutputBlock& output)
      : m_block(block),
        m_gaps(gaps),
        m_policy(policy),
        m_arithmetic(arithmetic),
        m_conversion(conversion),
        m_output(output),
        m_source(geometry, resampleType, block, gaps, range),
        m_tileWidth(std::min(kTileWidth, m_source.Width())),
        m_ms(std::max(block.msBandCount, block.outBandCount), m_tileWidth),
        m_out(block.outBandCount, m_tileWidth),
        m_scratch(policy.scratchRows, m_tileWidth) {}

  void Run(int beginRow, int endRow) {
    for (int first = 0; first < m_source.Width(); first += m_tileWidth) RunTile(first, beginRow, endRow);
  }

  /// @param first a column at which a tile begins
  void RunTile(int first, int beginRow, int endRow) {
    const int count = std::min(m_tileWidth, m_source.Width() - first);
    if (m_first != first) m_source.SetColumns(first, count);
    m_first = first;
    for (int row = beginRow; row < endRow; ++row) RunTileRow(first, count, row);
  }

 private:
  void RunTileRow(int first, int count, int row) {
    // Rows that an arithmetic may have overwritten and that no resampling fills again.
    for (int b = m_block.msBandCount; b < m_block.outBandCount; ++b) std::fill_n(m_ms.Pointers()[b], count, 0.0);
    m_source.Resample(row, m_ms.Pointers());
    const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(row) * m_source.Width() + first;
    m_arithmetic({count, m_block.msBandCount, m_block.outBandCount, m_block.pan + at,
                  m_block.detail ? m_block.detail + at : nullptr, m_ms.Pointers(), m_out.Pointers(),
                  m_scratch.Pointers()});
    const int size = platform::PixelSize(m_block.outType);
    for (int b = 0; b < m_block.outBandCount; ++b) {
      m_conversion.ConvertRow(m_block.outType, m_out.Pointers()[b], m_output.Band(b) + at * size,
                              static_cast<std::size_t>(count));
    }
    if (m_gaps.masked) {
      StoreGaps(first, count, row, at);
      return;
    }
    if (m_policy.panNoData.declared) StorePanNoData(at, count);
    if (m_block.aoi) ClearOutsideArea(first, count, row, at);
  }

  void StoreGaps(int first, int count, int row, std::ptrdiff_t at) {
    const unsigned char* inside = m_block.aoi ? MarkInside(first, count, row) : nullptr;
    const int size = platform::PixelSize(m_block.outType);
    for (int b = 0; b < m_block.outBandCount; ++b) {
      platform::StoreGaps(m_block.outType, inside, static_cast<std::size_t>(count), m_output.Band(b) + at * size);
    }
  }

  void StorePanNoData(std::ptrdiff_t at, int count) {
    platform::ValueConversion plain = m_conversion;
    plain.m_bStretch = false;
    plain.m_bAddOne = false;
    const int size = platform::PixelSize(m_block.outType);
    for (std::ptrdiff_t i = at; i < at + count; ++i) {
      if (!m_policy.panNoData(m_block.pan[i])) continue;
      for (int b = 0; b < m_block.outBandCount; ++b) {
        plain.ConvertRow(m_block.outType, &m_block.pan[i], m_output.Band(b) + i * size, 1);
      }
    }
  }

  const unsigned char* MarkInside(int first, int count, int row) {
    m_inside.resize(static_cast<std::size_t>(count));
    m_block.aoi->MarkRow(m_block.panRect->left + first, m_block.panRect->top + row, count, m_inside.data());
    return m_inside.data();
  }

  void ClearOutsideArea(int first, int count, int row, std::ptrdiff_t at) {
    const unsigned char* inside = MarkInside(first, count, row);
    const int size = platform::PixelSize(m_block.outType);
    for (int i = 0; i < count; ++i) {
      if (inside[i]) continue;
      for (int b = 0; b < m_block.outBandCount; ++b) std::fill_n(m_output.Band(b) + (at + i) * size, size, 0);
    }
  }

  const FusionBlock& m_block;
  const BlockGaps& m_gaps;
  const RowPolicy& m_policy;
  const RowArithmetic& m_arithmetic;
  const platform::ValueConversion& m_conversion;
  const OutputBlock& m_output;
  RowSource m_source;
  int m_tileWidth;
  int m_first = -1;  ///< of the tile at hand
  Rows m_ms;
  Rows m_out;
  Rows m_scratch;
  std::vector<unsigned char> m_inside;
};

/// Shares rows out among OpenMP's threads, each taking one contiguous part; an exception of any of them goes on to the
/// caller.
template <typename Work>
void ForRows(int rows, bool parallel, const Work& work) {
#ifdef _OPENMP
  if (parallel) {
    std::exception_ptr failure;
    std::mutex mutex;
    std::condition_variable ended;
    int finished = 0;
#pragma omp parallel
    {
      const int threads = omp_get_num_threads();
      const auto thread = static_cast<std::int64_t>(omp_get_thread_num());
      const auto begin = static_cast<int>(rows * thread / threads);
      const auto end = static_cast<int>(rows * (thread + 1) / threads);
      std::exception_ptr own;
      try {
        if (begin < end) work(begin, end);
      } catch (...) {
        own = std::current_exception();
      }
      // Left to OpenMP, whoever is finished first would wait spinning, on a core that reading and writing could use.
      // Not by an atomic's wait: where the system has none, that of the standard library may miss being notified.
      std::unique_lock<std::mutex> lock(mutex);
      if (own) failure = own;
      if (++finished == threads) ended.notify_all();
      ended.wait(lock, [&] { return finished == threads; });
    }
    if (failure) std::rethrow_exception(failure);
    return;
  }
#endif
  static_cast<void>(parallel);
  work(0, rows);
}

/// What threads share of a block: parts of its rows, in one tile after another, so that few of them have to begin anew.
class RowPieces {
 public:
  RowPieces(int width, int rows, int threads) : m_rows(rows) {
    constexpr int kLeastRows = 8;
    constexpr int kPiecesOfThread = 4;  // the more, the less anyone waits for the last one
    const int tiles = (width - 1) / kTileWidth + 1;
    m_parts = std::clamp((kPiecesOfThread * threads - 1) / tiles + 1, 1, std::max(rows / kLeastRows, 1));
    m_count = width > 0 ? tiles * m_parts : 0;
  }
  int Count() const { return m_count; }
  int First(int i) const { return i / m_parts * kTileWidth; }
  int Begin(int i) const { return Row(i % m_parts); }
  int End(int i) const { return Row(i % m_parts + 1); }

 private:
  int Row(int part) const { return static_cast<int>(std::int64_t{m_rows} * part / m_parts); }

  int m_rows;
  int m_parts;
  int m_count;
};

}  // namespace

RowSource::RowSource(const RowGeometry& geometry, ResampleType type, const FusionBlock& block, const BlockGaps& gaps,
                     std::shared_ptr<const SampleRange> range)
    : m_geometry(geometry),
      m_type(type),
      m_block(block),
      m_resampler(type, block.ms, block.msBandCount, *block.msRect),
      m_separable(!geometry.reproject && geometry.toGround.IsAxisAligned() && geometry.groundToMs.IsAxisAligned()),
      m_range(std::move(range)) {
  for (int b = 0; gaps.ms && b < block.msBandCount; ++b) {
    if (gaps.ms[b]) m_gapBands.push_back(b);
  }
  if (m_range && m_separable) m_limits.emplace(*m_range);
}

void RowSource::SetColumns(int first, int count) {
  m_first = first;
  m_count = count;
  m_x.resize(static_cast<std::size_t>(count));
  m_y.resize(static_cast<std::size_t>(count));
  if (!m_separable) return;
  MapRow(0);
  m_resampler.SetColumns(m_x.data(), count);
  if (m_limits) m_limits->SetColumns(m_x.data(), count);
}

void MapPixels(const RowGeometry& g, int first, int count, int row, double* x, double* y) {
  const double startY = static_cast<double>(g.rect.top + row) + g.offset;
  for (int i = 0; i < count; ++i) {
    const double startX = static_cast<double>(g.rect.left + first + i) + g.offset;
    x[i] = g.toGround.X(startX, startY);
    y[i] = g.toGround.Y(startX, startY);
  }
  if (g.reproject) {
    g.reproject->GetSrcPos(x, y, x, y, count, g.edge);
  } else {
    platform::GroundToSamples(g.groundToMs, g.msWidth, g.msHeight, count, x, y, g.edge);
  }
}

void RowSource::MapRow(int row) { MapPixels(m_geometry, m_first, m_count, row, m_x.data(), m_y.data()); }

void RowSource::Resample(int row, double* const* out) {
  double msRow = 0.0;
  if (!m_separable) {
    MapRow(row);
    m_resampler.ResamplePoints(m_x.data(), m_y.data(), m_count, out);
  } else {
    const RowGeometry& g = m_geometry;
    const double x = static_cast<double>(g.rect.left) + g.offset;
    const double y = static_cast<double>(g.rect.top + row) + g.offset;
    const double corner = g.groundToMs.Y(g.toGround.X(x, y), g.toGround.Y(x, y));
    msRow = platform::SampleCoordinate(corner, g.msHeight, g.edge);
    m_resampler.ResampleRow(msRow, out);
    if (!m_gapBands.empty()) std::fill(m_y.begin(), m_y.end(), msRow);
  }
  if (!m_gapBands.empty()) FillGaps(row, out);
  if (m_limits) {
    m_limits->Keep(msRow, out);
  } else if (m_range) {
    m_range->Keep(m_x.data(), m_y.data(), m_count, out);
  }
}

/// A sample without data makes a NaN of every pixel that it is a tap of, and of no other.
void RowSource::FillGaps(int row, double* const* out) {
  for (const int b : m_gapBands) {
    if (!platform::HasGap(out[b], static_cast<std::size_t>(m_count))) continue;
    for (int i = 0; i < m_count; ++i) {
      double& value = out[b][i];
      if (!std::isnan(value)) continue;
      const auto k = static_cast<std::size_t>(i);
      const CRect& pan = *m_block.panRect;
      const bool inside = !m_block.aoi || m_block.aoi->IsInAOI(pan.left + m_first + i, pan.top + row);
      value = inside ? ResampleValid(m_type, m_x[k], m_y[k], m_block.ms[b], *m_block.msRect) : 0.0;
    }
  }
}

void** RunRowKernel(const FusionBlock& block, const BlockGaps& gaps, const RowGeometry& geometry,
                    ResampleType resampleType, const RowPolicy& policy, const RowArithmetic& arithmetic,
                    const platform::ValueConversion& conversion, const std::shared_ptr<const SampleRange>& range,
                    platform::Workers* workers, BlockStore* store) {
  OutputBlock output(block.outType, block.outBandCount, static_cast<std::size_t>(geometry.rect.Area()), store);
  const auto makeWorker = [&] {
    return RowWorker(block, gaps, geometry, resampleType, policy, arithmetic, conversion, range, output);
  };
  const int rows = geometry.rect.Height();
  if (workers) {
    const RowPieces pieces(geometry.rect.Width(), rows, workers->Count());
    platform::ForEachWith(workers, pieces.Count(), makeWorker, [&](RowWorker& worker, int i) {
      worker.RunTile(pieces.First(i), pieces.Begin(i), pieces.End(i));
    });
  } else {
    ForRows(rows, policy.parallelRows, [&](int begin, int end) { makeWorker().Run(begin, end); });
  }
  return output.Release();
}

void FreeBlock(PixelDataType type, int bandCount, void** bands) {
  if (!bands) return;
  for (int b = 0; b < bandCount; ++b) DeletePixels(type, bands[b]);
  delete[] bands;
}

}  // namespace fusion
