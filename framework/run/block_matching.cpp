#include "framework/run/block_matching.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

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
                             int bandCount, PixelDataType outType, bool masked)
    : m_outType(outType),
      m_fusedType(FusedTypeOf(match, level, outType)),
      m_masked(masked),
      m_root(match && match->root),
      m_store(outType, platform::ValueConversion::FullRange(outType), true, masked),
      m_rows(static_cast<std::size_t>(bandCount)),
      m_pointers(m_rows.size()),
      m_pixels(m_rows.size()) {
  if (match) {
    m_matching = Matching(*match);
    m_countsToCome = 1;
  }
  if (!level) return;
  const PixelDataType type = LevelledTypeOf(*level, outType);
  if (match) m_between.emplace(type, true, masked);
  m_levels.assign(m_rows.size(), platform::BandLevel(type, kNone, level->ratio));
  m_countsToCome += m_levels.front().PassCount();
}

MatchOutliers BlockMatching::Outliers() const {
  return m_matching ? MatchOutliers{m_matching->Outliers(), m_matching->Widening()} : MatchOutliers{};
}

void BlockMatching::EndCounting() {
  --m_countsToCome;
  if (m_matching && !m_matches) {
    m_matching->EndCounting();
    m_matches = true;
    return;
  }
  for (platform::BandLevel& level : m_levels) level.EndPass();
}

bool BlockMatching::Take(void* const* bands, const CRect& rect, const std::vector<unsigned char>& inside,
                         CRasterSource& output) {
  const unsigned char* marks = inside.empty() ? nullptr : inside.data();
  if (!IsCounting()) return Write(bands, rect, marks, output);
  Count(bands, rect, marks);
  return true;
}

void BlockMatching::LoadRow(void* const* bands, std::ptrdiff_t at, int width) {
  for (std::size_t b = 0; b < m_rows.size(); ++b) {
    m_rows[b].resize(static_cast<std::size_t>(width));
    m_pointers[b] = m_rows[b].data();
    if (!bands[b]) {
      std::fill_n(m_pointers[b], width, kNone);
      continue;
    }
    const auto* pixels = static_cast<const unsigned char*>(bands[b]) + at * platform::PixelSize(m_fusedType);
    platform::LoadRow(m_fusedType, pixels, m_masked, m_pointers[b], width);
    if (m_root) TakeRoots(m_pointers[b], width);
  }
}

void BlockMatching::MatchRow(const unsigned char* inside, int width) {
  if (!m_matching) return;
  m_matching->Apply(m_pointers.data(), width, m_pointers.data());
  for (std::size_t b = 0; m_between && b < m_rows.size(); ++b) m_between->Pass(m_pointers[b], inside, width);
}

void BlockMatching::Count(void* const* bands, const CRect& rect, const unsigned char* inside) {
  const int width = rect.Width();
  for (int row = 0; row < rect.Height(); ++row) {
    const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(row) * width;
    LoadRow(bands, at, width);
    const unsigned char* marks = inside ? inside + at : nullptr;
    if (m_matching && !m_matches) {
      m_matching->Count(m_pointers.data(), marks, width);
      continue;
    }
    MatchRow(marks, width);
    for (std::size_t b = 0; b < m_levels.size(); ++b) m_levels[b].Count(m_pointers[b], marks, width);
  }
}

bool BlockMatching::Write(void* const* bands, const CRect& rect, const unsigned char* inside, CRasterSource& output) {
  const int width = rect.Width();
  const std::size_t rowBytes =
      static_cast<std::size_t>(platform::PixelSize(m_outType)) * static_cast<std::size_t>(width);
  // A few rows at a time, which are still in the processor's cache when they are written: whole blocks of the file.
  constexpr int kRows = 32;
  const int fileBlock = std::max(output.GetBlockYSize(), 1);
  const int step = (kRows + fileBlock - 1) / fileBlock * fileBlock;
  for (auto& pixels : m_pixels) pixels.resize(rowBytes * static_cast<std::size_t>(step));
  for (int first = 0; first < rect.Height(); first += step) {
    const int count = std::min(step, rect.Height() - first);
    for (int row = 0; row < count; ++row) {
      const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(first + row) * width;
      LoadRow(bands, at, width);
      const unsigned char* marks = inside ? inside + at : nullptr;
      MatchRow(marks, width);
      for (std::size_t b = 0; b < m_rows.size(); ++b) {
        if (!m_levels.empty()) m_levels[b].Apply(m_pointers[b], width, m_outType, m_pointers[b]);
        m_store.Store(m_pointers[b], marks, width, m_pixels[b].data() + static_cast<std::size_t>(row) * rowBytes);
      }
    }
    for (std::size_t b = 0; b < m_rows.size(); ++b) {
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
