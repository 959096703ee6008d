#include "highpass/bayesian_samples.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "platform/raster/no_data.h"

namespace fusion {
namespace {

/// Tiles small enough that the pan pixels below one fit into bounded memory whatever the ratio.
BlockGrid Tiles(const CRasterSource& ms, double ratio) {
  constexpr double kPanPixels = 1 << 22;
  const double pixels = std::max(kPanPixels / (std::max(ratio, 1.0) * std::max(ratio, 1.0)), 1.0);
  const double width = std::min({pixels, 1024.0, static_cast<double>(ms.GetWidth())});
  const double height = std::clamp(pixels / width, 1.0, 64.0);
  return {ms.GetWidth(), ms.GetHeight(), static_cast<int>(width), static_cast<int>(height)};
}

}  // namespace

BayesianSamples::BayesianSamples(const CRasterSource& ms, std::vector<CRasterBand*> bands, PanAverage& pan)
    : m_bands(std::move(bands)),
      m_pan(pan),
      m_tiles(Tiles(ms, pan.Ratio())),
      m_buffers(m_bands.size(), 0),
      m_columns(2 * m_bands.size() + 1),
      m_bandColumns(m_bands.size()),
      m_detailColumns(m_bands.size()) {
  for (const CRasterBand* band : m_bands) m_noData.push_back(platform::NoDataSample(*band));
  const auto size = static_cast<std::size_t>(m_tiles.blockWidth) * static_cast<std::size_t>(m_tiles.blockHeight);
  for (auto& column : m_columns) column.resize(size);
  for (std::size_t b = 0; b < m_bands.size(); ++b) {
    m_bandColumns[b] = m_columns[b].data();
    m_detailColumns[b] = m_columns[m_bands.size() + b].data();
  }
}

bool BayesianSamples::ForEachTile(const std::function<bool(const BayesianBatch&)>& visit) {
  bool read = true;
  m_tiles.ForEach([&](const CRect& tile) {
    read = Collect(tile);
    return read && visit({m_count, m_bandColumns, m_detailColumns, m_columns.back().data()});
  });
  return read;
}

bool BayesianSamples::Collect(const CRect& tile) {
  m_count = 0;
  if (!m_pan.Load(tile)) return false;
  const auto& pan = m_pan.Values();
  if (std::none_of(pan.begin(), pan.end(), [](double v) { return std::isfinite(v); })) return true;

  const CRect read(std::max(tile.left - 1, 0), std::max(tile.top - 1, 0), std::min(tile.right + 1, m_tiles.width),
                   std::min(tile.bottom + 1, m_tiles.height));
  for (std::size_t b = 0; b < m_bands.size(); ++b) {
    if (!m_buffers.Read(b, m_bands[b], read)) return false;
    double* values = m_buffers[b];
    // A NaN spreads to the means of all neighbours, which leaves out what has to be left out.
    for (std::int64_t i = 0; i < read.Area(); ++i) {
      const bool valid = platform::IsValidSample(values[i], m_noData[b]) && std::isfinite(values[i]);
      if (!valid) values[i] = std::numeric_limits<double>::quiet_NaN();
    }
  }
  for (int row = tile.top; row < tile.bottom; ++row) CollectRow(tile, read, row);
  return true;
}

void BayesianSamples::CollectRow(const CRect& tile, const CRect& read, int row) {
  const auto rowOf = [&](std::size_t b, int y) {
    const int inside = std::clamp(y, read.top, read.bottom - 1);
    return m_buffers[b] + static_cast<std::ptrdiff_t>(inside - read.top) * read.Width() - read.left;
  };
  const double* pan = m_pan.Values().data() + static_cast<std::ptrdiff_t>(row - tile.top) * tile.Width() - tile.left;
  const std::size_t n = m_bands.size();
  for (int x = tile.left; x < tile.right; ++x) {
    const auto at = static_cast<std::size_t>(m_count);
    const int left = std::max(x - 1, read.left);
    const int right = std::min(x + 1, read.right - 1);
    bool valid = std::isfinite(pan[x]);
    for (std::size_t b = 0; b < n && valid; ++b) {
      double sum = 0.0;
      for (int y = row - 1; y <= row + 1; ++y) {
        const double* values = rowOf(b, y);
        sum += values[left] + values[x] + values[right];
      }
      const double value = rowOf(b, row)[x];
      m_columns[b][at] = value;
      m_columns[n + b][at] = value - sum / 9.0;
      valid = !std::isnan(sum);
    }
    if (!valid) continue;
    m_columns.back()[at] = pan[x];
    ++m_count;
  }
}

}  // namespace fusion
