#include "runs/sample_sensor.h"

#include <algorithm>
#include <cmath>

namespace fusion {
namespace {

/// e to the power of -x, x from 0 to 10, to some 12 digits. The last bit of the C library's differs between machines.
double ExpMinus(double x) {
  constexpr int kHalvings = 10;
  const double t = -x / (1 << kHalvings);
  double power = 1.0 + t * (1.0 + t / 2.0 * (1.0 + t / 3.0 * (1.0 + t / 4.0 * (1.0 + t / 5.0))));
  for (int i = 0; i < kHalvings; ++i) power *= power;
  return power;
}

/// What lies farther out, in standard deviations, weighs less than a thousandth of the middle.
constexpr double kCut = 4.0;

}  // namespace

SampleSensor::Taps SampleSensor::TapsOf(const View& view, double shift) {
  // A picture that lies to the right shows at its first pixel what is to the left of it.
  const double centre = (view.step - 1) / 2.0 - shift;
  Taps taps{static_cast<int>(std::ceil(centre - kCut * view.spread)), {}};
  const int last = static_cast<int>(std::floor(centre + kCut * view.spread));
  double sum = 0.0;
  for (int i = taps.first; i <= last; ++i) {
    const double distance = (i - centre) / view.spread;
    taps.weights.push_back(ExpMinus(distance * distance / 2.0));
    sum += taps.weights.back();
  }
  for (double& weight : taps.weights) weight /= sum;
  return taps;
}

SampleSensor::SampleSensor(const View& view)
    : m_view(view), m_across(TapsOf(view, view.right)), m_down(TapsOf(view, view.down)) {
  const auto bands = static_cast<std::size_t>(view.bands);
  const auto step = static_cast<std::size_t>(view.step);
  m_rows.assign((m_down.weights.size() + step - 1) / step, SampleRows(bands));
  m_seen.assign(bands, std::vector<double>(static_cast<std::size_t>(view.width)));
}

int SampleSensor::Reach() const {
  int reach = 0;
  for (const Taps* taps : {&m_across, &m_down}) {
    const int end = taps->first + static_cast<int>(taps->weights.size());
    reach = std::max({reach, -taps->first, end - m_view.step});
  }
  return reach;
}

int SampleSensor::Take(int row, int firstColumn, const SampleRows& landscape) {
  const int fromFirst = row - m_down.first;
  if (fromFirst < 0) return -1;
  const int taps = static_cast<int>(m_down.weights.size());
  int complete = -1;
  // The latest row that has begun, and those before it that are not complete.
  for (int seen = fromFirst / m_view.step; seen >= 0; --seen) {
    const int tap = fromFirst - seen * m_view.step;
    if (tap >= taps) break;
    if (seen >= m_view.height) continue;
    const double weight = m_down.weights[static_cast<std::size_t>(tap)];
    SampleRows& sums = RowUnderWay(seen);
    for (std::size_t b = 0; b < sums.size(); ++b) {
      const auto& values = landscape[b];
      if (tap == 0) sums[b].assign(values.size(), 0.0);
      for (std::size_t i = 0; i < values.size(); ++i) sums[b][i] += weight * values[i];
    }
    if (tap + 1 < taps) continue;
    Finish(sums, firstColumn);
    complete = seen;
  }
  return complete;
}

void SampleSensor::Finish(const SampleRows& sums, int firstColumn) {
  const auto step = static_cast<std::size_t>(m_view.step);
  const auto first = static_cast<std::size_t>(m_across.first - firstColumn);
  for (std::size_t b = 0; b < sums.size(); ++b) {
    std::fill(m_seen[b].begin(), m_seen[b].end(), 0.0);
    for (std::size_t tap = 0; tap < m_across.weights.size(); ++tap) {
      const double weight = m_across.weights[tap];
      const double* values = sums[b].data() + first + tap;
      for (std::size_t i = 0; i < m_seen[b].size(); ++i) m_seen[b][i] += weight * values[i * step];
    }
  }
}

}  // namespace fusion
