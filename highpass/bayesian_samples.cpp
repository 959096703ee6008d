#include "highpass/bayesian_samples.h"

#include <algorithm>
#include <cmath>

#include "platform/system/multiversion.h"
#include "platform/system/task_queue.h"
#include "platform/validity/no_data.h"

namespace fusion {
namespace {

/// Tiles small enough that the pan pixels below one fit into bounded memory whatever the ratio.
BlockGrid Tiles(const CRasterSource& ms, double ratio) {
  constexpr double kPanPixels = 1 << 22;
  const double pixels = std::max(kPanPixels / (std::max(ratio, 1.0) * std::max(ratio, 1.0)), 1.0);
  // Whole rows up to a width where two rows of margin would make up much of what is read.
  const double width = std::min({pixels, 16384.0, static_cast<double>(ms.GetWidth())});
  const double height = std::clamp(pixels / width, 1.0, 64.0);
  return {ms.GetWidth(), ms.GetHeight(), static_cast<int>(width), static_cast<int>(height)};
}

/// What three rows sum up to, column by column.
FUSION_MULTIVERSION
void SumRows(const double* above, const double* row, const double* below, int n, double* out) {
  for (int i = 0; i < n; ++i) out[i] = above[i] + row[i] + below[i];
}

/// @param sums of three rows from one column to the left to one column to the right
FUSION_MULTIVERSION
void DetailRow(const double* values, const double* sums, int n, double* out, unsigned char* valid) {
  for (int i = 0; i < n; ++i) {
    const double sum = sums[i] + sums[i + 1] + sums[i + 2];
    out[i] = values[i] - sum / 9.0;
    valid[i] = static_cast<unsigned char>(valid[i] & (sum == sum ? 1 : 0));
  }
}

}  // namespace

BayesianSamples::BayesianSamples(const CRasterSource& ms, std::vector<CRasterBand*> bands, PanAverage& pan,
                                 bool readAhead)
    : m_bands(std::move(bands)),
      m_pan(pan),
      m_readAhead(readAhead),
      m_tiles(Tiles(ms, pan.Ratio())),
      m_kept(static_cast<std::size_t>(m_tiles.Count())),
      m_buffers(m_bands.size(), 0),
      m_sums(static_cast<std::size_t>(m_tiles.blockWidth) + 2),
      m_valid(static_cast<std::size_t>(m_tiles.blockWidth)) {
  for (const CRasterBand* band : m_bands) m_noData.push_back(platform::NoDataSample(*band));
  const auto size = static_cast<std::size_t>(m_tiles.blockWidth) * static_cast<std::size_t>(m_tiles.blockHeight);
  for (Samples& samples : m_samples) {
    samples.columns.assign(2 * m_bands.size() + 1, std::vector<double>(size));
    for (std::size_t b = 0; b < m_bands.size(); ++b) {
      samples.bandColumns.push_back(samples.columns[b].data());
      samples.detailColumns.push_back(samples.columns[m_bands.size() + b].data());
    }
  }
}

bool BayesianSamples::ForEachTile(const std::function<bool(const BayesianBatch&)>& visit) {
  bool wanted = true;
  const auto collect = [this](int i, int slot) { return Collect(i, m_samples[slot]); };
  const auto use = [&](int, int slot) {
    const Samples& samples = m_samples[slot];
    wanted = visit({samples.count, samples.bandColumns, samples.detailColumns, samples.columns.back().data()});
    return wanted;
  };
  return platform::LoadInTurn(m_readAhead, m_tiles.Count(), collect, use) || !wanted;
}

const std::vector<double>* BayesianSamples::Averages(int tile) {
  constexpr std::size_t kMostKept = std::size_t{1} << 23;
  std::vector<double>& kept = m_kept[static_cast<std::size_t>(tile)];
  if (!kept.empty()) return &kept;
  if (!m_pan.Load(m_tiles.Block(tile % m_tiles.Across(), tile / m_tiles.Across()))) return nullptr;
  const std::vector<double>& values = m_pan.Values();
  if (m_keptCount + values.size() <= kMostKept) {
    kept = values;
    m_keptCount += values.size();
  }
  return &values;
}

bool BayesianSamples::Collect(int index, Samples& samples) {
  samples.count = 0;
  const std::vector<double>* averages = Averages(index);
  if (!averages) return false;
  if (std::none_of(averages->begin(), averages->end(), [](double v) { return std::isfinite(v); })) return true;
  const CRect tile = m_tiles.Block(index % m_tiles.Across(), index / m_tiles.Across());

  const CRect read(std::max(tile.left - 1, 0), std::max(tile.top - 1, 0), std::min(tile.right + 1, m_tiles.width),
                   std::min(tile.bottom + 1, m_tiles.height));
  for (std::size_t b = 0; b < m_bands.size(); ++b) {
    if (!m_buffers.Read(b, m_bands[b], read)) return false;
    // A NaN spreads to the means of all neighbours, which leaves out what has to be left out.
    platform::MarkInvalid(m_buffers[b], read.Area(), m_noData[b]);
  }
  for (int row = tile.top; row < tile.bottom; ++row) CollectRow(tile, averages->data(), read, row, samples);
  return true;
}

void BayesianSamples::CollectRow(const CRect& tile, const double* averages, const CRect& read, int row,
                                 Samples& samples) {
  const int width = tile.Width();
  const auto rowOf = [&](std::size_t b, int y) {
    return m_buffers[b] +
           static_cast<std::ptrdiff_t>(std::clamp(y, read.top, read.bottom - 1) - read.top) * read.Width();
  };
  const double* pan = averages + static_cast<std::ptrdiff_t>(row - tile.top) * width;
  std::copy_n(pan, width, samples.columns.back().data() + samples.count);
  std::transform(pan, pan + width, m_valid.begin(), [](double v) { return std::isfinite(v) ? 1 : 0; });

  const int before = tile.left - read.left;  // 1, or 0 at the image's left edge, where the edge sample is repeated
  for (std::size_t b = 0; b < m_bands.size(); ++b) {
    SumRows(rowOf(b, row - 1), rowOf(b, row), rowOf(b, row + 1), read.Width(), m_sums.data() + 1 - before);
    if (before == 0) m_sums[0] = m_sums[1];
    const auto last = static_cast<std::size_t>(width) + 1;
    if (read.right == tile.right) m_sums[last] = m_sums[last - 1];
    const double* values = rowOf(b, row) + before;
    std::copy_n(values, width, samples.columns[b].data() + samples.count);
    DetailRow(values, m_sums.data(), width, samples.columns[m_bands.size() + b].data() + samples.count, m_valid.data());
  }
  DropInvalid(width, samples);
}

/// Closes the gaps that invalid ones leave among the last samples collected.
void BayesianSamples::DropInvalid(int count, Samples& samples) const {
  std::int64_t kept = samples.count;
  for (std::int64_t i = 0; i < count; ++i) {
    if (!m_valid[static_cast<std::size_t>(i)]) continue;
    const auto from = static_cast<std::size_t>(samples.count + i);
    const auto to = static_cast<std::size_t>(kept++);
    if (from != to) {
      for (auto& column : samples.columns) column[to] = column[from];
    }
  }
  samples.count = kept;
}

}  // namespace fusion
