#include "framework/band_choice.h"

namespace fusion {

void ChooseAllBands(const CRasterSource& ms, std::vector<std::int32_t>& bands) {
  if (!bands.empty()) return;
  for (int b = 0; b < ms.GetBandCount(); ++b) {
    if (!ms.IsMaskNoData() || !ms.GetRasterBand(b)->IsAlpha()) bands.push_back(b);
  }
}

}  // namespace fusion
