#pragma once

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
/// One pass with bounded memory: values are counted in bins of a few thousandths of their size. The order of the values
/// plays no part in which of them are cut, nor in what they come to then.
class ClippedMoments {
 public:
  /// @param noData value to leave out besides NaN and infinities; NaN for none
  explicit ClippedMoments(double noData = std::numeric_limits<double>::quiet_NaN());

  ClippedMoments(ClippedMoments&&) = default;
  ClippedMoments(const ClippedMoments&) = delete;

  void Add(const double* values, std::int64_t count);

  /// How many values lie in each bin, and where.
  class Bins;
  /// What some values come to.
  struct Part {
    RowStatistics::Pieces pieces;
    std::shared_ptr<Bins> bins;

    /// Adds what comes behind.
    void Append(const Part& next);
    template <typename Archive>
    void Exchange(Archive& archive) {
      std::vector<std::uint64_t> packed = PackedBins();
      archive(pieces, packed);
      UnpackBins(packed);
    }

   private:
    std::vector<std::uint64_t> PackedBins() const;
    void UnpackBins(const std::vector<std::uint64_t>& packed);
  };
  /// Adds values to a part, which may begin empty. May be called from several threads, with parts of their own.
  void Reduce(const double* values, std::int64_t count, Part& part) const;
  /// Adds the values of a part: to the last bit what adding the values themselves would be.
  void Add(const Part& part);

  /// Makes the moments those of all that was added.
  void Settle();

  std::int64_t Count() const { return m_all.Count(); }
  double Mean() const { return m_mean; }
  double StdDev() const { return m_stdDev; }
  /// Values that count as lying nearer than they do.
  std::int64_t Outliers() const { return m_outliers; }
  /// The deviation with them as they are, over the one without.
  double Widening() const;

 private:
  /// The mean value of the bin that holds the value of a rank, counted from 0.
  double ValueOfRank(std::int64_t rank) const;

  double m_noData;
  RowStatistics m_all;
  std::shared_ptr<Bins> m_bins;
  double m_mean = 0.0;
  double m_stdDev = 0.0;
  std::int64_t m_outliers = 0;
};

}  // namespace platform
