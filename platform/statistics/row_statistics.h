#pragma once

#include <cstdint>
#include <limits>
#include <vector>

namespace platform {

/// Running moments of a stream of values: pieces are reduced on their own and merged, so that neither a large mean nor
/// a long stream costs digits (Chan, Golub and LeVeque, Updating formulae and a pairwise algorithm for computing sample
/// variances, 1979).
class RowStatistics {
 public:
  /// @param noData value to leave out besides NaN and infinities; NaN for none
  explicit RowStatistics(double noData = std::numeric_limits<double>::quiet_NaN()) : m_noData(noData) {}

  void Add(const double* values, std::int64_t count);

  /// What a piece of the stream comes to by itself.
  struct Piece {
    double count = 0.0;
    double mean = 0.0;
    double correction = 0.0;  ///< from the mean as it was rounded to the true one
    double squares = 0.0;     ///< sum of squared deviations

    template <typename Archive>
    void Exchange(Archive& archive) {
      archive(count, mean, correction, squares);
    }
  };
  using Pieces = std::vector<Piece>;
  /// Adds what values come to behind the pieces that are there. May be called from several threads.
  void Reduce(const double* values, std::int64_t count, Pieces& pieces) const;
  /// Adds values that were reduced: to the last bit what adding the values themselves would be.
  void Add(const Pieces& pieces);

  std::int64_t Count() const { return m_count; }
  double Mean() const { return m_origin + m_offset; }
  /// Population standard deviation.
  double StdDev() const;

 private:
  Piece Reduced(const double* values, std::int64_t count) const;
  void Add(const Piece& piece);

  double m_noData;
  std::int64_t m_count = 0;
  double m_origin = 0.0;  ///< mean of the first piece: the mean is kept as a difference from it, which has more digits
  double m_offset = 0.0;
  double m_squares = 0.0;  ///< sum of squared deviations from the mean
};

/// Running range of a stream of values, with the same ones left out.
class RowRange {
 public:
  explicit RowRange(double noData = std::numeric_limits<double>::quiet_NaN()) : m_noData(noData) {}

  void Add(const double* values, std::int64_t count);
  void Add(const RowRange& part);

  template <typename Archive>
  void Exchange(Archive& archive) {
    archive(m_minimum, m_maximum);
  }

  bool IsEmpty() const { return m_minimum > m_maximum; }
  double Minimum() const { return m_minimum; }
  double Maximum() const { return m_maximum; }

 private:
  double m_noData;
  double m_minimum = std::numeric_limits<double>::infinity();
  double m_maximum = -std::numeric_limits<double>::infinity();
};

}  // namespace platform
