#include "platform/processing/moment_matching.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/statistics/survey.h"
#include "platform/system/multiversion.h"
#include "platform/validity/no_data.h"

namespace platform {
namespace {

FUSION_MULTIVERSION(void, StretchRow, (const double* values, double* out, int width, MomentMatching::Band band),
                    (values, out, width, band)) {
  for (int i = 0; i < width; ++i) {
    const double v = values[i];
    const double stretched = (v - band.mean) / band.stdDev * band.targetStdDev + band.targetMean;
    out[i] = IsValidSample(v, band.noData) ? stretched : v;
  }
}

void FlattenRow(const double* values, double* out, int width, const MomentMatching::Band& band) {
  for (int i = 0; i < width; ++i) out[i] = IsValidSample(values[i], band.noData) ? band.targetMean : values[i];
}

}  // namespace

MomentMatching::MomentMatching(std::vector<Band> bands, std::optional<GreenMix> mix, bool robust)
    : m_bands(std::move(bands)), m_mix(mix) {
  for (const Band& band : m_bands) {
    if (robust) {
      m_robust.emplace_back(band.noData);
    } else {
      m_statistics.emplace_back(band.noData);
    }
  }
}

const double* const* MomentMatching::Mix(const double* const* rows, int width, Room& room) const {
  if (!m_mix) return rows;
  room.rows.assign(rows, rows + m_bands.size());
  room.mixedGreen.resize(static_cast<std::size_t>(width));
  const std::size_t nearInfrared = std::min<std::size_t>(GreenMix::kNearInfrared, m_bands.size());
  m_mix->Apply(rows[GreenMix::kGreen], rows[nearInfrared], room.mixedGreen.data(), width);
  room.rows[GreenMix::kGreen] = room.mixedGreen.data();
  return room.rows.data();
}

template <typename Take>
void MomentMatching::ForCounted(const double* const* rows, const unsigned char* inside, int width, Room& room,
                                const Take& take) const {
  rows = Mix(rows, width, room);
  for (std::size_t b = 0; b < m_bands.size(); ++b) {
    const double* values = rows[b];
    if (inside) {
      room.counted.assign(values, values + width);
      for (std::size_t x = 0; x < room.counted.size(); ++x) {
        if (!inside[x]) room.counted[x] = std::numeric_limits<double>::quiet_NaN();
      }
      values = room.counted.data();
    }
    take(values, b);
  }
}

void MomentMatching::Reduce(const double* const* rows, const unsigned char* inside, int width, Room& room,
                            Part& part) const {
  part.pieces.resize(m_statistics.size());
  part.robust.resize(m_robust.size());
  ForCounted(rows, inside, width, room, [&](const double* values, std::size_t b) {
    if (m_statistics.empty()) {
      m_robust[b].Reduce(values, width, part.robust[b]);
    } else {
      m_statistics[b].Reduce(values, width, part.pieces[b]);
    }
  });
}

void MomentMatching::Part::Append(const Part& next) {
  pieces.resize(next.pieces.size());
  robust.resize(next.robust.size());
  for (std::size_t b = 0; b < pieces.size(); ++b) {
    pieces[b].insert(pieces[b].end(), next.pieces[b].begin(), next.pieces[b].end());
  }
  for (std::size_t b = 0; b < robust.size(); ++b) robust[b].Append(next.robust[b]);
}

void MomentMatching::Add(const Part& part) {
  CheckSurveyed(part.pieces.size() <= m_statistics.size() && part.robust.size() <= m_robust.size());
  for (std::size_t b = 0; b < part.pieces.size(); ++b) m_statistics[b].Add(part.pieces[b]);
  for (std::size_t b = 0; b < part.robust.size(); ++b) m_robust[b].Add(part.robust[b]);
}

void MomentMatching::EndCounting() {
  const auto note = [this](std::int64_t count) {
    m_fewest = std::min(m_fewest, count);
    m_counted += count;
  };
  for (std::size_t b = 0; b < m_statistics.size(); ++b) {
    note(m_statistics[b].Count());
    m_bands[b].mean = m_statistics[b].Mean();
    m_bands[b].stdDev = m_statistics[b].StdDev();
  }
  for (std::size_t b = 0; b < m_robust.size(); ++b) {
    note(m_robust[b].Count());
    m_robust[b].Settle();
    m_bands[b].mean = m_robust[b].Mean();
    m_bands[b].stdDev = m_robust[b].StdDev();
    m_outliers += m_robust[b].Outliers();
    m_widening = std::max(m_widening, m_robust[b].Widening());
  }
  m_robust.clear();
}

void MomentMatching::Apply(const double* const* rows, int width, double* const* out, Room& room) const {
  rows = Mix(rows, width, room);
  constexpr double kNoSpread = 1e-8;
  for (std::size_t b = 0; b < m_bands.size(); ++b) {
    if (m_bands[b].stdDev < kNoSpread) {
      FlattenRow(rows[b], out[b], width, m_bands[b]);
    } else {
      StretchRow(rows[b], out[b], width, m_bands[b]);
    }
  }
}

}  // namespace platform
