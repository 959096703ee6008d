#pragma once

#include "platform/raster/raster_aoi.h"
#include "platform/raster/raster_types.h"

namespace fusion {

/// One block as it goes from the block loop to a kernel; the fields are AlgorithmProcess's arguments.
struct FusionBlock {
  double* pan;
  CRect* panRect;
  double* detail;  ///< block of the second detail image, null where the run has none
  double** ms;
  int msBandCount;
  CRect* msRect;
  PixelDataType outType;
  int outBandCount;
  CRect* dstBlock;
  CRasterAOI* aoi;
};

}  // namespace fusion
