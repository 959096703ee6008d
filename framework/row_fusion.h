#pragma once

#include "framework/fusion.h"
#include "framework/row_method.h"

/// Base of the fusions that work row by row: they give the arithmetic on a row of resampled pixels, everything else of
/// AlgorithmProcess (resampling, no-data, the area of interest, the output type) is done here.
class FUSION_API CRowFusion : public CFusion {
 public:
  ~CRowFusion() override;
  CRowFusion(const CRowFusion&);
  CRowFusion& operator=(const CRowFusion&);

  void** AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect,
                          PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI* aoi) override;

 protected:
  /// Makes the method for a block of the fusion. A function and no virtual operation: the slots of those are published.
  using MakeRowMethod = fusion::RowMethod (*)(CRowFusion& self, const fusion::FusionBlock& block);

  CRowFusion(FusionParam* param, MakeRowMethod makeRowMethod, const fusion::PositionPolicy& positions = {});

 private:
  MakeRowMethod m_makeRowMethod;
};
