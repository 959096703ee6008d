#include "platform/raster/row_statistics.h"

#include <algorithm>
#include <cmath>
#include <numeric>

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
  // The rest that does not fill the lanes, filled up with values that do not count.
  const std::int64_t whole = count - count % kLanes;
  double rest[kLanes];
  std::fill_n(rest, kLanes, NAN);
  std::copy(values + whole, values + count, rest);

  const RowSums first = Sum(values, whole, m_noData);
  const RowSums last = Sum(rest, kLanes, m_noData);
  const double pieceCount = first.count + last.count;
  if (pieceCount == 0.0) return;
  const double pieceMean = (first.sum + last.sum) / pieceCount;
  const Deviations head = Deviate(values, whole, m_noData, pieceMean);
  const Deviations tail = Deviate(rest, kLanes, m_noData, pieceMean);
  // The deviations tell how far rounding left the mean from the true one.
  const double correction = (head.sum + tail.sum) / pieceCount;
  const double pieceSquares = head.squares + tail.squares - correction * correction * pieceCount;

  if (m_count == 0) m_origin = pieceMean;
  m_minimum = std::min({m_minimum, first.minimum, last.minimum});
  m_maximum = std::max({m_maximum, first.maximum, last.maximum});
  const auto before = static_cast<double>(m_count);
  const double total = before + pieceCount;
  const double delta = (pieceMean - m_origin) + correction - m_offset;
  m_squares += std::max(pieceSquares, 0.0) + delta * delta * (before * pieceCount / total);
  m_offset += delta * (pieceCount / total);
  m_count += static_cast<std::int64_t>(pieceCount);
}

double RowStatistics::StdDev() const { return m_count > 0 ? std::sqrt(m_squares / static_cast<double>(m_count)) : 0.0; }

}  // namespace platform
