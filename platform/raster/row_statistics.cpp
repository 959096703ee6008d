#include "platform/raster/row_statistics.h"

#include <algorithm>
#include <cmath>

#include "platform/raster/no_data.h"
#include "platform/system/multiversion.h"

namespace platform {
namespace {

// Independent lanes let the sums vectorise although additions may not be reordered.
constexpr int kLanes = 16;

struct RowSums {
  double count = 0.0;
  double sum = 0.0;
  double minimum = INFINITY;
  double maximum = -INFINITY;
};

FUSION_MULTIVERSION
void SumLanes(const double* values, std::int64_t count, double noData, double* counts, double* sums, double* minima,
              double* maxima) {
  for (std::int64_t i = 0; i < count; i += kLanes) {
    for (int l = 0; l < kLanes; ++l) {
      const double v = values[i + l];
      const bool valid = IsValidSample(v, noData);
      counts[l] += valid ? 1.0 : 0.0;
      sums[l] += valid ? v : 0.0;
      const double low = valid ? v : INFINITY;
      const double high = valid ? v : -INFINITY;
      minima[l] = low < minima[l] ? low : minima[l];
      maxima[l] = high > maxima[l] ? high : maxima[l];
    }
  }
}

FUSION_MULTIVERSION
void SquareLanes(const double* values, std::int64_t count, double noData, double mean, double* squares) {
  for (std::int64_t i = 0; i < count; i += kLanes) {
    for (int l = 0; l < kLanes; ++l) {
      const double v = values[i + l];
      const bool valid = IsValidSample(v, noData);
      const double d = valid ? v - mean : 0.0;
      squares[l] += d * d;
    }
  }
}

RowSums Sum(const double* values, std::int64_t count, double noData) {
  double counts[kLanes] = {};
  double sums[kLanes] = {};
  double minima[kLanes];
  double maxima[kLanes];
  std::fill_n(minima, kLanes, INFINITY);
  std::fill_n(maxima, kLanes, -INFINITY);
  SumLanes(values, count, noData, counts, sums, minima, maxima);
  RowSums result;
  for (int l = 0; l < kLanes; ++l) {
    result.count += counts[l];
    result.sum += sums[l];
    result.minimum = std::min(result.minimum, minima[l]);
    result.maximum = std::max(result.maximum, maxima[l]);
  }
  return result;
}

double Squares(const double* values, std::int64_t count, double noData, double mean) {
  double squares[kLanes] = {};
  SquareLanes(values, count, noData, mean, squares);
  double sum = 0.0;
  for (const double s : squares) sum += s;
  return sum;
}

}  // namespace

void RowStatistics::Add(const double* values, std::int64_t count) {
  // The rest that does not fill the lanes, filled up with values that do not count.
  const std::int64_t whole = count - count % kLanes;
  double rest[kLanes];
  std::fill_n(rest, kLanes, NAN);
  std::copy(values + whole, values + count, rest);

  const RowSums first = Sum(values, whole, m_noData);
  const RowSums last = Sum(rest, kLanes, m_noData);
  const double rowCount = first.count + last.count;
  if (rowCount == 0.0) return;
  const double rowMean = (first.sum + last.sum) / rowCount;
  const double rowSquares = Squares(values, whole, m_noData, rowMean) + Squares(rest, kLanes, m_noData, rowMean);

  m_minimum = std::min({m_minimum, first.minimum, last.minimum});
  m_maximum = std::max({m_maximum, first.maximum, last.maximum});
  const auto before = static_cast<double>(m_count);
  const double total = before + rowCount;
  const double delta = rowMean - m_mean;
  m_squares += rowSquares + delta * delta * (before * rowCount / total);
  m_mean += delta * (rowCount / total);
  m_count += static_cast<std::int64_t>(rowCount);
}

double RowStatistics::StdDev() const { return m_count > 0 ? std::sqrt(m_squares / static_cast<double>(m_count)) : 0.0; }

}  // namespace platform
