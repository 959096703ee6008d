#include "framework/resampling/gap_resampling.h"

#include <algorithm>
#include <cmath>

#include "framework/resampling/kernels.h"

namespace fusion {
namespace {

class TapList {
 public:
  TapList(const CRect& rect, std::vector<Tap>& taps) : m_width(rect.Width()), m_height(rect.Height()), m_taps(taps) {
    m_taps.clear();
  }
  void Add(std::int64_t column, std::int64_t row, double weight) {
    // Columns beyond an edge belong to the next row in a buffer; kernels reach there at most with a weight of 0.
    if (column >= 0 && column < m_width && row >= 0 && row < m_height) m_taps.push_back({column, row, weight});
  }

 private:
  std::int64_t m_width;
  std::int64_t m_height;
  std::vector<Tap>& m_taps;
};

double NearestValid(double x, double y, const double* band, const CRect& rect) {
  constexpr double kReach = 8.0;
  const auto from = [](double position, int first) {
    return std::max(first, static_cast<int>(std::ceil(position - kReach)));
  };
  const auto to = [](double position, int last) {
    return std::min(last, static_cast<int>(std::floor(position + kReach)));
  };
  double value = 0.0;
  double least = kReach * kReach;
  bool found = false;
  for (int row = from(y, rect.top); row <= to(y, rect.bottom - 1); ++row) {
    const double* samples = band + static_cast<std::ptrdiff_t>(row - rect.top) * rect.Width();
    for (int column = from(x, rect.left); column <= to(x, rect.right - 1); ++column) {
      const double sample = samples[column - rect.left];
      if (std::isnan(sample)) continue;
      const double distance = (column - x) * (column - x) + (row - y) * (row - y);
      if (distance > least || (found && distance == least)) continue;
      least = distance;
      value = sample;
      found = true;
    }
  }
  return value;
}

}  // namespace

void ListTaps(ResampleType type, double x, double y, const CRect& rect, std::vector<Tap>& taps) {
  TapList list(rect, taps);
  VisitKernelAt(type, x, y, rect, [&]<typename Kernel>(Kernel) {
    const auto columns = Kernel::MakeTaps(x, rect.left, rect.Width());
    const auto rows = Kernel::MakeTaps(y, rect.top, rect.Height());
    for (int j = 0; j < Kernel::kTaps; ++j) {
      for (int k = 0; k < Kernel::kTaps; ++k) {
        list.Add(columns.index[k], rows.index[j], rows.weight[j] * columns.weight[k]);
      }
    }
  });
}

double ResampleValid(ResampleType type, double x, double y, const double* band, const CRect& rect) {
  thread_local std::vector<Tap> taps;
  ListTaps(type, x, y, rect, taps);
  double sum = 0.0;
  double weights = 0.0;
  double sizes = 0.0;
  for (const Tap& tap : taps) {
    const double sample = band[tap.row * rect.Width() + tap.column];
    if (std::isnan(sample)) continue;
    sum += tap.weight * sample;
    weights += tap.weight;
    sizes += std::fabs(tap.weight);
  }
  // Beside a gap the weights of a cubic kernel may cancel, and a quotient would blow up what is left.
  constexpr double kCancelled = 0.1;
  return weights > kCancelled * sizes ? sum / weights : NearestValid(x, y, band, rect);
}

}  // namespace fusion
