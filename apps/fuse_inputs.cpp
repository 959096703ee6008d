#include "apps/fuse_inputs.h"

#include <algorithm>

#include "apps/exit_status.h"
#include "apps/open_input.h"
#include "apps/same_extent.h"
#include "band_arithmetic/brovey_fusion.h"
#include "framework/messages.h"
#include "platform/raster/coordinate_algorithm.h"
#include "platform/raster/gap_search.h"
#include "platform/raster/no_data.h"
#include "platform/utility/common_fun.h"

namespace app {
namespace {

namespace messages = fusion::messages;

std::unique_ptr<platform::VirtualRaster> View(const std::wstring& file, const std::vector<int>& bands) {
  return std::make_unique<platform::VirtualRaster>(file, bands, nullptr, nullptr);
}

}  // namespace

FuseInputs::FuseInputs(const FuseOptions& options, const CheckedOptions& checked, Notices& notices,
                       const CBaseProgress& progress)
    : m_options(options),
      m_notices(notices),
      m_panFile(CommonFun::Utf82U(options.pan)),
      m_msFile(CommonFun::Utf82U(options.ms)) {
  CRasterSource pan;
  CRasterSource ms;
  OpenInput(pan, m_panFile);
  OpenInput(ms, m_msFile);
  m_msType = ms.GetRasterDataType();
  CheckArea(pan);
  SettleNoData(pan, ms, progress);
  CheckBands(*checked.method, pan.GetBandCount(), ms.GetBandCount());
  m_chosen = ChosenBands(ms);
  // Of the file itself: a view through which a rotated image is seen keeps hardly any of it.
  CRasterSource plain;
  if (plain.OpenSimple(m_msFile)) m_description = platform::RasterDescription(plain, m_chosen);

  const bool sameExtent = LooksLikeSameExtent(pan, ms);
  if (options.sameExtent || sameExtent) {
    if (!options.sameExtent) {
      m_notices.Add("Neither image has a georeference; they are taken as covering the same ground (--same-extent).");
    }
    m_views.push_back(SpanPan(pan, ms, m_msFile));
    m_msFile = m_views.back()->Path();
  } else if (!pan.HasGeoTransform() || !ms.HasGeoTransform()) {
    m_notices.Add("An image has no georeference; the images are overlaid on their pixel coordinates.");
  }

  // Where a method works on whole files, the choice of bands must be one, and the green mix of the pipelines does, too.
  // Alpha is no band for any method.
  const bool wholeFile = checked.method->wholeFileBands || (checked.method->isPipeline && options.makeGreen);
  if ((wholeFile && !options.bands.empty()) || m_leavesOutAlpha) {
    m_views.push_back(View(m_msFile, m_bands));
    m_msFile = m_views.back()->Path();
    m_bands.clear();
  }
  if (checked.method->isPipeline && m_panBand != 0) {
    m_views.push_back(View(m_panFile, {m_panBand}));
    m_panFile = m_views.back()->Path();
    m_panBand = 0;
  }

  OpenInput(pan, m_panFile);
  OpenInput(ms, m_msFile);
  if (!CCoordinateAlgorithm::IsNeededProject(m_panFile, m_msFile, m_needReproject)) {
    throw RunError(ERR_OPEN, messages::OpenFailed(m_panFile));
  }
  CRect overlap;
  bool reproject = false;
  if (!CBroveyFusion(nullptr).GetOutRect(&pan, &ms, overlap, reproject, false)) {
    throw RunError(ERR_NONE, messages::kWrongExtent);
  }
  if (!options.window.empty()) {
    CutWindow(pan, overlap);
    if (options.statistics == "scene") m_scene = overlap;
  }
  CheckValidPixels();
}

/// A run that computes something beforehand would find an area that is none too late.
void FuseInputs::CheckArea(const CRasterSource& pan) const {
  if (m_options.aoi.empty()) return;
  const std::wstring file = CommonFun::Utf82U(m_options.aoi);
  CRasterAOI area;
  if (!area.Load(file, pan)) throw OpenError(file, area.GetLoadFailure());
}

void FuseInputs::SettleNoData(CRasterSource& pan, CRasterSource& ms, const CBaseProgress& progress) {
  if (m_options.noDataMask == "off") return;
  if (m_options.noData) {
    Declare(pan, m_panFile);
    Declare(ms, m_msFile);
  }
  std::vector<int> chosen;
  for (int b = 0; b < ms.GetBandCount(); ++b) {
    const auto& bands = m_options.bands;
    if (bands.empty() || std::find(bands.begin(), bands.end(), b + 1) != bands.end()) chosen.push_back(b);
  }
  const auto lacksSamples = [&](CRasterSource& source, const std::vector<int>& bands) {
    const bool says = std::any_of(bands.begin(), bands.end(), [&](int b) {
      const CRasterBand* band = source.GetRasterBand(b);
      return band && (band->IsHaveNoData() || band->HasMask());
    });
    if (says) return true;
    // Samples of a float type may be no numbers, which only a look at them tells.
    source.SetMaskNoData(true);
    return platform::HasGaps(source, bands, progress);
  };
  const bool told = m_options.noDataMask == "on" || m_options.noData;
  const bool gaps = !told && (lacksSamples(pan, {m_options.panBand - 1}) || lacksSamples(ms, chosen));
  const bool area = !m_options.aoi.empty();
  m_maskNoData = told || gaps || area;
  if (!m_maskNoData) return;
  if (m_options.noDataMask == "auto" && (gaps || told)) {
    m_notices.Add(
        "Pixels without data are left out of everything and written as no-data 0 (--nodata-mask off for raw values).");
  } else if (m_options.noDataMask == "auto") {
    m_notices.Add("Outside the area of interest lies no data, written as no-data 0 (--nodata-mask off for a plain 0).");
  }
  m_leavesOutAlpha = m_options.bands.empty() &&
                     std::any_of(chosen.begin(), chosen.end(), [&](int b) { return ms.GetRasterBand(b)->IsAlpha(); });
  for (int b = 0; m_leavesOutAlpha && b < ms.GetBandCount(); ++b) {
    if (!ms.GetRasterBand(b)->IsAlpha()) m_bands.push_back(b);
  }
}

/// Values that the samples cannot have need no declaration.
void FuseInputs::Declare(CRasterSource& source, std::wstring& file) {
  const double value = *m_options.noData;
  if (source.GetRasterBand(0)->IsHaveNoData() || !platform::IsRepresentable(value, source.GetRasterDataType())) return;
  m_views.push_back(
      std::make_unique<platform::VirtualRaster>(file, std::vector<int>{}, nullptr, nullptr, std::optional(value)));
  file = m_views.back()->Path();
  OpenInput(source, file);
}

void FuseInputs::Open(CRasterSource& source, const std::wstring& file) const {
  OpenInput(source, file);
  source.SetMaskNoData(m_maskNoData);
  source.SetReadAhead(true);
}

void FuseInputs::CheckBands(const Method& method, int panBandCount, int msBandCount) {
  if (m_options.panBand < 1 || m_options.panBand > panBandCount) {
    throw UsageError("--pan-band " + std::to_string(m_options.panBand) + ": the pan image has bands 1 to " +
                     std::to_string(panBandCount) + ".");
  }
  m_panBand = m_options.panBand - 1;
  for (const int band : m_options.bands) {
    if (band < 1 || band > msBandCount) {
      throw UsageError("--bands " + std::to_string(band) + ": the multispectral image has bands 1 to " +
                       std::to_string(msBandCount) + ".");
    }
    m_bands.push_back(band - 1);
  }
  const int chosen = m_bands.empty() ? msBandCount : static_cast<int>(m_bands.size());
  if (chosen < method.minimumBands) {
    throw UsageError("Method " + std::string(method.name) + " needs at least " + std::to_string(method.minimumBands) +
                     " multispectral bands, " + std::to_string(chosen) + (chosen == 1 ? " is" : " are") + " chosen.");
  }
  constexpr int kGreenMixBands = 4;
  if (m_options.makeGreen && chosen < kGreenMixBands) {
    throw UsageError("--make-green mixes the fourth of the bands, near infrared, into the second, green; " +
                     std::to_string(chosen) + (chosen == 1 ? " is" : " are") + " chosen.");
  }
  for (const int position : m_options.rgb) {
    if (position < 1 || position > chosen) {
      throw UsageError("--rgb " + std::to_string(position) + ": there are positions 1 to " + std::to_string(chosen) +
                       ".");
    }
  }
}

std::vector<int> FuseInputs::ChosenBands(const CRasterSource& ms) const {
  std::vector<int> bands = m_bands;
  for (int b = 0; m_bands.empty() && b < ms.GetBandCount(); ++b) bands.push_back(b);
  return bands;
}

void FuseInputs::CutWindow(const CRasterSource& pan, const CRect& overlap) {
  const auto& w = m_options.window;
  const auto edge = [](int start, int size) {
    return static_cast<int>(std::clamp<std::int64_t>(static_cast<std::int64_t>(start) + size, INT32_MIN, INT32_MAX));
  };
  const CRect wanted(w[0], w[1], edge(w[0], w[2]), edge(w[1], w[3]));
  m_window = CRect(std::max({wanted.left, overlap.left, 0}), std::max({wanted.top, overlap.top, 0}),
                   std::min({wanted.right, overlap.right, pan.GetWidth()}),
                   std::min({wanted.bottom, overlap.bottom, pan.GetHeight()}));
  if (m_window.Area() == 0) throw UsageError("--window: nothing of it lies where both images have data.");
  if (!(m_window == wanted)) {
    m_notices.Add("--window is cut to where both images have data: " + std::to_string(m_window.left) + "," +
                  std::to_string(m_window.top) + "," + std::to_string(m_window.Width()) + "," +
                  std::to_string(m_window.Height()) + ".");
  }
}

void FuseInputs::CheckValidPixels() const {
  CRasterSource pan;
  CRasterSource ms;
  Open(pan, m_panFile);
  Open(ms, m_msFile);
  const auto check = [](CRasterBand* band, const std::string& name) {
    if (band && band->HasValidPixel()) return;
    throw RunError(ERR_STATISTICS, L"", name + " has no valid pixel or cannot be read.");
  };
  check(pan.GetRasterBand(m_panBand), "The pan image");
  for (const int b : ChosenBands(ms)) check(ms.GetRasterBand(b), "Multispectral band " + std::to_string(b + 1));
}

void FuseInputs::FillParam(FusionParam& param) const {
  param.m_strPanFile = m_panFile;
  param.m_strMSFile = m_msFile;
  param.m_nPanBand = m_panBand;
  param.m_vecMSBands.assign(m_bands.begin(), m_bands.end());
  param.m_rcProcess = m_window;
  param.m_rcScene = m_scene;
  param.m_bNeedReproject = m_needReproject;
  param.m_bMaskNoData = m_maskNoData;
}

CRect FuseInputs::PartOf(const std::wstring& file) const {
  if (!IsPart()) return {};
  CRasterSource pan;
  CRasterSource raster;
  OpenInput(pan, m_panFile);
  OpenInput(raster, file);
  return raster.GroundToImage(pan.ImageToGround(m_window));
}

void FuseInputs::ComputeTargets(std::vector<double>& means, std::vector<double>& stdDevs,
                                CBaseProgress& progress) const {
  CRasterSource ms;
  Open(ms, m_msFile);
  for (const int b : ChosenBands(ms)) {
    double minimum = 0.0;
    double maximum = 0.0;
    double mean = 0.0;
    double stdDev = 0.0;
    if (!ms.GetRasterBand(b)->ComputeStatics(&minimum, &maximum, &mean, &stdDev, true, &progress)) {
      if (progress.IsCancelRequested()) throw RunError(ERR_CANCELLED, messages::kCancelled);
      throw RunError(ERR_STATISTICS, messages::kMsStatisticsFailed);
    }
    means.push_back(mean);
    stdDevs.push_back(stdDev);
  }
}

}  // namespace app
