#include "runs/highpass_setup.h"

#include <cmath>

#include "framework/messages.h"
#include "highpass/block_hpf.h"
#include "platform/raster/gis_data_source.h"
#include "platform/raster/reproject.h"
#include "runs/failures.h"
#include "runs/fuse.h"
#include "runs/guards.h"

namespace fusion {
namespace {

/// -1 everywhere and n x n - 1 in the centre, over n x n: the pixel less the mean around it.
FilterDescription HighPass(int size) {
  FilterDescription filter;
  filter.m_nWidth = size;
  filter.m_nHeight = size;
  filter.m_nCenterX = size / 2;
  filter.m_nCenterY = size / 2;
  filter.m_dScale = 1.0 / (size * size);
  const auto count = static_cast<std::size_t>(size) * static_cast<std::size_t>(size);
  filter.m_vecCoefficients.assign(count, -1.0);
  filter.m_vecCoefficients[count / 2] = static_cast<double>(count) - 1.0;
  return filter;
}

}  // namespace

int DefaultKernelSize(double ratio) {
  if (ratio < 2.5) return 5;
  if (ratio < 3.5) return 7;
  if (ratio < 5.5) return 9;
  if (ratio < 7.5) return 11;
  return ratio < 9.5 ? 13 : 15;
}

double PixelRatio(const CRasterSource& pan, CRasterSource& ms, bool needsReprojection) {
  CBoundingBox msExtent = CGISDataSource::GetExtent(&ms);
  if (needsReprojection && !CReproject::GetExtent(&ms, pan.GetSpatialReferenceWKT(), msExtent)) {
    throw RunError(ERR_REPROJECT, messages::kReprojectFailed);
  }
  const CBoundingBox panExtent = CGISDataSource::GetExtent(&pan);
  const double msPixel = std::fabs(msExtent.m_dRight - msExtent.m_dLeft) / ms.GetWidth();
  return msPixel / (std::fabs(panExtent.m_dRight - panExtent.m_dLeft) / pan.GetWidth());
}

std::unique_ptr<CBaseAlgorithm> MakeHpf(HpfFusionParam& param, const MethodSetup& setup) {
  constexpr int kSecondSize = 5;
  const FuseRequest& options = setup.request;
  param.m_filter1 = HighPass(options.kernelSize ? *options.kernelSize : DefaultKernelSize(setup.pixelRatio));
  if (options.detailWeight) param.m_dDetailWeight1 = *options.detailWeight;
  param.m_bSecondFilter = options.secondKernelSize || options.secondDetailWeight;
  if (param.m_bSecondFilter) param.m_filter2 = HighPass(options.secondKernelSize.value_or(kSecondSize));
  if (options.secondDetailWeight) param.m_dDetailWeight2 = *options.secondDetailWeight;
  auto fusion = std::make_unique<BlockHpf>(&param);
  fusion->CapDetail(setup.guards.detailCap);
  return fusion;
}

}  // namespace fusion
