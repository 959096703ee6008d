#include "highpass/block_filters.h"

namespace fusion {

bool BlockFilters::Filter(const CRasterSource& pan, int band, const FilterDescription& filter,
                          std::unique_ptr<platform::FilteredBand>& filtered) {
  const auto kernel = platform::KernelOf(filter);
  if (!kernel) return false;
  filtered = std::make_unique<platform::FilteredBand>(pan, band, *kernel);
  return true;
}

void BlockFilters::MixGreen(const CRasterSource& ms, std::vector<int>& bands) {
  m_mixed = std::make_unique<platform::MixedBands>(ms);
  for (int b = 0, all = bands.empty() ? ms.GetBandCount() : 0; b < all; ++b) bands.push_back(b);
}

BandBuffers::ReadSamples BlockFilters::ReadPan() const {
  return [this](CRasterBand&, int, const CRect& rect, double* values, bool& gaps) {
    return m_pan->Read(rect, values, gaps);
  };
}

BandBuffers::ReadSamples BlockFilters::ReadDetail() const {
  return [this](CRasterBand&, int, const CRect& rect, double* values, bool& gaps) {
    return m_detail->Read(rect, values, gaps);
  };
}

BandBuffers::ReadSamples BlockFilters::ReadMs(const std::vector<int>& bands) const {
  return [this, &bands](CRasterBand&, int i, const CRect& rect, double* values, bool& gaps) {
    return m_mixed->Read(bands[static_cast<std::size_t>(i)], rect, values, gaps);
  };
}

}  // namespace fusion
