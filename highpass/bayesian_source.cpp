#include "highpass/bayesian_source.h"

#include <atomic>
#include <cstdint>
#include <stdexcept>

#include "platform/raster/pixel_type.h"
#include "platform/system/second_attempt.h"
#include "platform/utility/common_fun.h"

namespace fusion {
namespace {

std::wstring NameInMemory() {
  static std::atomic<int> count{0};
  return L"/vsimem/fusion_low_pass_" + std::to_wstring(++count) + L".tif";
}

}  // namespace

BayesianSource::BayesianSource(const Origin& origin, PixelDataType lowPassType, const std::wstring& beside, bool partly)
    : m_view(std::make_unique<platform::VirtualRaster>(origin.file, origin.bands, origin.geoTransform, nullptr,
                                                       std::nullopt, origin.northUp)),
      m_bandCount(static_cast<int>(origin.bands.size()) + 1) {
  constexpr std::int64_t kSmall = std::int64_t{32} << 20;  // bytes
  const std::int64_t bytes = std::int64_t{origin.width} * origin.height * platform::PixelSize(lowPassType);
  m_lowPassFile = beside.empty() || bytes <= kSmall ? NameInMemory() : CommonFun::GetTempFilePath(beside + L".tif");
  const std::vector<std::string> options =
      partly ? std::vector<std::string>{"SPARSE_OK=TRUE"} : std::vector<std::string>{};
  const double identity[6] = {0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
  if (m_lowPassFile.empty() || !m_lowPass.CreateRaster(kFormatGeoTiff, m_lowPassFile, origin.width, origin.height, 1,
                                                       lowPassType, identity, L"", options)) {
    CRasterSource::DeleteFileW(m_lowPassFile);
    throw std::runtime_error("cannot keep the low-passed pan image");
  }
}

BayesianSource::~BayesianSource() {
  // What stays is in memory, or in the folder of the run, which goes.
  platform::WithSecondAttempt([this] {
    m_lowPass.Abandon();
    CRasterSource::DeleteFileW(m_lowPassFile);
  });
}

bool BayesianSource::Write(const CRect& rect, const double* values) {
  return m_lowPass.GetRasterBand(0)->WriteBlock(rect.left, rect.top, rect.Width(), rect.Height(), values, rect.Width(),
                                                rect.Height(), PDT_FLOAT64) == 0;
}

bool BayesianSource::Complete() {
  if (!m_lowPass.Close()) return false;
  m_view->AddBand(m_lowPassFile, 0);
  return true;
}

}  // namespace fusion
