#include "framework/row_resampler.h"

#include <algorithm>

#include "framework/resampling_passes.h"

namespace fusion {

RowResampler::RowResampler(ResampleType type, const double* const* bands, int bandCount, const CRect& rect)
    : m_type(type),
      m_bands(bands, bands + bandCount),
      m_rect(rect),
      m_stride(static_cast<std::int64_t>(rect.right) - rect.left),
      m_point(static_cast<std::size_t>(bandCount)),
      m_points(type, bands, bandCount, rect) {}

bool RowResampler::IsFastColumn(double x) const {
  switch (m_type) {
    case RT_BICUBIC:
      return BicubicFitsColumn(x, m_rect) && MakeCubicTaps(x, m_rect.left).first >= 0;
    case RT_BILINEAR: {
      if (!BilinearFitsColumn(x, m_rect)) return false;
      const LinearTaps taps = MakeLinearTaps(x, m_rect.left);
      return taps.first >= 0 && taps.second < m_stride;
    }
    case RT_NEAREST:
      return MakeNearestTap(x, m_rect.left, m_rect.Width()).index < m_stride;
    default:
      return false;
  }
}

bool RowResampler::IsFastRow(double y) const {
  switch (m_type) {
    case RT_BICUBIC:
      return BicubicFitsRow(y, m_rect) && MakeCubicTaps(y, m_rect.top).first >= 0;
    case RT_BILINEAR: {
      if (!BilinearFitsRow(y, m_rect)) return false;
      const LinearTaps taps = MakeLinearTaps(y, m_rect.top);
      return taps.first >= 0 && taps.second < m_rect.Height();
    }
    case RT_NEAREST:
      return MakeNearestTap(y, m_rect.top, m_rect.Height()).index < m_rect.Height();
    default:
      return false;
  }
}

void RowResampler::SetColumns(const double* x, int count) {
  m_x.assign(x, x + count);
  const auto fast = [this](double position) { return IsFastColumn(position); };
  const auto begin = std::find_if(m_x.begin(), m_x.end(), fast);
  const auto end = std::find_if_not(begin, m_x.end(), fast);
  m_fastBegin = static_cast<int>(begin - m_x.begin());
  m_fastEnd = static_cast<int>(end - m_x.begin());

  const auto n = static_cast<std::size_t>(FastCount());
  m_first.resize(n);
  m_second.resize(n);
  for (auto& weights : m_weights) weights.resize(n);
  for (std::size_t i = 0; i < n; ++i) {
    const double position = *(begin + static_cast<std::ptrdiff_t>(i));
    if (m_type == RT_BICUBIC) {
      const CubicTaps taps = MakeCubicTaps(position, m_rect.left);
      m_first[i] = static_cast<std::int32_t>(taps.first);
      for (std::size_t k = 0; k < 4; ++k) m_weights[k][i] = taps.weight[k];
    } else if (m_type == RT_BILINEAR) {
      const LinearTaps taps = MakeLinearTaps(position, m_rect.left);
      m_first[i] = static_cast<std::int32_t>(taps.first);
      m_second[i] = static_cast<std::int32_t>(taps.second);
      m_weights[0][i] = taps.toFirst;
      m_weights[1][i] = taps.toSecond;
    } else {
      m_first[i] = static_cast<std::int32_t>(MakeNearestTap(position, m_rect.left, m_rect.Width()).index);
    }
  }
  for (Line& line : m_lines) {
    line.row = -1;
    line.values.resize(n * m_bands.size());
  }
}

const double* RowResampler::CombineLine(std::int64_t row) {
  Line& line = m_lines[row % 4];
  if (line.row == row) return line.values.data();
  line.row = row;
  // The row behind the last one counts as 0.
  if (row >= m_rect.Height()) {
    std::fill(line.values.begin(), line.values.end(), 0.0);
    return line.values.data();
  }
  const int n = FastCount();
  for (std::size_t b = 0; b < m_bands.size(); ++b) {
    const double* samples = m_bands[b] + row * m_stride;
    double* out = line.values.data() + b * static_cast<std::size_t>(n);
    if (m_type == RT_BICUBIC) {
      CombineCubic(samples, m_first.data(), m_weights[0].data(), m_weights[1].data(), m_weights[2].data(),
                   m_weights[3].data(), n, out);
    } else if (m_type == RT_BILINEAR) {
      CombineLinear(samples, m_first.data(), m_second.data(), m_weights[0].data(), m_weights[1].data(), n, out);
    } else {
      PickNearest(samples, m_first.data(), n, out);
    }
  }
  return line.values.data();
}

void RowResampler::ResampleFast(double y, double* const* out) {
  const int n = FastCount();
  const double* lines[4] = {};
  LinearTaps linear{};
  CubicTaps cubic{};
  if (m_type == RT_BICUBIC) {
    cubic = MakeCubicTaps(y, m_rect.top);
    for (int j = 0; j < 4; ++j) lines[j] = CombineLine(cubic.first + j);
  } else if (m_type == RT_BILINEAR) {
    linear = MakeLinearTaps(y, m_rect.top);
    lines[0] = CombineLine(linear.first);
    lines[1] = CombineLine(linear.second);
  } else {
    lines[0] = CombineLine(MakeNearestTap(y, m_rect.top, m_rect.Height()).index);
  }
  for (std::size_t b = 0; b < m_bands.size(); ++b) {
    const auto at = static_cast<std::ptrdiff_t>(b) * n;
    double* row = out[b] + m_fastBegin;
    if (m_type == RT_BICUBIC) {
      BlendCubic(lines[0] + at, lines[1] + at, lines[2] + at, lines[3] + at, cubic.weight, n, row);
    } else if (m_type == RT_BILINEAR) {
      BlendLinear(lines[0] + at, lines[1] + at, linear.toSecond, linear.toFirst, n, row);
    } else {
      std::copy_n(lines[0] + at, n, row);
    }
  }
}

void RowResampler::ResampleSlow(double y, int from, int to, double* const* out) {
  for (int i = from; i < to; ++i) {
    std::fill(m_point.begin(), m_point.end(), 0.0);
    ResamplePoint(m_type, m_x[static_cast<std::size_t>(i)], y, m_bands.data(), static_cast<int>(m_bands.size()), m_rect,
                  m_point.data());
    for (std::size_t b = 0; b < m_point.size(); ++b) out[b][i] = m_point[b];
  }
}

void RowResampler::ResampleRow(double y, double* const* out) {
  const int count = static_cast<int>(m_x.size());
  if (FastCount() == 0 || !IsFastRow(y)) {
    ResampleSlow(y, 0, count, out);
    return;
  }
  ResampleSlow(y, 0, m_fastBegin, out);
  ResampleFast(y, out);
  ResampleSlow(y, m_fastEnd, count, out);
}

}  // namespace fusion
