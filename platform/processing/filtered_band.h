#pragma once

#include "platform/processing/kernel_passes.h"

namespace platform {

/// A band after a convolution, read from the band itself: every sample is the one that comes back from the file which
/// CConvolution makes of the band, 32-bit floats, pixels without data marked where the raster masks them.
class FilteredBand {
 public:
  /// @param source open as long as it is read from
  /// @param band counted from 0
  FilteredBand(const CRasterSource& source, int band, const Kernel& kernel);

  /// As CRasterBand::ReadSamples, but answers whether it succeeded. Reads the rectangle and what the kernel reaches
  /// beside it.
  bool Read(const CRect& rect, double* values, bool& gaps) const;

 private:
  const CRasterSource& m_source;
  int m_band;
  Kernel m_kernel;
};

}  // namespace platform
