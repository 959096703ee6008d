#include "estimation/low_pass_fill.h"

#include <cmath>
#include <limits>

#include "platform/statistics/running_covariance.h"
#include "platform/utility/matrix_operation.h"

namespace fusion {

LowPassFill::LowPassFill(const Registration& registration, const RegistrationResult& found) {
  if (registration.Tiles().empty()) return;
  const std::size_t n = registration.Tiles().front().bands.size();
  platform::RunningCovariance statistics(static_cast<int>(n) + 1);
  for (const RegistrationTile& tile : registration.Tiles()) {
    const std::vector<double> pan = registration.Degraded(tile, found.blur, found.shiftX, found.shiftY);
    std::vector<std::vector<double>> valid(n + 1);
    for (std::size_t i = 0; i < pan.size(); ++i) {
      double sum = pan[i];
      for (const auto& band : tile.bands) sum += band[i];
      if (sum != sum) continue;
      for (std::size_t b = 0; b < n; ++b) valid[b].push_back(tile.bands[b][i]);
      valid[n].push_back(pan[i]);
    }
    std::vector<const double*> columns;
    columns.reserve(valid.size());
    for (const auto& column : valid) columns.push_back(column.data());
    statistics.Add(columns.data(), static_cast<std::int64_t>(valid[n].size()));
  }
  m_mean = statistics.Mean(static_cast<int>(n));
  std::vector<double> scales;
  std::vector<double> system;
  std::vector<double> right;
  for (std::size_t i = 0; i < n; ++i) {
    m_means.push_back(statistics.Mean(static_cast<int>(i)));
    const double variance = statistics.Covariance(static_cast<int>(i), static_cast<int>(i));
    scales.push_back(variance > 0.0 ? 1.0 / std::sqrt(variance) : 0.0);
  }
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = 0; j < n; ++j) {
      system.push_back(statistics.Covariance(static_cast<int>(i), static_cast<int>(j)) * scales[i] * scales[j]);
    }
    right.push_back(statistics.Covariance(static_cast<int>(i), static_cast<int>(n)) * scales[i]);
  }
  m_gains.assign(n, 0.0);
  constexpr double kCut = 1e-6;
  CMatrixOperation::SolveLeastSquares(system.data(), static_cast<int>(n), kCut, right.data(), m_gains.data());
  for (std::size_t i = 0; i < n; ++i) m_gains[i] *= scales[i];
}

void LowPassFill::Fill(const double* const* bands, bool keepsGaps, std::vector<double>& lowPass) const {
  for (std::size_t i = 0; i < lowPass.size(); ++i) {
    const bool known = lowPass[i] == lowPass[i];
    if (known && !keepsGaps) continue;
    double value = m_mean;
    std::size_t missing = 0;
    for (std::size_t b = 0; b < m_gains.size(); ++b) {
      const double band = bands[b][i];
      if (band != band) {
        ++missing;
      } else {
        value += m_gains[b] * (band - m_means[b]);
      }
    }
    if (missing == m_gains.size() && keepsGaps) {
      lowPass[i] = std::numeric_limits<double>::quiet_NaN();
    } else if (!known) {
      lowPass[i] = value;
    }
  }
}

}  // namespace fusion
