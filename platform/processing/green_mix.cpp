#include "platform/processing/green_mix.h"

#include "platform/system/multiversion.h"
#include "platform/validity/no_data.h"

namespace platform {
namespace {

FUSION_MULTIVERSION(void, MixRow,
                    (const double* green, const double* nearInfrared, double* out, int width, double greenNoData,
                     double nearInfraredNoData),
                    (green, nearInfrared, out, width, greenNoData, nearInfraredNoData)) {
  for (int i = 0; i < width; ++i) {
    const double g = green[i];
    const double n = nearInfrared[i];
    const double mixed = 0.9 * g + 0.1 * n;
    const bool mixes = IsValidSample(g, greenNoData) && IsValidSample(n, nearInfraredNoData);
    out[i] = mixes ? mixed : g;
  }
}

}  // namespace

GreenMix::GreenMix(const CRasterSource& input)
    : m_greenNoData(NoDataSample(*input.GetRasterBand(kGreen))),
      m_nearInfraredNoData(NoDataSample(*input.GetRasterBand(kNearInfrared))) {}

void GreenMix::Apply(const double* green, const double* nearInfrared, double* out, int width) const {
  MixRow(green, nearInfrared, out, width, m_greenNoData, m_nearInfraredNoData);
}

}  // namespace platform
