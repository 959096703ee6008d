#pragma once

#include "platform/raster/raster_types.h"
#include "platform/validity/raster_aoi.h"

namespace fusion {

/// One block as it goes from a run to a kernel; the fields are AlgorithmProcess's arguments.
struct FusionBlock {
  double* pan = nullptr;
  CRect* panRect = nullptr;
  double* detail = nullptr;  ///< block of the second detail image, null where the run has none
  double** ms = nullptr;
  int msBandCount = 0;
  CRect* msRect = nullptr;
  PixelDataType outType = PDT_UNKNOWN;
  int outBandCount = 0;
  CRect* dstBlock = nullptr;
  CRasterAOI* aoi = nullptr;
};

}  // namespace fusion
