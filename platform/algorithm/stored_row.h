#pragma once

#include <vector>

#include "platform/algorithm/row_conversion.h"

namespace platform {

/// What a row of computed values is when it comes back from a file that a stage has written it to.
class StoredRow {
 public:
  /// @param type of the file's samples
  /// @param round, masked as a RowConversion takes them; a masked file comes back with NaN where it marks no data
  StoredRow(PixelDataType type, bool round, bool masked);

  /// @param inside as in RowConversion::Store
  void Pass(double* values, const unsigned char* inside, int width);

 private:
  PixelDataType m_type;
  bool m_masked;
  RowConversion m_store;
  std::vector<unsigned char> m_pixels;
};

/// Samples of a file as doubles; masked: NaN where they are 0, which marks pixels without data there.
void LoadRow(PixelDataType type, const void* pixels, bool masked, double* values, int width);

}  // namespace platform
