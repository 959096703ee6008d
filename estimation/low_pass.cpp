#include "estimation/low_pass.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <utility>

#include "framework/row_math.h"
#include "platform/system/multiversion.h"

namespace fusion {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
/// Farther than any image reaches; positions that came to nothing lie there.
constexpr double kFar = 1073741824.0;

/// Rows that go through the pass along the columns side by side.
constexpr int kLanes = 8;
/// Columns that go through the pass along the rows at a time, so that the rows at hand stay in the caches.
constexpr int kTile = 1024;

/// A box edge that rounding errors moved off the edge of a sample must not touch the next one.
double Snap(double v) {
  const double whole = std::round(v);
  return std::fabs(v - whole) < 1e-6 ? whole : v;
}

/// The samples in reach of a position and what each of them weighs.
struct Reach {
  Reach(const LowPassShape& shape, double position) : m_shape(shape), m_position(position) {
    if (shape.isBox) {
      m_begin = Snap(position + 0.5 - shape.size / 2.0);
      m_end = Snap(position + 0.5 + shape.size / 2.0);
      first = static_cast<int>(std::floor(m_begin));
      last = static_cast<int>(std::ceil(m_end)) - 1;
    } else {
      const double reach = 4.0 * shape.size + 1.0;
      first = static_cast<int>(std::ceil(position - reach));
      last = static_cast<int>(std::floor(position + reach));
    }
  }
  /// Calls take with each sample and its weight, up to a common factor.
  template <typename Take>
  void ForEach(const Take& take) const {
    if (m_shape.isBox) {
      for (int i = first; i <= last; ++i) take(i, std::min(m_end, i + 1.0) - std::max(m_begin, static_cast<double>(i)));
      return;
    }
    constexpr double kNarrow = 0.5;
    if (m_shape.size < kNarrow) {
      for (int i = first; i <= last; ++i) {
        const double distance = (i - m_position) / m_shape.size;
        take(i, std::exp(-0.5 * distance * distance));
      }
      return;
    }
    // Neighbouring weights of a Gaussian have a ratio, neighbouring ratios a constant one.
    const double scale = 1.0 / (m_shape.size * m_shape.size);
    const double distance = first - m_position;
    const double bend = std::exp(-scale);
    double ratio = std::exp(-(distance + 0.5) * scale);
    double weight = std::exp(-0.5 * distance * distance * scale);
    for (int i = first; i <= last; ++i) {
      take(i, weight);
      weight *= ratio;
      ratio *= bend;
    }
  }

  int first;
  int last;

 private:
  const LowPassShape& m_shape;
  double m_position;
  double m_begin = 0.0;  ///< of a box, corner-based
  double m_end = 0.0;
};

/// A rectangle that grows around ranges of columns and rows.
struct Hull {
  int first = std::numeric_limits<int>::max();
  int end = std::numeric_limits<int>::min();

  void Take(const LowPassWeights& w) {
    if (w.weights.empty()) return;
    first = std::min(first, w.first);
    end = std::max(end, w.first + static_cast<int>(w.weights.size()));
  }
  bool IsEmpty() const { return first >= end; }
};

CRect RectOf(const Hull& columns, const Hull& rows) {
  if (columns.IsEmpty() || rows.IsEmpty()) return {};
  return {columns.first, rows.first, columns.end, rows.end};
}

/// out[kLanes * i + lane] = rows[lane][i]
void Interleave(const double* rows, int stride, int n, double* out) {
  for (int lane = 0; lane < kLanes; ++lane) {
    const double* row = rows + static_cast<std::ptrdiff_t>(lane) * stride;
    for (int i = 0; i < n; ++i) out[kLanes * i + lane] = row[i];
  }
}

/// sums[lane] = the weighted sum of count groups of lanes, added up in their order
FUSION_MULTIVERSION(void, CombineLanes, (const double* lanes, const double* weights, int count, double* sums),
                    (lanes, weights, count, sums)) {
  double sum[kLanes] = {};
  for (int k = 0; k < count; ++k) {
    for (int lane = 0; lane < kLanes; ++lane) sum[lane] += weights[k] * lanes[kLanes * k + lane];
  }
  for (int lane = 0; lane < kLanes; ++lane) sums[lane] = sum[lane];
}

/// WeightsAt in place of what was there before.
void Weigh(const LowPassShape& shape, double position, int size, LowPassWeights& result) {
  result.weights.clear();
  result.share = 0.0;
  if (!(std::fabs(position) < kFar)) return;
  const Reach reach(shape, position);
  result.first = std::max(reach.first, 0);
  double all = 0.0;
  double inside = 0.0;
  reach.ForEach([&](int i, double weight) {
    all += weight;
    if (i < 0 || i >= size) return;
    result.weights.push_back(weight);
    inside += weight;
  });
  for (double& w : result.weights) w /= inside;
  result.share = inside / all;
}

}  // namespace

