#include "highpass/simple_pan_sharpening_fusion.h"

#include <algorithm>
#include <cmath>

#include "platform/system/multiversion.h"

namespace {

FUSION_MULTIVERSION(void, RatioRow, (const double* pan, const double* smooth, int n, double* ratio),
                    (pan, smooth, n, ratio)) {
  for (int i = 0; i < n; ++i) {
    const double quotient = pan[i] / smooth[i];
    ratio[i] = std::fabs(smooth[i]) > 1e-8 ? quotient : 1.0;
  }
}

FUSION_MULTIVERSION(void, ScaleRow, (const double* ratio, const double* ms, const double* pan, int n, double* out),
                    (ratio, ms, pan, n, out)) {
  for (int i = 0; i < n; ++i) out[i] = ratio[i] * ms[i] + pan[i];
}

void Sharpen(const fusion::FusionRow& row) {
  double* ratio = row.scratch[0];
  if (row.detail) {
    RatioRow(row.pan, row.detail, row.width, ratio);
  } else {
    std::fill_n(ratio, row.width, 1.0);
  }
  for (int b = 0; b < row.outBandCount; ++b) ScaleRow(ratio, row.ms[b], row.pan, row.width, row.out[b]);
}

}  // namespace

CSimplePanSharpeningFusion::CSimplePanSharpeningFusion(FusionParam* param) : CHpfFusion(param) {}
CSimplePanSharpeningFusion::~CSimplePanSharpeningFusion() = default;
CSimplePanSharpeningFusion::CSimplePanSharpeningFusion(const CSimplePanSharpeningFusion&) = default;
CSimplePanSharpeningFusion& CSimplePanSharpeningFusion::operator=(const CSimplePanSharpeningFusion&) = default;

GISError CSimplePanSharpeningFusion::Preproccess() { return GIS_SUCCESS; }

GISError CSimplePanSharpeningFusion::StartBolckProcess() { return GIS_SUCCESS; }

void** CSimplePanSharpeningFusion::AlgorithmProcess(double* /*pan*/, CRect* /*panRect*/, double** /*ms*/,
                                                    int /*msBandCount*/, CRect* /*msRect*/, PixelDataType /*outType*/,
                                                    int /*outBandCount*/, CRect* /*dstBlock*/, CRasterAOI* /*aoi*/) {
  return nullptr;
}

void** CSimplePanSharpeningFusion::AlgorithmProcess(double* panBlock, CRect* blockRect, double* smoothBlock,
                                                    double** msBlocks, int msBandCount, CRect* msRect,
                                                    PixelDataType outType, int outBandCount, CRect* readRect,
                                                    CRasterAOI* aoi) {
  fusion::RowPolicy policy;
  policy.scratchRows = 1;
  policy.parallelRows = true;
  return FuseRows(
      {panBlock, blockRect, smoothBlock, msBlocks, msBandCount, msRect, outType, outBandCount, readRect, aoi}, policy,
      Sharpen);
}
