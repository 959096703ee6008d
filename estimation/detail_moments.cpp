#include "estimation/detail_moments.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "framework/resampling/keys.h"

namespace fusion {
namespace {

/// Rows that are looked at together.
constexpr int kRows = 16;
/// Rows and columns at the image's edges that do not count.
constexpr int kMargin = 3;

}  // namespace

AxisFilter HalvedAndBack(const PanBlur& blur, int size) {
  const int halves = std::max(size / 2, 1);
  std::vector<double> corners;
  corners.reserve(static_cast<std::size_t>(halves));
  for (int k = 0; k < halves; ++k) corners.push_back(2.0 * k + 0.5);
  const AxisFilter halved(blur.Shape(2.0), corners, size);

  AxisFilter back(halves);
  for (int i = 0; i < size; ++i) {
    const double position = (i - 0.5) / 2.0;
    const auto below = static_cast<int>(std::floor(position));
    LowPassWeights taps{std::clamp(below - 1, 0, halves - 1), {}, 1.0};
    taps.weights.assign(static_cast<std::size_t>(std::clamp(below + 2, 0, halves - 1) - taps.first) + 1, 0.0);
    for (int k = -1; k <= 2; ++k) {
      taps.weights[static_cast<std::size_t>(std::clamp(below + k, 0, halves - 1) - taps.first)] +=
          KeysWeight(position - (below + k));
    }
    back.Add(std::move(taps));
  }
  return back.Behind(halved);
}

DetailMoments::DetailMoments(int bands, int width, int height, const PanBlur& blur, platform::Workers* workers)
    : m_workers(workers),
      m_images(bands + 1),
      m_width(width),
      m_height(height),
      m_blur(blur),
      m_lowPass(HalvedAndBack(blur, width), HalvedAndBack(blur, height), 0.0),
      m_statistics(2 * m_images),
      m_rows(static_cast<std::size_t>(m_images) + 1),
      m_low(m_rows.size()) {}

void DetailMoments::Begin(int height) {
  m_height = height;
  m_lowPass = SeparableFilter(HalvedAndBack(m_blur, m_width), HalvedAndBack(m_blur, height), 0.0);
  for (auto& rows : m_rows) rows.clear();
  m_hasGaps.clear();
  m_top = m_end = m_counted = 0;
}

platform::RunningCovariance DetailMoments::TakeStatistics() {
  return std::exchange(m_statistics, platform::RunningCovariance(2 * m_images));
}

void DetailMoments::AddRows(const double* const* images, int rows) {
  const auto width = static_cast<std::size_t>(m_width);
  std::vector<double>& marks = m_rows.back();
  for (int row = 0; row < rows; ++row) {
    const std::size_t at = static_cast<std::size_t>(row) * width;
    const std::size_t held = marks.size();
    marks.resize(held + width, 1.0);
    for (int i = 0; i < m_images; ++i) {
      for (std::size_t x = 0; x < width; ++x) {
        const double value = images[i][at + x];
        if (value != value) marks[held + x] = 0.0;
      }
    }
    m_hasGaps.push_back(std::find(marks.begin() + static_cast<std::ptrdiff_t>(held), marks.end(), 0.0) != marks.end());
    for (int i = 0; i < m_images; ++i) {
      std::vector<double>& image = m_rows[static_cast<std::size_t>(i)];
      image.insert(image.end(), images[i] + at, images[i] + at + width);
      for (std::size_t x = 0; m_hasGaps.back() && x < width; ++x) {
        if (marks[held + x] == 0.0) image[held + x] = 0.0;
      }
    }
  }
  m_end += rows;
  int ready = m_counted;
  while (ready < m_height && m_lowPass.Reads({0, ready, m_width, ready + 1}).bottom <= m_end) ++ready;
  Count(ready);
}

void DetailMoments::Count(int end) {
  // Whole groups, so that the sums do not depend on how the rows came.
  while (m_counted < end && (end - m_counted >= kRows || end == m_height)) {
    const int next = std::min(m_counted + kRows, end);
    CountRows(m_counted, next);
    m_counted = next;
  }
  if (m_counted < m_height) Forget(std::min(m_lowPass.Reads({0, m_counted, m_width, m_height}).top, m_counted));
}

void DetailMoments::CountRows(int first, int end) {
  const CRect held(0, m_top, m_width, m_end);
  const CRect rect(0, first, m_width, end);
  const auto size = static_cast<std::size_t>(rect.Area());
  const CRect reads = m_lowPass.Reads(rect);
  const auto isGap = [this](int row) { return m_hasGaps[static_cast<std::size_t>(row - m_top)]; };
  bool gaps = false;
  for (int row = reads.top; row < reads.bottom; ++row) gaps = gaps || isGap(row);
  for (auto& low : m_low) low.resize(size);
  platform::ForEach(m_workers, gaps ? m_images + 1 : m_images, [&](int image) {
    const auto i = static_cast<std::size_t>(image);
    m_lowPass.Apply(m_rows[i].data(), held, rect, m_low[i].data());
  });
  constexpr double kLeastData = 0.5;
  const std::size_t pan = m_rows.size() - 2;
  const double* marks = m_rows.back().data();
  const std::size_t from = static_cast<std::size_t>(first - m_top) * static_cast<std::size_t>(m_width);
  const auto look = [&](std::vector<std::vector<double>>& columns, int y) {
    for (auto& column : columns) column.clear();
    for (int x = kMargin; x < m_width - kMargin; ++x) {
      const std::size_t at =
          static_cast<std::size_t>(y - first) * static_cast<std::size_t>(m_width) + static_cast<std::size_t>(x);
      if (marks[from + at] == 0.0) continue;
      const double data = gaps ? m_low.back()[at] : 1.0;
      if (data < kLeastData) continue;
      const auto low = [&](std::size_t i) { return gaps ? m_low[i][at] / data : m_low[i][at]; };
      for (std::size_t b = 0; b < pan; ++b) {
        columns[b].push_back(low(b));
        columns[pan + 2 + b].push_back(m_rows[b][from + at] - low(b));
      }
      columns[pan].push_back(m_rows[pan][from + at] - low(pan));
      columns[pan + 1].push_back(low(pan));
    }
    std::vector<const double*> values;
    for (const auto& column : columns) values.push_back(column.data());
    platform::RunningCovariance statistics(2 * m_images);
    statistics.Add(values.data(), static_cast<std::int64_t>(columns.front().size()));
    return statistics;
  };
  const int top = std::max(first, kMargin);
  platform::FoldInOrder(
      m_workers, std::min(end, m_height - kMargin) - top,
      [&] { return std::vector<std::vector<double>>(2 * static_cast<std::size_t>(m_images)); },
      [&](std::vector<std::vector<double>>& columns, int i) { return look(columns, top + i); },
      [this](const platform::RunningCovariance& row) { m_statistics.Add(row); });
}

void DetailMoments::Forget(int first) {
  if (first <= m_top) return;
  const auto count = static_cast<std::ptrdiff_t>(first - m_top) * m_width;
  for (auto& rows : m_rows) rows.erase(rows.begin(), rows.begin() + count);
  m_hasGaps.erase(m_hasGaps.begin(), m_hasGaps.begin() + (first - m_top));
  m_top = first;
}

}  // namespace fusion
