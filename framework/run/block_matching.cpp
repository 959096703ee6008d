#include "framework/run/block_matching.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_algorithm.h"
#include "platform/raster/raster_source.h"
#include "platform/system/multiversion.h"
#include "platform/validity/sample_mask.h"

namespace fusion {
namespace {

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

FUSION_MULTIVERSION void Widen(const float* values, int n, double* out) {
  for (int i = 0; i < n; ++i) out[i] = values[i];
}

void TakeRoots(double* values, int n) {
  for (int i = 0; i < n; ++i) values[i] = std::copysign(std::sqrt(std::fabs(values[i])), values[i]);
}

platform::ValueConversion FullRange(PixelDataType type) {
  platform::ValueConversion conversion;
  CRasterAlgorithm::GetMaxMinVal(type, conversion.m_dOutMax, conversion.m_dOutMin);
  return conversion;
}

platform::MomentMatching Matching(const MatchTargets& targets) {
  using platform::GreenMix;
  std::vector<platform::MomentMatching::Band> bands;
  for (std::size_t b = 0; b < targets.means.size(); ++b) bands.push_back({kNone, targets.means[b], targets.stdDevs[b]});
  std::optional<GreenMix> mix;
  if (targets.makeGreen && bands.size() > GreenMix::kNearInfrared) mix = GreenMix(kNone, kNone);
  return platform::MomentMatching(std::move(bands), mix, targets.robust);
}

}  // namespace

PixelDataType TypeToMatch(PixelDataType outType) {
  return outType == PDT_UINT32 || outType == PDT_INT32 || outType == PDT_FLOAT64 ? PDT_FLOAT64 : PDT_FLOAT32;
}

BlockMatching::BlockMatching(const MatchTargets& targets, PixelDataType outType, bool masked)
    : m_outType(outType),
      m_fusedType(TypeToMatch(outType)),
      m_masked(masked),
      m_root(targets.root),
      m_matching(Matching(targets)),
      m_store(outType, FullRange(outType), true, masked),
      m_rows(targets.means.size()),
      m_pointers(targets.means.size()),
      m_pixels(targets.means.size()) {}

void BlockMatching::EndCounting() {
  m_matching.EndCounting();
  m_counted = true;
}

bool BlockMatching::Take(void* const* bands, const CRect& rect, const std::vector<unsigned char>& inside,
                         CRasterSource& output) {
  const unsigned char* marks = inside.empty() ? nullptr : inside.data();
  if (m_counted) return Write(bands, rect, marks, output);
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
    if (m_fusedType == PDT_FLOAT64) {
      std::copy_n(static_cast<const double*>(bands[b]) + at, width, m_pointers[b]);
    } else {
      Widen(static_cast<const float*>(bands[b]) + at, width, m_pointers[b]);
    }
    if (m_masked) platform::ClearNoData(0.0, m_pointers[b], width);
    if (m_root) TakeRoots(m_pointers[b], width);
  }
}

void BlockMatching::Count(void* const* bands, const CRect& rect, const unsigned char* inside) {
  const int width = rect.Width();
  for (int row = 0; row < rect.Height(); ++row) {
    const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(row) * width;
    LoadRow(bands, at, width);
    m_matching.Count(m_pointers.data(), inside ? inside + at : nullptr, width);
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
      m_matching.Apply(m_pointers.data(), width, m_pointers.data());
      for (std::size_t b = 0; b < m_rows.size(); ++b) {
        m_store.Store(m_pointers[b], inside ? inside + at : nullptr, width,
                      m_pixels[b].data() + static_cast<std::size_t>(row) * rowBytes);
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
