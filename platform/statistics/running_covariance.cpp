#include "platform/statistics/running_covariance.h"

#include <algorithm>
#include <cstddef>

#include "platform/statistics/survey.h"
#include "platform/system/multiversion.h"

namespace platform {
namespace {

// Independent lanes let the sums vectorise although additions may not be reordered.
constexpr int kProductLanes = 16;

FUSION_MULTIVERSION(void, AddProducts,
                    (const double* a, double meanA, const double* b, double meanB, std::int64_t count, double* lanes),
                    (a, meanA, b, meanB, count, lanes)) {
  // Sums of its own, which the compiler knows to lie apart from the values.
  double sums[kProductLanes];
  std::copy_n(lanes, kProductLanes, sums);
  for (std::int64_t i = 0; i < count; i += kProductLanes) {
    for (int l = 0; l < kProductLanes; ++l) sums[l] += (a[i + l] - meanA) * (b[i + l] - meanB);
  }
  std::copy_n(sums, kProductLanes, lanes);
}

double SumOfProducts(const double* a, double meanA, const double* b, double meanB, std::int64_t count) {
  const std::int64_t whole = count - count % kProductLanes;
  double lanes[kProductLanes] = {};
  AddProducts(a, meanA, b, meanB, whole, lanes);
  double sum = 0.0;
  for (std::int64_t i = whole; i < count; ++i) sum += (a[i] - meanA) * (b[i] - meanB);
  for (const double lane : lanes) sum += lane;
  return sum;
}

/// Means beyond the origins, of several columns side by side, so that no sum waits for the addition before.
std::vector<double> MeansBeyond(const std::vector<double>& origins, const double* const* columns, std::int64_t count) {
  constexpr std::size_t kColumns = 4;
  std::vector<double> means(origins.size());
  for (std::size_t first = 0; first < means.size(); first += kColumns) {
    const double* values[kColumns];
    double origin[kColumns];
    double sums[kColumns] = {};
    // In the place of columns that there are not the last one again.
    const auto column = [&](std::size_t c) { return std::min(first + c, means.size() - 1); };
    for (std::size_t c = 0; c < kColumns; ++c) {
      values[c] = columns[column(c)];
      origin[c] = origins[column(c)];
    }
    for (std::int64_t i = 0; i < count; ++i) {
      for (std::size_t c = 0; c < kColumns; ++c) sums[c] += values[c][i] - origin[c];
    }
    for (std::size_t c = 0; c < kColumns; ++c) means[column(c)] = sums[c] / static_cast<double>(count);
  }
  return means;
}

}  // namespace

RunningCovariance::RunningCovariance(int size)
    : m_size(size),
      m_origins(static_cast<std::size_t>(size), 0.0),
      m_means(static_cast<std::size_t>(size), 0.0),
      m_products(static_cast<std::size_t>(size) * static_cast<std::size_t>(size), 0.0) {}

void RunningCovariance::Add(const double* const* columns, std::int64_t count) {
  if (count <= 0) return;
  for (std::size_t i = 0; m_count == 0 && i < m_origins.size(); ++i) m_origins[i] = columns[i][0];
  const std::vector<double> means = MeansBeyond(m_origins, columns, count);
  std::vector<double> centers;
  for (std::size_t i = 0; i < means.size(); ++i) centers.push_back(m_origins[i] + means[i]);
  const auto before = static_cast<double>(m_count);
  const auto added = static_cast<double>(count);
  const double share = before * added / (before + added);
  for (std::size_t i = 0; i < means.size(); ++i) {
    for (std::size_t j = i; j < means.size(); ++j) {
      const double apart = (means[i] - m_means[i]) * (means[j] - m_means[j]) * share;
      m_products[i * means.size() + j] += SumOfProducts(columns[i], centers[i], columns[j], centers[j], count) + apart;
    }
  }
  for (std::size_t i = 0; i < means.size(); ++i) m_means[i] += (means[i] - m_means[i]) * (added / (before + added));
  m_count += count;
}

void RunningCovariance::Add(const RunningCovariance& part) {
  const std::size_t size = m_means.size();
  CheckSurveyed(part.m_size == m_size && part.m_origins.size() == size && part.m_means.size() == size &&
                part.m_products.size() == size * size && part.m_count >= 0);
  if (part.m_count == 0) return;
  if (m_count == 0) {
    *this = part;
    return;
  }
  const auto before = static_cast<double>(m_count);
  const auto added = static_cast<double>(part.m_count);
  const double share = before * added / (before + added);
  std::vector<double> apart(size);
  for (std::size_t i = 0; i < size; ++i) {
    apart[i] = (part.m_origins[i] - m_origins[i]) + part.m_means[i] - m_means[i];
  }
  for (std::size_t i = 0; i < size; ++i) {
    for (std::size_t j = i; j < size; ++j) {
      m_products[i * size + j] += part.m_products[i * size + j] + apart[i] * apart[j] * share;
    }
    m_means[i] += apart[i] * (added / (before + added));
  }
  m_count += part.m_count;
}

double RunningCovariance::Covariance(int i, int j) const {
  if (m_count == 0) return 0.0;
  const auto at = static_cast<std::size_t>(std::min(i, j)) * static_cast<std::size_t>(m_size) +
                  static_cast<std::size_t>(std::max(i, j));
  return m_products[at] / static_cast<double>(m_count);
}

}  // namespace platform
