#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

#include "platform/statistics/row_statistics.h"
#include "platform/system/workers.h"

namespace platform {

/// Values in a window of a pass over a whole band. The last bits of the figures depend on it.
constexpr std::int64_t kStatisticsWindow = std::int64_t{1} << 20;

/// Folds what make(first, end) makes of the pieces of count values, in their order.
template <typename Make, typename Fold>
void FoldPieces(Workers* workers, std::int64_t count, const Make& make, const Fold& fold) {
  constexpr std::int64_t kPiece = std::int64_t{1} << 16;
  const auto pieces = static_cast<int>((count + kPiece - 1) / kPiece);
  FoldInOrder(
      workers, pieces, [&](int i) { return make(i * kPiece, std::min((i + 1) * kPiece, count)); }, fold);
}

/// Range and moments of a band, of which window after window is added, each row by row.
class BandFigures {
 public:
  /// @param noData value to leave out besides NaN and infinities; NaN for none
  explicit BandFigures(double noData = std::numeric_limits<double>::quiet_NaN())
      : m_moments(noData), m_empty(noData), m_range(noData) {}

  /// What a window comes to.
  struct Part {
    RowStatistics::Pieces pieces;
    RowRange range;

    template <typename Archive>
    void Exchange(Archive& archive) {
      archive(pieces, range);
    }
  };

  /// @param workers who share the values out among them; null: the caller alone
  void Add(const double* values, std::int64_t count, Workers* workers = nullptr) {
    Add(Reduce(values, count, workers));
  }
  void Add(const Part& part) {
    m_moments.Add(part.pieces);
    m_range.Add(part.range);
  }
  Part Reduce(const double* values, std::int64_t count, Workers* workers) const {
    Part whole{{}, m_empty};
    const auto look = [&](std::int64_t first, std::int64_t end) {
      Part part{{}, m_empty};
      // In pieces that stay in the processor's cache for both.
      constexpr std::int64_t kPiece = std::int64_t{1} << 14;
      for (std::int64_t i = first; i < end; i += kPiece) {
        m_moments.Reduce(values + i, std::min(kPiece, end - i), part.pieces);
        part.range.Add(values + i, std::min(kPiece, end - i));
      }
      return part;
    };
    FoldPieces(workers, count, look, [&whole](const Part& part) {
      whole.pieces.insert(whole.pieces.end(), part.pieces.begin(), part.pieces.end());
      whole.range.Add(part.range);
    });
    return whole;
  }

  /// Whether no value counted.
  bool IsEmpty() const { return m_range.IsEmpty(); }
  double Minimum() const { return m_range.Minimum(); }
  double Maximum() const { return m_range.Maximum(); }
  double Mean() const { return m_moments.Mean(); }
  double StdDev() const { return m_moments.StdDev(); }

 private:
  RowStatistics m_moments;
  RowRange m_empty;
  RowRange m_range;
};

}  // namespace platform
