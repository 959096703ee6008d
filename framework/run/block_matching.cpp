#include "framework/run/block_matching.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "framework/run/block_buffers.h"
#include "platform/algorithm/stored_row.h"
#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_source.h"

namespace fusion {
namespace {

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

void TakeRoots(double* values, int n) {
  for (int i = 0; i < n; ++i) values[i] = std::copysign(std::sqrt(std::fabs(values[i])), values[i]);
}

platform::MomentMatching Matching(const MatchTargets& targets) {
  using platform::GreenMix;
  std::vector<platform::MomentMatching::Band> bands;
  for (std::size_t b = 0; b < targets.means.size(); ++b) bands.push_back({kNone, targets.means[b], targets.stdDevs[b]});
  std::optional<GreenMix> mix;
  if (targets.makeGreen && bands.size() > GreenMix::kNearInfrared) mix = GreenMix(kNone, kNone);
  return platform::MomentMatching(std::move(bands), mix, targets.robust);
}

PixelDataType LevelledTypeOf(const LevelTargets& level, PixelDataType outType) {
  return level.type == PDT_UNKNOWN ? outType : level.type;
}

PixelDataType FusedTypeOf(const std::optional<MatchTargets>& match, const std::optional<LevelTargets>& level,
                          PixelDataType outType) {
  if (!match) return LevelledTypeOf(*level, outType);
  return match->fusedType == PDT_UNKNOWN ? TypeToMatch(outType) : match->fusedType;
}

}  // namespace

PixelDataType TypeToMatch(PixelDataType outType) {
  return outType == PDT_UINT32 || outType == PDT_INT32 || outType == PDT_FLOAT64 ? PDT_FLOAT64 : PDT_FLOAT32;
}

BlockMatching::BlockMatching(const std::optional<MatchTargets>& match, const std::optional<LevelTargets>& level,
                             int bandCount, PixelDataType outType, bool masked, platform::Workers* workers)
    : m_outType(outType),
      m_fusedType(FusedTypeOf(match, level, outType)),
      m_masked(masked),
      m_targets(match),
      m_store(outType, platform::ValueConversion::FullRange(outType), true, masked),
      m_bandCount(static_cast<std::size_t>(bandCount)),
      m_workers(workers),
      m_pixels(m_bandCount) {
  if (match) {
    m_matching = Matching(*match);
    m_countsToCome = 1;
  }
  if (!level) return;
  const PixelDataType type = LevelledTypeOf(*level, outType);
  if (match) m_between.emplace(type, true, masked);
  m_levels.assign(m_bandCount, platform::BandLevel(type, kNone, level->ratio));
  m_countsToCome += m_levels.front().PassCount();
}

MatchOutliers BlockMatching::Outliers() const {
  if (!m_matching) return {};
  return {m_matching->Outliers(), m_matching->Counted(), m_matching->Widening()};
}

bool BlockMatching::EndCounting(std::int64_t enough) {
  if (m_matching && !m_matches) {
    m_matching->EndCounting();
    if (m_matching->Fewest() < enough) {
      m_matching = Matching(*m_targets);
      return false;
    }
    m_matches = true;
  } else {
    for (platform::BandLevel& level : m_levels) level.EndPass();
  }
  --m_countsToCome;
  return true;
}

void BlockMatching::Count(void* const* bands, const CRect& rect, const std::vector<unsigned char>& inside,
                          const platform::SurveyPass& pass, std::int64_t piece) {
  const unsigned char* marks = inside.empty() ? nullptr : inside.data();
  if (CountsMoments()) {
    platform::MomentMatching::Part part = MomentsOf(bands, rect, marks);
    pass.Take(piece, part, [this](const platform::MomentMatching::Part& whole) { m_matching->Add(whole); });
    return;
  }
  LevelParts parts = LevelsOf(bands, rect, marks);
  pass.Take(piece, parts, [this](const LevelParts& whole) { AddLevels(whole, m_levels); });
}

bool BlockMatching::End(const platform::SurveyPass& pass) {
  if (CountsMoments()) {
    return pass.End<platform::MomentMatching::Part>(
        [this](const platform::MomentMatching::Part& part) { m_matching->Add(part); });
  }
  return pass.End<LevelParts>([this](const LevelParts& parts) { AddLevels(parts, m_levels); });
}

void BlockMatching::AddLevels(const LevelParts& parts, std::vector<platform::BandLevel>& levels) {
  platform::CheckSurveyed(parts.size() == levels.size());
  for (std::size_t b = 0; b < parts.size(); ++b) levels[b].Add(parts[b]);
}

std::vector<platform::BandLevel> BlockMatching::EmptyLevels() const {
  std::vector<platform::BandLevel> levels = m_levels;
  for (platform::BandLevel& level : levels) level.Forget();
  return levels;
}

BlockMatching::Rows BlockMatching::MakeRows(int width) const {
  Rows rows{std::vector<std::vector<double>>(m_bandCount, std::vector<double>(static_cast<std::size_t>(width))),
            {},
            {},
            m_store,
            m_between};
  for (auto& values : rows.values) rows.pointers.push_back(values.data());
  return rows;
}

void BlockMatching::LoadRow(void* const* bands, std::ptrdiff_t at, int width, Rows& rows) const {
  for (std::size_t b = 0; b < m_bandCount; ++b) {
    double* row = rows.pointers[b];
    if (!bands[b]) {
      std::fill_n(row, width, kNone);
      continue;
    }
    const auto* pixels = static_cast<const unsigned char*>(bands[b]) + at * platform::PixelSize(m_fusedType);
    platform::LoadRow(m_fusedType, pixels, m_masked, row, width);
    if (m_targets && m_targets->root) TakeRoots(row, width);
  }
}

void BlockMatching::MatchRow(Rows& rows, const unsigned char* inside, int width) const {
  if (!m_matching) return;
  m_matching->Apply(rows.pointers.data(), width, rows.pointers.data(), rows.room);
  for (std::size_t b = 0; rows.between && b < m_bandCount; ++b) rows.between->Pass(rows.pointers[b], inside, width);
}

platform::MomentMatching::Part BlockMatching::MomentsOf(void* const* bands, const CRect& rect,
                                                        const unsigned char* inside) const {
  const int width = rect.Width();
  platform::MomentMatching::Part whole;
  const BlockGrid pieces = PiecesOf(rect);
  platform::FoldInOrder(
      m_workers, pieces.Count(), [&] { return MakeRows(width); },
      [&](Rows& rows, int i) {
        platform::MomentMatching::Part part;
        const CRect piece = pieces.Block(0, i);
        for (int row = piece.top; row < piece.bottom; ++row) {
          const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(row) * width;
          LoadRow(bands, at, width, rows);
          m_matching->Reduce(rows.pointers.data(), inside ? inside + at : nullptr, width, rows.room, part);
        }
        return part;
      },
      [&](const platform::MomentMatching::Part& part) { whole.Append(part); });
  return whole;
}

BlockMatching::LevelParts BlockMatching::LevelsOf(void* const* bands, const CRect& rect,
                                                  const unsigned char* inside) const {
  struct Share {
    Rows rows;
    std::vector<platform::BandLevel> levels;
  };
  const int width = rect.Width();
  // One share of the rows for each thread, since what a share counts in is large; whole numbers add up to the same.
  const int shares = std::clamp(m_workers ? m_workers->Count() : 1, 1, std::max(rect.Height(), 1));
  std::vector<LevelParts> found;
  const auto take = [](std::vector<platform::BandLevel>& from) {
    LevelParts parts;
    for (platform::BandLevel& level : from) parts.push_back(level.TakePart());
    return parts;
  };
  platform::FoldInOrder(
      m_workers, shares,
      [&] {
        return Share{MakeRows(width), EmptyLevels()};
      },
      [&](Share& share, int i) {
        const int end = static_cast<int>(std::int64_t{rect.Height()} * (i + 1) / shares);
        for (auto row = static_cast<int>(std::int64_t{rect.Height()} * i / shares); row < end; ++row) {
          const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(row) * width;
          LoadRow(bands, at, width, share.rows);
          const unsigned char* marks = inside ? inside + at : nullptr;
          MatchRow(share.rows, marks, width);
          for (std::size_t b = 0; b < m_bandCount; ++b) share.levels[b].Count(share.rows.pointers[b], marks, width);
        }
        return take(share.levels);
      },
      [&](const LevelParts& parts) { found.push_back(parts); });
  if (shares == 1) return found.front();
  std::vector<platform::BandLevel> levels = EmptyLevels();
  for (const LevelParts& parts : found) AddLevels(parts, levels);
  return take(levels);
}

bool BlockMatching::Write(void* const* bands, const CRect& rect, const std::vector<unsigned char>& inside,
                          CRasterSource& output) {
  const int width = rect.Width();
  const std::size_t rowBytes =
      static_cast<std::size_t>(platform::PixelSize(m_outType)) * static_cast<std::size_t>(width);
  // A few rows at a time, which are still in the processor's cache when they are written: whole blocks of the file.
  constexpr int kRows = 32;
  const int fileBlock = std::max(output.GetBlockYSize(), 1);
  const int step = (kRows + fileBlock - 1) / fileBlock * fileBlock;
  for (auto& pixels : m_pixels) pixels.resize(rowBytes * static_cast<std::size_t>(step));
  const auto makeRows = [&] { return MakeRows(width); };
  platform::SpareStates spare(m_workers, makeRows);
  for (int first = 0; first < rect.Height(); first += step) {
    const int count = std::min(step, rect.Height() - first);
    platform::ForEachWith(
        m_workers, count, [&] { return spare.Take(); },
        [&](auto& taken, int row) {
          Rows& rows = *taken;
          const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(first + row) * width;
          LoadRow(bands, at, width, rows);
          const unsigned char* marks = inside.empty() ? nullptr : inside.data() + at;
          MatchRow(rows, marks, width);
          for (std::size_t b = 0; b < m_bandCount; ++b) {
            if (!m_levels.empty()) m_levels[b].Apply(rows.pointers[b], width, m_outType, rows.pointers[b]);
            rows.store.Store(rows.pointers[b], marks, width,
                             m_pixels[b].data() + static_cast<std::size_t>(row) * rowBytes);
          }
        });
    for (std::size_t b = 0; b < m_bandCount; ++b) {
      CRasterBand* band = output.GetRasterBand(static_cast<int>(b));
      if (!band || band->WriteBlock(rect.left, rect.top + first, width, count, m_pixels[b].data(), width, count,
                                    m_outType) != 0) {
        return false;
      }
    }
  }
  return true;
}

}  // namespace fusion
