#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "platform/raster/raster_types.h"

namespace platform {

/// The exact values at two ranks, one counted from either end, of a stream that is shown several times. Memory does not
/// grow with the stream: each pass settles 16 more bits of an integer that is ordered as the values are (radix
/// selection).
class OrderStatistics {
 public:
  /// @param type of the samples behind the values
  /// @param ratio int(ratio x number of values) of them lie beyond each answer
  OrderStatistics(PixelDataType type, double ratio);

  /// Passes that the values of a type need.
  static int PassCount(PixelDataType type);

  /// Values that are NaN or no-data do not count, nor do those that inside marks with 0 (null counts all).
  void AddRow(const double* values, const unsigned char* inside, int width, double noData);
  /// What the present pass has counted: bins of both ends with values, and how many.
  struct Part {
    std::vector<std::uint32_t> bins[2];
    std::vector<std::int64_t> counts[2];

    template <typename Archive>
    void Exchange(Archive& archive) {
      for (int end = 0; end < 2; ++end) archive(bins[end], counts[end]);
    }
  };
  /// Takes that out.
  Part TakePart();
  void Add(const Part& part);
  /// Begins the present pass anew.
  void Forget();
  /// Every pass must show the same values.
  void EndPass();

  std::int64_t Count() const { return m_count; }
  /// The answers after the last pass; 0 without any value.
  double Low() const { return ValueOf(m_low.key); }
  double High() const { return ValueOf(m_high.key); }

 private:
  struct Target {
    std::uint64_t key = 0;  ///< the bits settled so far
    std::int64_t rank = 0;  ///< among the values that share these bits
    std::vector<std::int64_t> histogram;
  };
  void Tally(std::uint64_t key, Target& target) const;
  void Resolve(Target& target) const;
  double ValueOf(std::uint64_t key) const;

  PixelDataType m_type;
  double m_ratio;
  int m_shift;  ///< of the bits that the present pass settles
  bool m_isFirstPass = true;
  std::int64_t m_count = 0;
  Target m_low;
  Target m_high;
};

}  // namespace platform