double DeviationOfGain(double ratio, double gain) {
  return ratio * std::sqrt(-2.0 * std::log(gain)) / std::numbers::pi;
}

double GainOfDeviation(double ratio, double deviation) {
  const double angle = std::numbers::pi * deviation / ratio;
  return std::exp(-angle * angle / 2.0);
}

LowPassWeights WeightsAt(const LowPassShape& shape, double position, int size) {
  LowPassWeights result;
  Weigh(shape, position, size, result);
  return result;
}

AxisFilter::AxisFilter(const LowPassShape& shape, const std::vector<double>& positions, int size) : m_size(size) {
  m_samples.reserve(positions.size());
  for (const double position : positions) m_samples.push_back(WeightsAt(shape, position, size));
}

void AxisFilter::Add(LowPassWeights weights) { m_samples.push_back(std::move(weights)); }

AxisFilter AxisFilter::Behind(const AxisFilter& inner) const {
  AxisFilter result(inner.m_size);
  for (const LowPassWeights& outer : m_samples) {
    Hull hull;
    LowPassWeights sum;
    sum.share = outer.share;
    for (std::size_t k = 0; k < outer.weights.size(); ++k) {
      const LowPassWeights& taken = inner[outer.first + static_cast<int>(k)];
      hull.Take(taken);
      sum.share = std::min(sum.share, taken.share);
    }
    if (!hull.IsEmpty()) {
      sum.first = hull.first;
      sum.weights.assign(static_cast<std::size_t>(hull.end - hull.first), 0.0);
      for (std::size_t k = 0; k < outer.weights.size(); ++k) {
        const LowPassWeights& taken = inner[outer.first + static_cast<int>(k)];
        double* to = sum.weights.data() + (taken.first - hull.first);
        for (std::size_t i = 0; i < taken.weights.size(); ++i) to[i] += outer.weights[k] * taken.weights[i];
      }
    }
    result.Add(std::move(sum));
  }
  return result;
}

SeparableFilter::SeparableFilter(AxisFilter columns, AxisFilter rows, double leastShare)
    : m_columns(std::move(columns)), m_rows(std::move(rows)), m_leastShare(leastShare) {}

bool SeparableFilter::IsValid(int column, int row) const {
  const LowPassWeights& x = m_columns[column];
  const LowPassWeights& y = m_rows[row];
  return !x.weights.empty() && !y.weights.empty() && x.share * y.share >= m_leastShare;
}

CRect SeparableFilter::Reads(const CRect& rect) const {
  Hull columns;
  Hull rows;
  for (int c = rect.left; c < rect.right; ++c) {
    if (m_columns[c].share >= m_leastShare) columns.Take(m_columns[c]);
  }
  for (int r = rect.top; r < rect.bottom; ++r) {
    if (m_rows[r].share >= m_leastShare) rows.Take(m_rows[r]);
  }
  return RectOf(columns, rows);
}

