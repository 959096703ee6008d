#include "highpass/block_filters.h"

#include "platform/utility/log.h"

namespace fusion {

bool BlockFilters::Filter(const CRasterSource& pan, int band, const FilterDescription& filter,
                          std::unique_ptr<platform::FilteredBand>& filtered) {
  const auto kernel = platform::MakeKernel(
      {filter.m_nWidth, filter.m_nHeight, filter.m_nCenterX, filter.m_nCenterY, filter.m_vecCoefficients},
      filter.m_dScale);
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

void LogLine(const char* file, int line, const char* function, const wchar_t* text) {
  if (CLog::m_pLogger) CLog::m_pLogger->WriteLog(2, file, line, function, text);
}

}  // namespace fusion
