#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "platform/statistics/row_statistics.h"

namespace platform {

/// Running moments of a stream of values that single ones far beyond all others do not decide: a value that lies
/// farther beyond the permille at either end of the distribution than these two lie apart counts as lying just there.
/// Without such values the moments are those of RowStatistics to the last bit.
///
/// One pass with bounded memory: values are counted in bins of a thousandth of their size. The order of the values
/// plays no part in which of them are cut.
class ClippedMoments {
 public:
  /// @param noData value to leave out besides NaN and infinities; NaN for none
  explicit ClippedMoments(double noData = std::numeric_limits<double>::quiet_NaN());

  void Add(const double* values, std::int64_t count);
  /// Makes the moments those of all that was added.
  void Settle();

  double Mean() const { return m_mean; }
  double StdDev() const { return m_stdDev; }
  /// Values that count as lying nearer than they do.
  std::int64_t Outliers() const { return m_outliers; }
  /// The deviation with them as they are, over the one without.
  double Widening() const;

 private:
  struct Bin {
    double sum = 0.0;
    std::int64_t count = 0;
    double Mean() const { return sum / static_cast<double>(count); }
  };
  // Bins of one sign and power of two, made when the first value comes.
  static constexpr int kBinBits = 10;
  static constexpr int kPageBits = 12;
  using Page = std::array<Bin, 1U << kBinBits>;

  /// The mean value of the bin that holds the value of a rank, counted from 0.
  double ValueOfRank(std::int64_t rank) const;
  template <typename Visit>
  void ForBins(const Visit& visit) const;

  double m_noData;
  RowStatistics m_all;
  std::vector<std::unique_ptr<Page>> m_pages;
  double m_mean = 0.0;
  double m_stdDev = 0.0;
  std::int64_t m_outliers = 0;
};

}  // namespace platform
