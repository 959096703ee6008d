#include "framework/resampling/row_resampler.h"

#include <algorithm>

#include "framework/resampling/kernels.h"
#include "framework/resampling/resample_point.h"

namespace fusion {

RowResampler::RowResampler(ResampleType type, const double* const* bands, int bandCount, const CRect& rect)
    : m_type(type),
      m_bands(bands, bands + bandCount),
      m_rect(rect),
      m_stride(static_cast<std::int64_t>(rect.right) - rect.left),
      m_point(static_cast<std::size_t>(bandCount)),
      m_points(type, bands, bandCount, rect) {}

void RowResampler::SetColumns(const double* x, int count) {
  m_x.assign(x, x + count);
  m_fastBegin = m_fastEnd = 0;
  VisitKernel(m_type, [this]<typename Kernel>(Kernel) { PlaceColumns<Kernel>(); });
  for (Line& line : m_lines) {
    line.row = -1;
    line.values.resize(static_cast<std::size_t>(FastCount()) * m_bands.size());
  }
}

template <typename Kernel>
void RowResampler::PlaceColumns() {
  const auto place = [this](double x) { return Kernel::MakeTaps(x, m_rect.left, m_rect.Width()); };
  const auto isFast = [&](double x) {
    if (!Kernel::FitsColumn(x, m_rect)) return false;
    const auto taps = place(x);
    return taps.index[0] >= 0 && taps.index[Kernel::kTaps - 1] < m_stride;
  };
  const auto begin = std::find_if(m_x.begin(), m_x.end(), isFast);
  const auto end = std::find_if_not(begin, m_x.end(), isFast);
  m_fastBegin = static_cast<int>(begin - m_x.begin());
  m_fastEnd = static_cast<int>(end - m_x.begin());

  const auto n = static_cast<std::size_t>(FastCount());
  for (int k = 0; k < Kernel::kTaps; ++k) {
    m_index[k].resize(n);
    m_weight[k].resize(n);
  }
  for (std::size_t i = 0; i < n; ++i) {
    const auto taps = place(*(begin + static_cast<std::ptrdiff_t>(i)));
    for (int k = 0; k < Kernel::kTaps; ++k) {
      m_index[k][i] = static_cast<std::int32_t>(taps.index[k]);
      m_weight[k][i] = taps.weight[k];
    }
  }
}

template <typename Kernel>
const double* RowResampler::CombineLine(std::int64_t row) {
  Line& line = m_lines[row % kMostTaps];
  if (line.row == row) return line.values.data();
  line.row = row;
  // The row behind the last one counts as 0.
  if (row >= m_rect.Height()) {
    std::fill(line.values.begin(), line.values.end(), 0.0);
    return line.values.data();
  }
  ColumnTaps taps{};
  for (int k = 0; k < Kernel::kTaps; ++k) {
    taps.index[k] = m_index[k].data();
    taps.weight[k] = m_weight[k].data();
  }
  const int n = FastCount();
  for (std::size_t b = 0; b < m_bands.size(); ++b) {
    Kernel::CombineLine(m_bands[b] + row * m_stride, taps, n, line.values.data() + b * static_cast<std::size_t>(n));
  }
  return line.values.data();
}

template <typename Kernel>
bool RowResampler::ResampleFast(double y, double* const* out) {
  constexpr int kTaps = Kernel::kTaps;
  if (!Kernel::FitsRow(y, m_rect)) return false;
  const auto taps = Kernel::MakeTaps(y, m_rect.top, m_rect.Height());
  if (taps.index[0] < 0 || taps.index[kTaps - 1] > m_rect.Height()) return false;

  const double* lines[kTaps];
  for (int j = 0; j < kTaps; ++j) lines[j] = CombineLine<Kernel>(taps.index[j]);
  const int n = FastCount();
  for (std::size_t b = 0; b < m_bands.size(); ++b) {
    Kernel::BlendLines(lines, taps.weight, n, out[b] + m_fastBegin);
    for (const double*& line : lines) line += n;
  }
  return true;
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
  bool isFast = false;
  if (FastCount() > 0) {
    VisitKernel(m_type, [&]<typename Kernel>(Kernel) { isFast = ResampleFast<Kernel>(y, out); });
  }
  if (!isFast) {
    ResampleSlow(y, 0, count, out);
    return;
  }
  ResampleSlow(y, 0, m_fastBegin, out);
  ResampleSlow(y, m_fastEnd, count, out);
}

}  // namespace fusion
