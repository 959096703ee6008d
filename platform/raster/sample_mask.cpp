#include "platform/raster/sample_mask.h"

#include <gdal_priv.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "platform/raster/gdal_access.h"
#include "platform/system/multiversion.h"

namespace platform {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

FUSION_MULTIVERSION void ClearValue(double value, double* values, std::int64_t count) {
  for (std::int64_t i = 0; i < count; ++i) values[i] = values[i] == value ? kNaN : values[i];
}

void ClearMasked(const double* mask, double* values, std::int64_t count) {
  for (std::int64_t i = 0; i < count; ++i) values[i] = mask[i] == 0.0 ? kNaN : values[i];
}

}  // namespace

GDALRasterBand* ValidityBand(GDALRasterBand& band) {
  const GdalErrors quiet;
  GDALDataset* dataset = band.GetDataset();
  if (band.GetColorInterpretation() == GCI_AlphaBand) return nullptr;
  const int flags = band.GetMaskFlags();
  const bool ownValueOnly = (flags & GMF_NODATA) != 0 && (flags & GMF_PER_DATASET) == 0;
  if ((flags & (GMF_ALL_VALID | GMF_ALPHA)) == 0 && !ownValueOnly) return band.GetMaskBand();
  // Asked itself, since the mask made of it rounds, and since a declared no-data value hides it.
  for (int b = 1; dataset && b <= dataset->GetRasterCount(); ++b) {
    GDALRasterBand* other = dataset->GetRasterBand(b);
    if (other->GetColorInterpretation() == GCI_AlphaBand) return other;
  }
  return nullptr;
}

bool ClearInvalid(GDALRasterBand& band, const CRect& rect, double noData, double* values) {
  if (!std::isnan(noData)) ClearValue(noData, values, rect.Area());
  GDALRasterBand* validity = ValidityBand(band);
  if (!validity) return true;
  const GdalErrors quiet;
  const int width = rect.Width();
  // Some rows at a time, so that the mask takes little memory beside the samples.
  const int step = std::clamp((1 << 18) / width, 1, rect.Height());
  std::vector<double> mask(static_cast<std::size_t>(width) * static_cast<std::size_t>(step));
  for (int row = 0; row < rect.Height(); row += step) {
    const int rows = std::min(step, rect.Height() - row);
    if (validity->RasterIO(GF_Read, rect.left, rect.top + row, width, rows, mask.data(), width, rows, GDT_Float64, 0, 0,
                           nullptr) != CE_None) {
      return false;
    }
    ClearMasked(mask.data(), values + static_cast<std::ptrdiff_t>(row) * width,
                static_cast<std::int64_t>(rows) * width);
  }
  return true;
}

}  // namespace platform
