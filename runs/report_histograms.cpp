#include "runs/report_histograms.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "framework/messages.h"
#include "framework/overlap.h"
#include "platform/algorithm/base_algorithm.h"
#include "runs/failures.h"

namespace fusion {
namespace {

constexpr std::size_t kColumns = 96;

/// The values of a band in a rectangle, of many of them some that are spread evenly.
std::vector<double> ValuesOf(const CRasterSource& image, int band, const CRect& rect,
                             const std::function<void()>& goOn) {
  constexpr int kMostRows = 512;
  constexpr std::int64_t kMostValues = std::int64_t{1} << 20;
  const int rows = std::min(rect.Height(), kMostRows);
  const int step = static_cast<int>((std::int64_t{rect.Width()} * rows + kMostValues - 1) / kMostValues);
  std::vector<double> samples(static_cast<std::size_t>(rect.Width()));
  std::vector<double> values;
  for (int i = 0; i < rows; ++i) {
    goOn();
    const int y = rect.top + static_cast<int>((2 * std::int64_t{i} + 1) * rect.Height() / (2 * std::int64_t{rows}));
    if (image.GetRasterBand(band)->ReadBlock(rect.left, y, rect.Width(), 1, samples.data(), rect.Width(), 1,
                                             PDT_FLOAT64) != 0) {
      throw RunError(ERR_READ, messages::kReadFailed);
    }
    for (std::size_t x = 0; x < samples.size(); x += static_cast<std::size_t>(step)) {
      if (std::isfinite(samples[x])) values.push_back(samples[x]);
    }
  }
  return values;
}

std::vector<double> Shares(const std::vector<double>& values, double low, double high) {
  std::vector<double> shares(kColumns, 0.0);
  for (const double value : values) {
    if (value < low || value > high) continue;
    const auto column = static_cast<std::size_t>((value - low) / (high - low) * static_cast<double>(kColumns));
    shares[std::min(column, kColumns - 1)] += 1.0 / static_cast<double>(values.size());
  }
  return shares;
}

/// @param after values that have a say in where there is nothing beyond
void SetRange(std::vector<double> values, const std::vector<double>& after, ReportHistogram& histogram) {
  if (values.empty()) {
    histogram.high = 1.0;
    return;
  }
  const auto [first, last] = std::minmax_element(values.begin(), values.end());
  double least = *first;
  double most = *last;
  for (const double value : after) {
    least = std::min(least, value);
    most = std::max(most, value);
  }
  const auto at = [&](double share) {
    const auto n = static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + n, values.end());
    return values[static_cast<std::size_t>(n)];
  };
  constexpr double kTail = 0.005;
  constexpr double kBeyond = 0.05;
  const double low = at(kTail);
  const double high = at(1.0 - kTail);
  histogram.low = std::max(low - kBeyond * (high - low), least);
  histogram.high = std::min(high + kBeyond * (high - low), most);
  if (!(histogram.low < histogram.high)) histogram.high = histogram.low + 1.0;
}

}  // namespace

std::vector<ReportHistogram> MakeHistograms(ScenePair& pair, const FusedSource& image,
                                            const std::function<void()>& goOn) {
  std::vector<ReportHistogram> histograms;
  CRasterSource& ms = pair.Ms();
  bool reprojects = false;
  const std::optional<CRect> common = FindOverlap(ms, *image.raster, reprojects);
  if (!common) return histograms;
  const CRect inMs(std::max(common->left, 0), std::max(common->top, 0), std::min(common->right, ms.GetWidth()),
                   std::min(common->bottom, ms.GetHeight()));
  const CRect whole(0, 0, image.raster->GetWidth(), image.raster->GetHeight());
  for (std::size_t i = 0; i < image.msBands.size(); ++i) {
    const auto chosen = std::find(pair.Bands().begin(), pair.Bands().end(), image.msBands[i] - 1);
    ReportHistogram histogram;
    histogram.band = pair.Labels()[static_cast<std::size_t>(chosen - pair.Bands().begin())];
    const std::vector<double> before = ValuesOf(ms, image.msBands[i] - 1, inMs, goOn);
    const std::vector<double> after = ValuesOf(*image.raster, image.fusedBands[i] - 1, whole, goOn);
    SetRange(before, after, histogram);
    histogram.ms = Shares(before, histogram.low, histogram.high);
    histogram.fused = Shares(after, histogram.low, histogram.high);
    histograms.push_back(std::move(histogram));
  }
  return histograms;
}

}  // namespace fusion
