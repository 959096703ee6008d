#include "framework/point_resampler.h"

#include <algorithm>

namespace fusion {
namespace {

/// Where ResamplePoint uses the kernel itself and all its taps lie inside the rectangle, but for some positions at the
/// rectangle's edges. No position at all for an unknown type, or where linear indices would not fit.
PositionBox InnerPositions(ResampleType type, const CRect& rect) {
  if (rect.Area() > INT32_MAX) return {};
  const double left = std::max(rect.left, 0);
  const double top = std::max(rect.top, 0);
  switch (type) {
    case RT_NEAREST:
      return {left, top, rect.right - 1.0, rect.bottom - 1.0};
    case RT_BILINEAR:
      return {left, top, rect.right - 2.0, rect.bottom - 2.0};
    case RT_BICUBIC:
      return {left + 1.0, top + 1.0, rect.right - 2.0, rect.bottom - 2.0};
    default:
      return {};
  }
}

}  // namespace

PointResampler::PointResampler(ResampleType type, const double* const* bands, int bandCount, const CRect& rect)
    : m_type(type),
      m_bands(bands, bands + bandCount),
      m_rect(rect),
      m_stride(static_cast<std::int64_t>(rect.right) - rect.left),
      m_inner(InnerPositions(type, rect)),
      m_point(static_cast<std::size_t>(bandCount)),
      m_out(static_cast<std::size_t>(bandCount)) {}

void PointResampler::ResampleNearest(int n, double* const* out) {
  for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
    const std::int64_t column = MakeNearestTap(m_x[i], m_rect.left, m_rect.Width()).index;
    const std::int64_t row = MakeNearestTap(m_y[i], m_rect.top, m_rect.Height()).index;
    m_taps[0][i] = static_cast<std::int32_t>(row * m_stride + column);
  }
  for (std::size_t b = 0; b < m_bands.size(); ++b) PickNearest(m_bands[b], m_taps[0].data(), n, out[b]);
}

void PointResampler::ResampleLinear(int n, double* const* out) {
  for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
    const LinearTaps c = MakeLinearTaps(m_x[i], m_rect.left);
    const LinearTaps r = MakeLinearTaps(m_y[i], m_rect.top);
    m_taps[0][i] = static_cast<std::int32_t>(r.first * m_stride + c.first);
    m_taps[1][i] = static_cast<std::int32_t>(r.first * m_stride + c.second);
    m_taps[2][i] = static_cast<std::int32_t>(r.second * m_stride + c.first);
    m_taps[3][i] = static_cast<std::int32_t>(r.second * m_stride + c.second);
    m_columnWeights[0][i] = c.toFirst;
    m_columnWeights[1][i] = c.toSecond;
    m_rowWeights[0][i] = r.toFirst;
    m_rowWeights[1][i] = r.toSecond;
  }
  const std::int32_t* const taps[] = {m_taps[0].data(), m_taps[1].data(), m_taps[2].data(), m_taps[3].data()};
  const double* const columns[] = {m_columnWeights[0].data(), m_columnWeights[1].data()};
  const double* const rows[] = {m_rowWeights[0].data(), m_rowWeights[1].data()};
  ForGroups(out, [&](const double* samples, double* const* group) {
    CombineLinearPoints(samples, taps, columns, rows, n, group);
  });
}

void PointResampler::ResampleCubic(int n, double* const* out) {
  double* const columns[] = {m_columnWeights[0].data(), m_columnWeights[1].data(), m_columnWeights[2].data(),
                             m_columnWeights[3].data()};
  double* const rows[] = {m_rowWeights[0].data(), m_rowWeights[1].data(), m_rowWeights[2].data(),
                          m_rowWeights[3].data()};
  PlaceCubic(m_x.data(), m_y.data(), n, m_rect, m_taps[0].data(), columns, rows);
  ForGroups(out, [&](const double* samples, double* const* group) {
    CombineCubicPoints(samples, m_stride, m_taps[0].data(), columns, rows, n, group);
  });
}

template <typename Work>
void PointResampler::ForGroups(double* const* out, const Work& work) {
  if (m_groups.empty()) InterleaveBands();
  for (std::size_t g = 0; g < m_groups.size(); ++g) {
    const std::size_t band = g * kBandGroup;
    double* group[kBandGroup];
    for (std::size_t b = 0; b < kBandGroup; ++b) {
      group[b] = band + b < m_bands.size() ? out[band + b] : m_unused.data();
    }
    work(m_groups[g].data(), group);
  }
}

void PointResampler::InterleaveBands() {
  const auto samples = static_cast<std::size_t>(m_rect.Area());
  for (std::size_t band = 0; band < m_bands.size(); ++band) {
    const std::size_t place = band % kBandGroup;
    if (place == 0) m_groups.emplace_back(samples * kBandGroup, 0.0);
    double* to = m_groups.back().data() + place;
    for (std::size_t i = 0; i < samples; ++i) to[i * kBandGroup] = m_bands[band][i];
  }
}

void PointResampler::Resample(const double* x, const double* y, int count, double* const* out) {
  for (int first = 0; first < count; first += kPassPiece) {
    const int n = std::min(kPassPiece, count - first);
    const int inner = KeepInside(m_inner, x + first, y + first, n, m_x.data(), m_y.data(), m_isInner.data());
    for (std::size_t b = 0; b < m_bands.size(); ++b) m_out[b] = out[b] + first;
    if (inner > 0) {
      switch (m_type) {
        case RT_NEAREST:
          ResampleNearest(n, m_out.data());
          break;
        case RT_BILINEAR:
          ResampleLinear(n, m_out.data());
          break;
        default:
          ResampleCubic(n, m_out.data());
          break;
      }
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
