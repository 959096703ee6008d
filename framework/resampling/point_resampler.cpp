#include "framework/resampling/point_resampler.h"

#include <algorithm>

#include "framework/resampling/kernels.h"
#include "framework/resampling/resample_point.h"

namespace fusion {
namespace {

/// Where ResamplePoint uses the kernel itself and all its taps lie inside the rectangle, but for some positions at the
/// rectangle's edges. No position at all for an unknown type, or where linear indices would not fit.
PositionBox InnerPositions(ResampleType type, const CRect& rect) {
  PositionBox box;
  if (rect.Area() > INT32_MAX) return box;
  VisitKernel(type, [&]<typename Kernel>(Kernel) {
    constexpr double kBefore = Kernel::kBefore;
    constexpr double kBehind = Kernel::kBehind;
    box = {std::max(rect.left + kBefore, 0.0), std::max(rect.top + kBefore, 0.0), rect.right - kBehind,
           rect.bottom - kBehind};
  });
  return box;
}

}  // namespace

PointResampler::PointResampler(ResampleType type, const double* const* bands, int bandCount, const CRect& rect)
    : m_type(type),
      m_bands(bands, bands + bandCount),
      m_rect(rect),
      m_inner(InnerPositions(type, rect)),
      m_point(static_cast<std::size_t>(bandCount)),
      m_out(static_cast<std::size_t>(bandCount)) {}

template <typename Kernel>
void PointResampler::ResampleInner(int n, double* const* out) {
  constexpr std::size_t kAtOnce = Kernel::kBandsAtOnce;
  Kernel::PlacePoints(m_x.data(), m_y.data(), n, m_rect, m_taps);
  if (kAtOnce > 1 && m_groups.empty()) InterleaveBands(kAtOnce);
  for (std::size_t band = 0; band < m_bands.size(); band += kAtOnce) {
    const double* samples = kAtOnce > 1 ? m_groups[band / kAtOnce].data() : m_bands[band];
    double* rows[kAtOnce];
    for (std::size_t b = 0; b < kAtOnce; ++b) rows[b] = band + b < m_bands.size() ? out[band + b] : m_unused.data();
    Kernel::CombinePoints(samples, m_rect, m_taps, n, rows);
  }
}

void PointResampler::InterleaveBands(int bandsAtOnce) {
  const auto pixels = static_cast<std::size_t>(m_rect.Area());
  const auto step = static_cast<std::size_t>(bandsAtOnce);
  for (std::size_t band = 0; band < m_bands.size(); ++band) {
    const std::size_t place = band % step;
    if (place == 0) m_groups.emplace_back(pixels * step, 0.0);
    double* to = m_groups.back().data() + place;
    for (std::size_t i = 0; i < pixels; ++i) to[i * step] = m_bands[band][i];
  }
}

void PointResampler::Resample(const double* x, const double* y, int count, double* const* out) {
  for (int first = 0; first < count; first += kPassPiece) {
    const int n = std::min(kPassPiece, count - first);
    const int inner = KeepInside(m_inner, x + first, y + first, n, m_x.data(), m_y.data(), m_isInner.data());
    for (std::size_t b = 0; b < m_bands.size(); ++b) m_out[b] = out[b] + first;
    if (inner > 0) {
      VisitKernel(m_type, [&]<typename Kernel>(Kernel) { ResampleInner<Kernel>(n, m_out.data()); });
    }
    if (inner == n) continue;
    for (int i = 0; i < n; ++i) {
      if (m_isInner[static_cast<std::size_t>(i)]) continue;
      std::fill(m_point.begin(), m_point.end(), 0.0);
      ResamplePoint(m_type, x[first + i], y[first + i], m_bands.data(), static_cast<int>(m_bands.size()), m_rect,
                    m_point.data());
      for (std::size_t b = 0; b < m_point.size(); ++b) m_out[b][i] = m_point[b];
    }
  }
}

}  // namespace fusion
