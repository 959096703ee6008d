#include "platform/validity/sample_mask.h"

#include <gdal_priv.h>

#include <algorithm>
#include <limits>
#include <vector>

#include "platform/raster/gdal_access.h"
#include "platform/system/multiversion.h"
#include "platform/validity/no_data.h"

namespace platform {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

FUSION_MULTIVERSION(std::int64_t, CountInvalid, (double noData, const double* values, std::int64_t count),
                    (noData, values, count)) {
  std::int64_t invalid = 0;
  for (std::int64_t i = 0; i < count; ++i) invalid += IsValidSample(values[i], noData) ? 0 : 1;
  return invalid;
}

}  // namespace

GDALRasterBand* AlphaBand(GDALDataset* dataset) {
  for (int b = 1; dataset && b <= dataset->GetRasterCount(); ++b) {
    GDALRasterBand* band = dataset->GetRasterBand(b);
    if (band->GetColorInterpretation() == GCI_AlphaBand) return band;
  }
  return nullptr;
}

GDALRasterBand* ValidityBand(GDALRasterBand& band, GDALRasterBand* alpha) {
  const GdalErrors quiet;
  if (band.GetColorInterpretation() == GCI_AlphaBand) return nullptr;
  const int flags = band.GetMaskFlags();
  const bool ownValueOnly = (flags & GMF_NODATA) != 0 && (flags & GMF_PER_DATASET) == 0;
  if ((flags & (GMF_ALL_VALID | GMF_ALPHA)) == 0 && !ownValueOnly) return band.GetMaskBand();
  // Asked itself, since the mask made of it rounds, and since a declared no-data value hides it.
  return alpha;
}

bool ClearNoData(double noData, double* values, std::int64_t count) {
  // Most pieces have nothing to write to; those that have are still in the cache.
  constexpr std::int64_t kPiece = 4096;
  bool gaps = false;
  for (std::int64_t first = 0; first < count; first += kPiece) {
    double* piece = values + first;
    const std::int64_t n = std::min(kPiece, count - first);
    if (CountInvalid(noData, piece, n) == 0) continue;
    gaps = true;
    MarkInvalid(piece, n, noData);
  }
  return gaps;
}

bool ClearMasked(GDALRasterBand& validity, const CRect& rect, double* values, bool& gaps) {
  const GdalErrors quiet;
  const int width = rect.Width();
  // Some rows at a time, so that the mask takes little memory beside the samples.
  const int step = std::clamp((1 << 18) / width, 1, rect.Height());
  std::vector<double> mask(static_cast<std::size_t>(width) * static_cast<std::size_t>(step));
  for (int row = 0, rows = 0; row < rect.Height(); row += rows) {
    rows = std::min(step, rect.Height() - row);
    if (validity.RasterIO(GF_Read, rect.left, rect.top + row, width, rows, mask.data(), width, rows, GDT_Float64, 0, 0,
                          nullptr) != CE_None) {
      return false;
    }
    double* samples = values + static_cast<std::ptrdiff_t>(row) * width;
    const std::ptrdiff_t count = static_cast<std::ptrdiff_t>(rows) * width;
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      if (mask[static_cast<std::size_t>(i)] != 0.0) continue;
      samples[i] = kNaN;
      gaps = true;
    }
  }
  return true;
}

}  // namespace platform