void SeparableFilter::Apply(const double* input, const CRect& inputRect, const CRect& rect, double* out) const {
  const CRect reads = Reads(rect);
  if (reads.Area() == 0) {
    std::fill_n(out, rect.Area(), kNaN);
    return;
  }
  const int width = reads.Width();
  std::vector<double> sums(static_cast<std::size_t>(width) * kLanes, 0.0);
  std::vector<double> interleaved(sums.size());
  std::vector<const double*> taken;
  for (int row = rect.top; row < rect.bottom; row += kLanes) {
    const int rows = std::min(kLanes, rect.bottom - row);
    // Down the columns first, which is most of the work and goes along whole rows.
    for (int tile = 0; tile < width; tile += kTile) {
      const int n = std::min(kTile, width - tile);
      for (int lane = 0; lane < rows; ++lane) {
        const LowPassWeights& w = m_rows[row + lane];
        if (w.weights.empty() || w.share < m_leastShare) continue;
        taken.clear();
        for (std::size_t k = 0; k < w.weights.size(); ++k) {
          const std::ptrdiff_t y = w.first + static_cast<std::ptrdiff_t>(k) - inputRect.top;
          taken.push_back(input + y * inputRect.Width() + (reads.left - inputRect.left + tile));
        }
        CombineRows(taken.data(), w.weights.data(), static_cast<int>(taken.size()), n,
                    sums.data() + static_cast<std::ptrdiff_t>(lane) * width + tile);
      }
    }
    Interleave(sums.data(), width, width, interleaved.data());
    CombineColumns(interleaved.data(), reads.left, rect, row, rows, out);
  }
}

void SeparableFilter::CombineColumns(const double* interleaved, int first, const CRect& rect, int row, int rows,
                                     double* out) const {
  double sums[kLanes];
  double* to = out + static_cast<std::ptrdiff_t>(row - rect.top) * rect.Width();
  for (int c = rect.left; c < rect.right; ++c, ++to) {
    const LowPassWeights& w = m_columns[c];
    if (!w.weights.empty() && w.share >= m_leastShare) {
      CombineLanes(interleaved + static_cast<std::ptrdiff_t>(kLanes) * (w.first - first), w.weights.data(),
                   static_cast<int>(w.weights.size()), sums);
    }
    for (int lane = 0; lane < rows; ++lane) {
      to[static_cast<std::ptrdiff_t>(lane) * rect.Width()] = IsValid(c, row + lane) ? sums[lane] : kNaN;
    }
  }
}

PointFilter::PointFilter(const LowPassShape& alongX, const LowPassShape& alongY, int width, int height,
                         double leastShare)
    : m_alongX(alongX), m_alongY(alongY), m_width(width), m_height(height), m_leastShare(leastShare) {}

CRect PointFilter::Reads(const double* x, const double* y, int count) const {
  const auto range = [count](const double* positions, const LowPassShape& shape, int size) {
    Hull hull;
    for (int i = 0; i < count; ++i) {
      if (!(std::fabs(positions[i]) < kFar)) continue;
      const Reach reach(shape, positions[i]);
      if (reach.last < 0 || reach.first >= size) continue;
      hull.first = std::min(hull.first, std::max(reach.first, 0));
      hull.end = std::max(hull.end, std::min(reach.last, size - 1) + 1);
    }
    return hull;
  };
  return RectOf(range(x, m_alongX, m_width), range(y, m_alongY, m_height));
}

void PointFilter::Apply(const double* input, const CRect& inputRect, const double* x, const double* y, int count,
                        double* out) const {
  std::vector<const double*> taken;
  std::vector<double> row;
  LowPassWeights alongX;
  LowPassWeights alongY;
  for (int i = 0; i < count; ++i) {
    out[i] = kNaN;
    Weigh(m_alongX, x[i], m_width, alongX);
    Weigh(m_alongY, y[i], m_height, alongY);
    if (alongX.weights.empty() || alongY.weights.empty() || alongX.share * alongY.share < m_leastShare) continue;
    const int n = static_cast<int>(alongX.weights.size());
    taken.clear();
    for (std::size_t k = 0; k < alongY.weights.size(); ++k) {
      const std::ptrdiff_t line = alongY.first + static_cast<std::ptrdiff_t>(k) - inputRect.top;
      taken.push_back(input + line * inputRect.Width() + (alongX.first - inputRect.left));
    }
    row.resize(alongX.weights.size());
    CombineRows(taken.data(), alongY.weights.data(), static_cast<int>(taken.size()), n, row.data());
    double sum = 0.0;
    for (std::size_t k = 0; k < row.size(); ++k) sum += alongX.weights[k] * row[k];
    out[i] = sum;
  }
}

}  // namespace fusion
