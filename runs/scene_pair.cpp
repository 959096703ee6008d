#include "runs/scene_pair.h"

#include <utility>

#include "framework/messages.h"
#include "platform/algorithm/base_algorithm.h"
#include "platform/utility/common_fun.h"
#include "platform/validity/no_data.h"
#include "runs/failures.h"
#include "runs/notices.h"
#include "runs/open_input.h"
#include "runs/same_extent.h"

namespace fusion {
namespace {

std::vector<double> Read(const CRasterSource& source, int band, const CRect& rect) {
  std::vector<double> values(static_cast<std::size_t>(rect.Area()));
  if (rect.Area() > 0 &&
      source.GetRasterBand(band)->ReadBlock(rect.left, rect.top, rect.Width(), rect.Height(), values.data(),
                                            rect.Width(), rect.Height(), PDT_FLOAT64) != 0) {
    throw RunError(ERR_READ, messages::kReadFailed);
  }
  return values;
}

}  // namespace

ScenePair::ScenePair(const PairNames& names, Notices& notices)
    : m_panFile(CommonFun::Utf82U(names.pan)), m_msFile(CommonFun::Utf82U(names.ms)) {
  OpenInput(m_pan, m_panFile);
  OpenInput(m_ms, m_msFile);
  ChooseBands(names);
  if (names.noData) {
    Declare(m_pan, m_panFile, *names.noData);
    Declare(m_ms, m_msFile, *names.noData);
  }
  SettleExtent(names, notices);
  m_pan.SetMaskNoData(true);
  m_ms.SetMaskNoData(true);
}

void ScenePair::Declare(CRasterSource& source, std::wstring& file, double value) {
  if (source.GetRasterBand(0)->IsHaveNoData() || !platform::IsRepresentable(value, source.GetRasterDataType())) return;
  m_views.push_back(std::make_unique<platform::VirtualRaster>(file, std::vector<int>{}, nullptr, nullptr, value));
  file = m_views.back()->Path();
  OpenInput(source, file);
}

void ScenePair::ChooseBands(const PairNames& names) {
  const auto check = [](int band, const CRasterSource& source, const std::string& option, const std::string& image) {
    if (band >= 1 && band <= source.GetBandCount()) return band - 1;
    throw UsageError(option + " " + std::to_string(band) + ": the " + image + " image has bands 1 to " +
                     std::to_string(source.GetBandCount()) + ".");
  };
  m_panBand = check(names.panBand, m_pan, "--pan-band", "pan");
  for (const int band : names.bands) m_bands.push_back(check(band, m_ms, "--bands", "multispectral"));
  for (int b = 0; names.bands.empty() && b < m_ms.GetBandCount(); ++b) {
    if (!m_ms.GetRasterBand(b)->IsAlpha()) m_bands.push_back(b);
  }
  for (const int b : m_bands) {
    const std::string label = CommonFun::U2Utf8(m_ms.GetRasterBand(b)->GetDescription());
    m_labels.push_back(label.empty() ? "band " + std::to_string(b + 1) : label);
  }
}

void ScenePair::SettleExtent(const PairNames& names, Notices& notices) {
  if (names.sameExtent || LooksLikeSameExtent(m_pan, m_ms)) {
    m_placing = names.sameExtent ? Placing::kSameExtent : Placing::kTakenSameExtent;
    if (!names.sameExtent) {
      notices.Add("Neither image has a georeference; they are taken as covering the same ground (--same-extent).");
    }
    m_views.push_back(SpanPan(m_pan, m_ms, m_msFile));
    m_msFile = m_views.back()->Path();
    OpenInput(m_ms, m_msFile);
  } else if (!m_pan.HasGeoTransform() || !m_ms.HasGeoTransform()) {
    m_placing = Placing::kByPixels;
    notices.Add("An image has no georeference; the images are overlaid on their pixel coordinates.");
  }
}

std::vector<double> ScenePair::ReadPan(const CRect& rect) { return Read(m_pan, m_panBand, rect); }

std::vector<std::vector<double>> ScenePair::ReadMs(const CRect& rect) {
  std::vector<std::vector<double>> bands;
  for (const int band : m_bands) bands.push_back(Read(m_ms, band, rect));
  return bands;
}

RegistrationTile ScenePair::ReadTile(const CRect& rect, const PanPositions& positions, const PanGrid& grid) {
  RegistrationTile tile{positions, ReadMs(rect), Registration::Reads(positions, grid), {}};
  tile.pan = ReadPan(tile.panRect);
  return tile;
}

}  // namespace fusion
