#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "platform/processing/green_mix.h"
#include "platform/statistics/clipped_moments.h"
#include "platform/statistics/row_statistics.h"

namespace platform {

/// Brings bands to target moments, row by row: (v - mean) / deviation * target deviation + target mean, with the band's
/// own moments, taken from rows shown before; a band without spread (below 1e-8) becomes its target mean. No-data
/// values stay and do not count.
class MomentMatching {
 public:
  /// A band of the rows: what it is brought to, and its own moments once they are counted.
  struct Band {
    double noData;  ///< NaN: none
    double targetMean;
    double targetStdDev;
    double mean = 0.0;
    double stdDev = 0.0;
  };

  MomentMatching() = default;
  /// @param mix near infrared is mixed into green first, where given. Near infrared then comes as one more row, behind
  ///   those of the bands, where it is not among them.
  /// @param robust whether the bands' own moments are ClippedMoments
  explicit MomentMatching(std::vector<Band> bands, std::optional<GreenMix> mix, bool robust = false);

  /// What some rows come to.
  struct Part {
    std::vector<RowStatistics::Pieces> pieces;
    std::vector<ClippedMoments::Part> robust;

    /// Adds what comes behind.
    void Append(const Part& next);
    template <typename Archive>
    void Exchange(Archive& archive) {
      archive(pieces, robust);
    }
  };
  /// What a thread works with.
  struct Room {
    std::vector<const double*> rows;
    std::vector<double> mixedGreen;
    std::vector<double> counted;
  };
  /// Adds a row of each band to a part, which may begin empty. May be called from several threads, with rooms and parts
  /// of their own.
  /// @param inside null where the whole row counts, else 0 marks what does not
  void Reduce(const double* const* rows, const unsigned char* inside, int width, Room& room, Part& part) const;
  /// Takes a part into the moments.
  void Add(const Part& part);
  /// Ends the counting.
  void EndCounting();
  /// What robust moments were spared: how many values, and the factor by which they would have widened a deviation.
  std::int64_t Outliers() const { return m_outliers; }
  /// Of the band that has fewest how many values were counted, and of all bands.
  std::int64_t Fewest() const { return m_fewest; }
  std::int64_t Counted() const { return m_counted; }
  double Widening() const { return m_widening; }
  /// Matches a row of each band. May be called from several threads, with rooms of their own.
  void Apply(const double* const* rows, int width, double* const* out, Room& room) const;

 private:
  /// The rows with the mixed green in the place of green.
  const double* const* Mix(const double* const* rows, int width, Room& room) const;
  /// Calls take(values, b) with what counts of each band's row.
  template <typename Take>
  void ForCounted(const double* const* rows, const unsigned char* inside, int width, Room& room,
                  const Take& take) const;

  std::vector<Band> m_bands;
  std::vector<RowStatistics> m_statistics;  ///< one of the two is used
  std::vector<ClippedMoments> m_robust;
  std::int64_t m_outliers = 0;
  std::int64_t m_fewest = std::numeric_limits<std::int64_t>::max();
  std::int64_t m_counted = 0;
  double m_widening = 1.0;
  std::optional<GreenMix> m_mix;
};

}  // namespace platform
