#include "framework/row_fusion.h"

CRowFusion::CRowFusion(FusionParam* param, MakeRowMethod makeRowMethod, const fusion::PositionPolicy& positions)
    : CFusion(param), m_makeRowMethod(makeRowMethod) {
  m_positions = positions;
}
CRowFusion::~CRowFusion() = default;
CRowFusion::CRowFusion(const CRowFusion&) = default;
CRowFusion& CRowFusion::operator=(const CRowFusion&) = default;

void** CRowFusion::AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect,
                                    PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI* aoi) {
  if (!CanFuseRows(outType)) return nullptr;
  const fusion::FusionBlock block{.pan = pan,
                                  .panRect = panRect,
                                  .ms = ms,
                                  .msBandCount = msBandCount,
                                  .msRect = msRect,
                                  .outType = outType,
                                  .outBandCount = outBandCount,
                                  .dstBlock = dstBlock,
                                  .aoi = aoi};
  const fusion::RowMethod method = m_makeRowMethod(*this, block);
  return method.arithmetic ? FuseRows(block, method.policy, method.arithmetic) : nullptr;
}
