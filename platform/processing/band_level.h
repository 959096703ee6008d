#pragma once

#include <optional>

#include "platform/statistics/order_statistics.h"

namespace platform {

/// The level adjustment of a band, row by row: cuts int(ratio x N) of its N valid values off each end and maps the rest
/// linearly to a range. The values are shown several times before. No-data values stay and do not count.
class BandLevel {
 public:
  /// @param type of the samples behind the values
  /// @param noData NaN: none
  BandLevel(PixelDataType type, double noData, double ratio);

  /// How often all values must be shown.
  int PassCount() const { return OrderStatistics::PassCount(m_type); }
  /// Takes a row into the present pass; inside is null where the whole row counts, else 0 marks what does not.
  void Count(const double* values, const unsigned char* inside, int width);
  /// What the present pass has counted; takes that out, or adds it.
  OrderStatistics::Part TakePart();
  void Add(const OrderStatistics::Part& part);
  /// Begins the present pass anew.
  void Forget() {
    if (m_order) m_order->Forget();
  }
  void EndPass();
  /// Adjusts a row, after the last pass, to the range of a type: what it can hold, 0 to 1 for the float types. out may
  /// be values.
  void Apply(const double* values, int width, PixelDataType outType, double* out) const;

 private:
  OrderStatistics& Order();

  PixelDataType m_type;
  double m_noData;
  double m_ratio;
  int m_passes = 0;  ///< done
  std::optional<OrderStatistics> m_order;
  double m_low = 0.0;
  double m_high = 0.0;
};

}  // namespace platform
