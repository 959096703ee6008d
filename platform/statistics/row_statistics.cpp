#include "platform/statistics/row_statistics.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "platform/system/multiversion.h"
#include "platform/validity/no_data.h"

namespace platform {
namespace {

// Independent lanes let the sums vectorise although additions may not be reordered.
constexpr int kLanes = 16;

struct RowSums {
  double count = 0.0;
  double sum = 0.0;
};

FUSION_MULTIVERSION
void SumLanes(const double* values, std::int64_t count, double noData, double* counts, double* sums) {
  for (std::int64_t i = 0; i < count; i += kLanes) {
    for (int l = 0; l < kLanes; ++l) {
      const double v = values[i + l];
      const bool valid = IsValidSample(v, noData);
      counts[l] += valid ? 1.0 : 0.0;
      sums[l] += valid ? v : 0.0;
    }
  }
}

FUSION_MULTIVERSION
void WidenLanes(const double* values, std::int64_t count, double noData, double* minima, double* maxima) {
  for (std::int64_t i = 0; i < count; i += kLanes) {
    for (int l = 0; l < kLanes; ++l) {
      const double v = values[i + l];
      const bool valid = IsValidSample(v, noData);
      const double low = valid ? v : INFINITY;
      const double high = valid ? v : -INFINITY;
      minima[l] = low < minima[l] ? low : minima[l];
      maxima[l] = high > maxima[l] ? high : maxima[l];
    }
  }
}

FUSION_MULTIVERSION
void DeviationLanes(const double* values, std::int64_t count, double noData, double mean, double* sums,
                    double* squares) {
  for (std::int64_t i = 0; i < count; i += kLanes) {
    for (int l = 0; l < kLanes; ++l) {
      const double v = values[i + l];
      const double d = IsValidSample(v, noData) ? v - mean : 0.0;
      sums[l] += d;
      squares[l] += d * d;
    }
  }
}

RowSums Sum(const double* values, std::int64_t count, double noData) {
  double counts[kLanes] = {};
  double sums[kLanes] = {};
  SumLanes(values, count, noData, counts, sums);
  RowSums result;
  for (int l = 0; l < kLanes; ++l) {
    result.count += counts[l];
    result.sum += sums[l];
  }
  return result;
}

/// The values that do not fill the lanes, filled up with values that do not count.
struct Rest {
  Rest(const double* values, std::int64_t count) : whole(count - count % kLanes) {
    std::fill_n(lanes, kLanes, NAN);
    std::copy(values + whole, values + count, lanes);
  }
  std::int64_t whole;  ///< how many do fill them
  double lanes[kLanes];
};

struct Deviations {
  double sum = 0.0;
  double squares = 0.0;
};

Deviations Deviate(const double* values, std::int64_t count, double noData, double mean) {
  double sums[kLanes] = {};
  double squares[kLanes] = {};
  DeviationLanes(values, count, noData, mean, sums, squares);
  return {std::accumulate(sums, sums + kLanes, 0.0), std::accumulate(squares, squares + kLanes, 0.0)};
}

}  // namespace

void RowStatistics::Add(const double* values, std::int64_t count) {
  // Pieces that stay in the cache for their second look.
  constexpr std::int64_t kPiece = 2048;
  for (std::int64_t i = 0; i < count; i += kPiece) AddPiece(values + i, std::min(kPiece, count - i));
}

void RowStatistics::AddPiece(const double* values, std::int64_t count) {
  const Rest rest(values, count);
  const RowSums first = Sum(values, rest.whole, m_noData);
  const RowSums last = Sum(rest.lanes, kLanes, m_noData);
  const double pieceCount = first.count + last.count;
  if (pieceCount == 0.0) return;
  const double pieceMean = (first.sum + last.sum) / pieceCount;
  const Deviations head = Deviate(values, rest.whole, m_noData, pieceMean);
  const Deviations tail = Deviate(rest.lanes, kLanes, m_noData, pieceMean);
  // The deviations tell how far rounding left the mean from the true one.
  const double correction = (head.sum + tail.sum) / pieceCount;
  const double pieceSquares = head.squares + tail.squares - correction * correction * pieceCount;

  if (m_count == 0) m_origin = pieceMean;
  const auto before = static_cast<double>(m_count);
  const double total = before + pieceCount;
  const double delta = (pieceMean - m_origin) + correction - m_offset;
  m_squares += std::max(pieceSquares, 0.0) + delta * delta * (before * pieceCount / total);
  m_offset += delta * (pieceCount / total);
  m_count += static_cast<std::int64_t>(pieceCount);
}

void RowRange::Add(const double* values, std::int64_t count) {
  const Rest rest(values, count);
  double minima[kLanes];
  double maxima[kLanes];
  std::fill_n(minima, kLanes, m_minimum);
  std::fill_n(maxima, kLanes, m_maximum);
  WidenLanes(values, rest.whole, m_noData, minima, maxima);
  WidenLanes(rest.lanes, kLanes, m_noData, minima, maxima);
  m_minimum = *std::min_element(minima, minima + kLanes);
  m_maximum = *std::max_element(maxima, maxima + kLanes);
}

double RowStatistics::StdDev() const { return m_count > 0 ? std::sqrt(m_squares / static_cast<double>(m_count)) : 0.0; }

}  // namespace platform
