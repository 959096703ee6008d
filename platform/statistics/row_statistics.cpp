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

FUSION_MULTIVERSION(void, SumLanes,
                    (const double* values, std::int64_t count, double noData, double* counts, double* sums),
                    (values, count, noData, counts, sums)) {
  for (std::int64_t i = 0; i < count; i += kLanes) {
    for (int l = 0; l < kLanes; ++l) {
      const double v = values[i + l];
      const bool valid = IsValidSample(v, noData);
      counts[l] += valid ? 1.0 : 0.0;
      sums[l] += valid ? v : 0.0;
    }
  }
}

FUSION_MULTIVERSION(void, WidenLanes,
                    (const double* values, std::int64_t count, double noData, double* minima, double* maxima),
                    (values, count, noData, minima, maxima)) {
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

FUSION_MULTIVERSION(void, DeviationLanes,
                    (const double* values, std::int64_t count, double noData, double mean, double* sums,
                     double* squares),
                    (values, count, noData, mean, sums, squares)) {
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

/// Calls take(values, count) for pieces that stay in the cache for their second look.
template <typename Take>
void ForPieces(const double* values, std::int64_t count, const Take& take) {
  constexpr std::int64_t kPiece = 2048;
  for (std::int64_t i = 0; i < count; i += kPiece) take(values + i, std::min(kPiece, count - i));
}

}  // namespace

void RowStatistics::Add(const double* values, std::int64_t count) {
  ForPieces(values, count, [this](const double* piece, std::int64_t n) { Add(Reduced(piece, n)); });
}

void RowStatistics::Reduce(const double* values, std::int64_t count, Pieces& pieces) const {
  ForPieces(values, count, [&](const double* piece, std::int64_t n) { pieces.push_back(Reduced(piece, n)); });
}

void RowStatistics::Add(const Pieces& pieces) {
  for (const Piece& piece : pieces) Add(piece);
}

RowStatistics::Piece RowStatistics::Reduced(const double* values, std::int64_t count) const {
  const Rest rest(values, count);
  const RowSums first = Sum(values, rest.whole, m_noData);
  const RowSums last = Sum(rest.lanes, kLanes, m_noData);
  Piece piece;
  piece.count = first.count + last.count;
  if (piece.count == 0.0) return piece;
  piece.mean = (first.sum + last.sum) / piece.count;
  const Deviations head = Deviate(values, rest.whole, m_noData, piece.mean);
  const Deviations tail = Deviate(rest.lanes, kLanes, m_noData, piece.mean);
  // The deviations tell how far rounding left the mean from the true one.
  piece.correction = (head.sum + tail.sum) / piece.count;
  piece.squares = head.squares + tail.squares - piece.correction * piece.correction * piece.count;
  return piece;
}

void RowStatistics::Add(const Piece& piece) {
  if (piece.count == 0.0) return;
  if (m_count == 0) m_origin = piece.mean;
  const auto before = static_cast<double>(m_count);
  const double total = before + piece.count;
  const double delta = (piece.mean - m_origin) + piece.correction - m_offset;
  m_squares += std::max(piece.squares, 0.0) + delta * delta * (before * piece.count / total);
  m_offset += delta * (piece.count / total);
  m_count += static_cast<std::int64_t>(piece.count);
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

void RowRange::Add(const RowRange& part) {
  m_minimum = std::min(m_minimum, part.m_minimum);
  m_maximum = std::max(m_maximum, part.m_maximum);
}

double RowStatistics::StdDev() const { return m_count > 0 ? std::sqrt(m_squares / static_cast<double>(m_count)) : 0.0; }

}  // namespace platform
