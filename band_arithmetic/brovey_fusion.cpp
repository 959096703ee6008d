#include "band_arithmetic/brovey_fusion.h"

#include <cmath>

#include "framework/row_math.h"
#include "framework/shared_division.h"
#include "platform/system/multiversion.h"

namespace {

constexpr double kNothing = 1e-8;

FUSION_MULTIVERSION(bool, AnyIsNothing, (const double* sum, int n), (sum, n)) {
  int found = 0;
  for (int i = 0; i < n; ++i) found |= std::fabs(sum[i]) < kNothing ? 1 : 0;
  return found != 0;
}

/// Where the bands hold nothing each gets an equal share.
void ShareNothing(const double* pan, const double* sum, double bandCount, int n, double* out) {
  for (int i = 0; i < n; ++i) {
    if (std::fabs(sum[i]) < kNothing) out[i] = pan[i] / bandCount;
  }
}

void Brovey(const fusion::FusionRow& row) {
  double* sum = row.scratch[0];
  fusion::SumRows(row.ms, row.outBandCount, row.width, sum);
  fusion::ShareRows(row.ms, row.pan, sum, row.outBandCount, row.width, row.out);
  // Rare, and the second division would cost as much as the first.
  if (!AnyIsNothing(sum, row.width)) return;
  for (int b = 0; b < row.outBandCount; ++b) ShareNothing(row.pan, sum, row.outBandCount, row.width, row.out[b]);
}

fusion::RowMethod MakeRatios(CRowFusion&, const fusion::FusionBlock&) { return {{.scratchRows = 1}, Brovey}; }

}  // namespace

CBroveyFusion::CBroveyFusion(FusionParam* param) : CRowFusion(param, MakeRatios) {
  if (param) m_broveyParam = *param;
}
CBroveyFusion::~CBroveyFusion() = default;
CBroveyFusion::CBroveyFusion(const CBroveyFusion&) = default;
CBroveyFusion& CBroveyFusion::operator=(const CBroveyFusion&) = default;
