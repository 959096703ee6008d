#include "band_arithmetic/brovey_fusion.h"

#include <cmath>

#include "framework/row_math.h"
#include "platform/system/multiversion.h"

namespace {

FUSION_MULTIVERSION
void ShareRow(const double* ms, const double* pan, const double* sum, double bandCount, int n, double* out) {
  for (int i = 0; i < n; ++i) {
    const double share = ms[i] * pan[i] / sum[i];
    out[i] = std::fabs(sum[i]) < 1e-8 ? pan[i] / bandCount : share;
  }
}

void Brovey(const fusion::FusionRow& row) {
  double* sum = row.scratch[0];
  fusion::ClearRow(row.width, sum);
  for (int b = 0; b < row.outBandCount; ++b) fusion::AddRow(row.ms[b], row.width, sum);
  for (int b = 0; b < row.outBandCount; ++b) ShareRow(row.ms[b], row.pan, sum, row.outBandCount, row.width, row.out[b]);
}

}  // namespace

CBroveyFusion::CBroveyFusion(FusionParam* param) : CFusion(param) {
  if (param) m_broveyParam = *param;
}
CBroveyFusion::~CBroveyFusion() = default;
CBroveyFusion::CBroveyFusion(const CBroveyFusion&) = default;
CBroveyFusion& CBroveyFusion::operator=(const CBroveyFusion&) = default;

void** CBroveyFusion::AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect,
                                       PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI* aoi) {
  fusion::RowPolicy policy;
  policy.scratchRows = 1;
  return FuseRows({pan, panRect, nullptr, ms, msBandCount, msRect, outType, outBandCount, dstBlock, aoi}, policy,
                  Brovey);
}
