#pragma once

#include <vector>

#include "platform/algorithm/value_conversion.h"

namespace platform {

/// Turns rows of computed doubles into output pixels.
class RowConversion {
 public:
  /// @param round integer types round, half up, instead of truncating
  /// @param marksGaps pixels without data come as NaN and are marked by 0, see StoreGaps
  RowConversion(PixelDataType type, const ValueConversion& conversion, bool round, bool marksGaps);

  /// @param values one row, worked on in place
  /// @param inside 0 marks the pixels outside the area of interest, which become 0; null where all are inside
  void Store(double* values, const unsigned char* inside, int width, unsigned char* out);

 private:
  PixelDataType m_type;
  ValueConversion m_conversion;
  bool m_rounds;
  bool m_marksGaps;
  std::vector<unsigned char> m_valid;
};

}  // namespace platform
