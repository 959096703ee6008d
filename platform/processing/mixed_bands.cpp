#include "platform/processing/mixed_bands.h"

#include <limits>
#include <vector>

#include "platform/algorithm/stored_row.h"
#include "platform/validity/gap_marks.h"
#include "platform/validity/no_data.h"

namespace platform {
namespace {

double NoDataOfFile(const CRasterSource& source) {
  if (source.IsMaskNoData()) return 0.0;
  const NoDataRule rule = source.GetRasterBand(0)->GetNoDataRule();
  const bool declares = rule.declared && IsRepresentable(rule.value, PDT_FLOAT32);
  return NoDataRule{declares, true, rule.value}.AsRead();
}

}  // namespace

MixedBands::MixedBands(const CRasterSource& source) : m_source(source), m_noData(NoDataOfFile(source)) {
  if (GreenMix::AppliesTo(source)) m_mix = GreenMix(source);
}

bool MixedBands::Read(int band, const CRect& rect, double* values, bool& gaps) const {
  const auto read = [&](int b, double* samples) {
    CRasterBand* source = m_source.GetRasterBand(b);
    return source && source->ReadSamples(rect, samples, gaps) == 0;
  };
  if (!read(band, values)) return false;
  const int width = rect.Width();
  std::vector<double> nearInfrared;
  if (m_mix && band == GreenMix::kGreen) {
    nearInfrared.resize(static_cast<std::size_t>(rect.Area()));
    if (!read(GreenMix::kNearInfrared, nearInfrared.data())) return false;
  }
  const bool masked = m_source.IsMaskNoData();
  StoredRow stored(PDT_FLOAT32, false, masked);
  for (std::ptrdiff_t row = 0; row < rect.Height(); ++row) {
    double* samples = values + row * width;
    if (!nearInfrared.empty()) m_mix->Apply(samples, nearInfrared.data() + row * width, samples, width);
    stored.Pass(samples, nullptr, width);
  }
  gaps = masked && HasGap(values, static_cast<std::size_t>(rect.Area()));
  return true;
}

}  // namespace platform
