#pragma once

#include <optional>

#include "platform/processing/green_mix.h"

namespace platform {

/// The bands of an image after the green mix, read from the image itself: every sample is the one that comes back from
/// the file of 32-bit floats that CMakeGreenAlg makes of the image.
class MixedBands {
 public:
  /// @param source open as long as it is read from
  explicit MixedBands(const CRasterSource& source);

  /// The no-data value that the file would declare for all its bands, as its samples show it; NaN where it declares
  /// none.
  double NoDataSample() const { return m_noData; }
  /// As CRasterBand::ReadSamples, but answers whether it succeeded.
  /// @param band counted from 0
  bool Read(int band, const CRect& rect, double* values, bool& gaps) const;

 private:
  const CRasterSource& m_source;
  std::optional<GreenMix> m_mix;
  double m_noData;
};

}  // namespace platform
