#include "runs/fuse_inputs.h"

#include <algorithm>

#include "framework/match_targets.h"
#include "framework/messages.h"
#include "framework/overlap.h"
#include "framework/run/block_buffers.h"
#include "platform/raster/pixel_type.h"
#include "platform/statistics/clipped_moments.h"
#include "platform/statistics/survey.h"
#include "platform/utility/common_fun.h"
#include "platform/validity/gap_search.h"
#include "platform/validity/no_data.h"
#include "runs/failures.h"
#include "runs/highpass_setup.h"
#include "runs/open_input.h"
#include "runs/output_notes.h"
#include "runs/room.h"
#include "runs/same_extent.h"
#include "runs/survey_subject.h"
#include "runs/text.h"

namespace fusion {
namespace {

std::unique_ptr<platform::VirtualRaster> View(const std::wstring& file, const std::vector<int>& bands) {
  return std::make_unique<platform::VirtualRaster>(file, bands, nullptr, nullptr);
}

/// A rotated image is seen through a view of another size.
std::string SizeOf(const CRasterSource& image) {
  if (!image.IsNorthUpView()) return SizeText(image);
  CRasterSource plain;
  return plain.OpenSimple(image.GetPath()) ? SizeText(plain) : std::string();
}

/// Corrects a band's moments where single values decide them. False after a failed read or a cancellation.
bool MeasureRobustly(const CRasterSource& source, int index, double& mean, double& stdDev,
                     const CBaseProgress& progress) {
  constexpr int kRows = 128;
  using Part = platform::ClippedMoments::Part;
  CRasterBand& band = *source.GetRasterBand(index);
  platform::ClippedMoments moments(platform::NoDataSample(band));
  const auto fold = [&moments](const Part& part) { moments.Add(part); };
  const platform::SurveyPass pass =
      source.Pass("band " + std::to_string(index + 1) + " robust moments", BlockGrid::Pieces(band.GetHeight(), kRows));
  std::vector<double> values;
  for (const std::int64_t piece : pass.Pieces()) {
    const int top = static_cast<int>(piece) * kRows;
    const CRect rows(0, top, band.GetWidth(), std::min(top + kRows, band.GetHeight()));
    values.resize(static_cast<std::size_t>(rows.Area()));
    bool gaps = false;
    if (progress.IsCancelRequested() || band.ReadSamples(rows, values.data(), gaps) != 0) return false;
    Part part;
    moments.Reduce(values.data(), rows.Area(), part);
    pass.Take(piece, part, fold);
  }
  if (!pass.End<Part>(fold)) return true;
  moments.Settle();
  if (moments.Outliers() == 0) return true;
  mean = moments.Mean();
  stdDev = moments.StdDev();
  return true;
}

}  // namespace

FuseInputs::FuseInputs(const FuseRequest& options, const CheckedRequest& checked, Notices& notices,
                       const CBaseProgress& progress)
    : m_options(options),
      m_checked(checked),
      m_notices(notices),
      m_msImage(options.ms, options.moreMs, options.pan),
      m_panFile(CommonFun::Utf82U(options.pan)),
      m_msFile(CommonFun::Utf82U(m_msImage.Path())) {
  OpenInput(m_pan, m_panFile);
  OpenInput(m_ms, m_msFile);
  m_panSize = SizeOf(m_pan);
  m_msSize = SizeOf(m_ms);
  m_msType = m_ms.GetRasterDataType();
  if (checked.survey) CheckSurvey();
  CheckArea();
  CheckRoom(checked.type == PDT_UNKNOWN ? m_msType : checked.type);
  SettleNoData(progress);
  CheckBands(*checked.method);
  m_chosen = ChosenBands();
  Describe();
  SettleExtent();
  ChooseFiles(*checked.method);
  if (m_pan.GetPath() != m_panFile) OpenInput(m_pan, m_panFile);
  if (m_ms.GetPath() != m_msFile) OpenInput(m_ms, m_msFile);
  for (CRasterSource* source : {&m_pan, &m_ms}) {
    source->SetMaskNoData(m_maskNoData);
    source->SetReadAhead(true);
    source->SetWorkers(checked.workers.get());
    source->SetSurvey(checked.survey.get(), source == &m_pan ? "pan" : "multispectral");
  }

  const std::optional<CRect> overlap = FindOverlap(m_pan, m_ms, m_needReproject);
  if (overlap) {
    CheckPixelSizes();
    m_area = {std::max(overlap->left, 0), std::max(overlap->top, 0), std::min(overlap->right, m_pan.GetWidth()),
              std::min(overlap->bottom, m_pan.GetHeight())};
  }
  if (m_area.Area() == 0) throw RunError(ERR_NONE, messages::kWrongExtent);
  if (!options.window.empty()) {
    CutWindow(*overlap);
    m_area = m_window;
    if (checked.sceneStatistics) m_scene = *overlap;
  }
  if (!options.rows.empty() || checked.survey) CutRows(*overlap);
  if (checked.method->Takes(kTakesKernels) && !options.kernelSize) {
    m_pixelRatio = fusion::PixelRatio(m_pan, m_ms, m_needReproject);
  }
  // An area of interest may be much smaller than the ground around it.
  if (options.aoi.empty()) {
    CheckMemory(m_area, static_cast<int>(m_chosen.size()), checked.type == PDT_UNKNOWN ? m_msType : checked.type);
  }
  CheckValidPixels();
}

void FuseInputs::CheckRoom(PixelDataType type) {
  // A look at fewer samples is over soon, and a window or an area of interest may be small.
  constexpr std::int64_t kLongLook = std::int64_t{1} << 32;
  const auto takesLong = [](const CRasterSource& source) {
    return platform::IsFloatType(source.GetRasterDataType()) &&
           std::int64_t{source.GetWidth()} * source.GetHeight() > kLongLook;
  };
  if ((!takesLong(m_pan) && !takesLong(m_ms)) || !m_options.window.empty() || !m_options.aoi.empty()) return;
  const std::optional<CRect> overlap = FindOverlap(m_pan, m_ms, m_needReproject);
  if (!overlap || overlap->Area() == 0) return;
  const int bands = m_options.bands.empty() ? 1 : static_cast<int>(m_options.bands.size());
  CheckMemory(*overlap, bands, type);
  CheckDisk(*overlap, bands, type, m_options);
}

void FuseInputs::Close() {
  m_pan.Close();
  m_ms.Close();
}

void FuseInputs::Describe() {
  if (!m_ms.IsNorthUpView()) {
    m_description = platform::RasterDescription(m_ms, m_chosen);
    return;
  }
  // A view through which a rotated image is seen keeps hardly any of it.
  CRasterSource plain;
  if (plain.OpenSimple(m_msFile)) m_description = platform::RasterDescription(plain, m_chosen);
}

void FuseInputs::SettleExtent() {
  if (m_options.sameExtent || LooksLikeSameExtent(m_pan, m_ms)) {
    if (!m_options.sameExtent) {
      m_notices.Add("Neither image has a georeference; they are taken as covering the same ground (--same-extent).");
    }
    LookThrough(SpanPan(m_pan, m_ms, m_msFile), m_msFile);
  } else if (!m_pan.HasGeoTransform() || !m_ms.HasGeoTransform()) {
    m_notices.Add("An image has no georeference; the images are overlaid on their pixel coordinates.");
  }
}

void FuseInputs::ChooseFiles(const Method& method) {
  // Where a method works on whole files, the choice of bands must be one, and its green mix does, too. Alpha is no band
  // for any method.
  const bool wholeFile = method.wholeFileBands || (method.mixesGreen && m_options.makeGreen);
  if ((wholeFile && !m_options.bands.empty()) || m_leavesOutAlpha) {
    LookThrough(View(m_msFile, m_bands), m_msFile);
    m_bands.clear();
  }
}

void FuseInputs::LookThrough(std::unique_ptr<platform::VirtualRaster> view, std::wstring& file) {
  m_views.push_back(std::move(view));
  file = m_views.back()->Path();
}

/// A run that computes something beforehand would find an area that is none too late.
void FuseInputs::CheckArea() {
  if (m_options.aoi.empty()) return;
  const std::wstring file = CommonFun::Utf82U(m_options.aoi);
  CRasterAOI area;
  if (!area.Load(file, m_pan)) throw OpenError(file, area.GetLoadFailure());
  m_aoi = area.GetCoveringRect();
}

void FuseInputs::SettleNoData(const CBaseProgress& progress) {
  const bool isAsked = m_options.noDataMask == "on" || m_options.noData;
  if (m_options.noDataMask == "off" || (m_options.asPublished && !isAsked)) return;
  if (m_options.noData) {
    Declare(m_pan, m_panFile);
    Declare(m_ms, m_msFile);
  }
  std::vector<int> chosen;
  for (int b = 0; b < m_ms.GetBandCount(); ++b) {
    const auto& bands = m_options.bands;
    if (bands.empty() || std::find(bands.begin(), bands.end(), b + 1) != bands.end()) chosen.push_back(b);
  }
  const std::pair<CRasterSource*, std::vector<int>> looked[] = {{&m_pan, {m_options.panBand - 1}}, {&m_ms, chosen}};
  const auto anyBand = [&](const auto& is) {
    return std::any_of(std::begin(looked), std::end(looked), [&](const auto& image) {
      return std::any_of(image.second.begin(), image.second.end(), [&](int b) {
        const CRasterBand* band = image.first->GetRasterBand(b);
        return band && is(*band);
      });
    });
  };
  const bool told = m_options.noDataMask == "on" || m_options.noData;
  bool gaps = !told && anyBand([](const CRasterBand& band) { return band.IsHaveNoData() || band.HasMask(); });
  if (!told && !gaps) {
    // Samples of a float type may be no numbers, which only a look at them tells.
    for (const auto& [source, bands] : looked) source->SetMaskNoData(true);
    const auto take = [&gaps](bool found) { gaps = found; };
    // One piece, since the look ends at the first sample that is missing.
    const bool mayBe = anyBand([](const CRasterBand& band) { return band.MayHoldGaps(); });
    const platform::SurveyPass pass(m_checked.survey.get(), "gaps", mayBe ? 1 : 0);
    for (const std::int64_t piece : pass.Pieces()) {
      bool found = platform::HasGaps(m_pan, looked[0].second, progress) || platform::HasGaps(m_ms, chosen, progress);
      pass.Take(piece, found, take);
    }
    if (!pass.End<bool>(take)) return;
  }
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
                     std::any_of(chosen.begin(), chosen.end(), [&](int b) { return m_ms.GetRasterBand(b)->IsAlpha(); });
  for (int b = 0; m_leavesOutAlpha && b < m_ms.GetBandCount(); ++b) {
    if (!m_ms.GetRasterBand(b)->IsAlpha()) m_bands.push_back(b);
  }
}

/// Values that the samples cannot have need no declaration.
void FuseInputs::Declare(CRasterSource& source, std::wstring& file) {
  const double value = *m_options.noData;
  if (source.GetRasterBand(0)->IsHaveNoData() || !platform::IsRepresentable(value, source.GetRasterDataType())) return;
  LookThrough(
      std::make_unique<platform::VirtualRaster>(file, std::vector<int>{}, nullptr, nullptr, std::optional(value)),
      file);
  OpenInput(source, file);
}

void FuseInputs::CheckBands(const Method& method) {
  const int panBandCount = m_pan.GetBandCount();
  const int msBandCount = m_ms.GetBandCount();
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

std::vector<int> FuseInputs::ChosenBands() const {
  std::vector<int> bands = m_bands;
  for (int b = 0; m_bands.empty() && b < m_ms.GetBandCount(); ++b) bands.push_back(b);
  return bands;
}

void FuseInputs::CutWindow(const CRect& overlap) {
  const auto& w = m_options.window;
  const auto edge = [](int start, int size) {
    return static_cast<int>(std::clamp<std::int64_t>(static_cast<std::int64_t>(start) + size, INT32_MIN, INT32_MAX));
  };
  const CRect wanted(w[0], w[1], edge(w[0], w[2]), edge(w[1], w[3]));
  m_window = CRect(std::max({wanted.left, overlap.left, 0}), std::max({wanted.top, overlap.top, 0}),
                   std::min({wanted.right, overlap.right, m_pan.GetWidth()}),
                   std::min({wanted.bottom, overlap.bottom, m_pan.GetHeight()}));
  if (m_window.Area() == 0) throw UsageError("--window: nothing of it lies where both images have data.");
  if (!(m_window == wanted)) {
    m_notices.Add("--window is cut to where both images have data: " + std::to_string(m_window.left) + "," +
                  std::to_string(m_window.top) + "," + std::to_string(m_window.Width()) + "," +
                  std::to_string(m_window.Height()) + ".");
  }
}

void FuseInputs::CheckSurvey() const {
  const std::string subject = SurveySubject(m_options, m_pan, m_ms);
  platform::Survey& survey = *m_checked.survey;
  if (survey.Subject().empty()) survey.SetSubject(subject);
  if (survey.Subject() == subject) return;
  throw UsageError("The survey " + m_options.survey + " is of " + SubjectDifference(subject, survey.Subject()) + ".");
}

void FuseInputs::CutRows(const CRect& overlap) {
  const CRect whole = OutputArea();
  if (whole.Area() == 0) throw RunError(ERR_NONE, messages::kWrongExtent);
  m_wholeHeight = whole.Height();
  if (m_scene.IsRectEmpty()) m_scene = m_options.window.empty() ? overlap : m_window;
  const bool gathers = m_checked.survey && m_checked.survey->Gathers();
  // What is gathered needs no output, only a place for one.
  const int first = gathers || m_options.rows.empty() ? 0 : m_options.rows[0];
  const int end = gathers ? 1 : m_options.rows.empty() ? m_wholeHeight : m_options.rows[1];
  if (!m_options.rows.empty() && m_options.rows[1] > m_wholeHeight) {
    throw UsageError("--rows " + std::to_string(m_options.rows[0]) + ":" + std::to_string(m_options.rows[1]) +
                     ": the output has rows 0 to " + std::to_string(m_wholeHeight - 1) + ".");
  }
  if (gathers) m_checked.survey->SetHeight(m_wholeHeight);
  m_window = {whole.left, whole.top + first, whole.right, whole.top + end};
  m_area = m_window;
}

/// A georeference that makes one image's pixels a dust grain in the other's is wrong, and its positions mean nothing.
void FuseInputs::CheckPixelSizes() {
  if (m_needReproject) return;
  constexpr double kMost = 1e5;
  const double ratio = fusion::PixelRatio(m_pan, m_ms, false);
  if (ratio <= kMost && ratio >= 1.0 / kMost) return;
  throw UsageError("A multispectral pixel is as wide as " + Formatted("%.3g", ratio) +
                   " pan pixels: check the georeferences, or use --same-extent.");
}

CRect FuseInputs::OutputArea() const {
  if (m_options.aoi.empty()) return m_area;
  return {std::max(m_area.left, m_aoi.left), std::max(m_area.top, m_aoi.top), std::min(m_area.right, m_aoi.right),
          std::min(m_area.bottom, m_aoi.bottom)};
}

void FuseInputs::CheckValidPixels() const {
  const auto check = [](CRasterBand* band, const std::string& name) {
    if (band && band->HasValidPixel()) return;
    throw RunError(ERR_STATISTICS, L"", name + " has no valid pixel or cannot be read.");
  };
  // Whoever has gathered a survey has looked.
  if (m_checked.survey && !m_checked.survey->Gathers()) return;
  check(m_pan.GetRasterBand(m_panBand), "The pan image");
  for (const int b : ChosenBands()) check(m_ms.GetRasterBand(b), "Multispectral band " + std::to_string(b + 1));
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
  param.m_pSurvey = m_checked.survey;
}

void FuseInputs::ComputeTargets(MatchTargets& targets, CBaseProgress& progress) const {
  for (const int b : ChosenBands()) {
    CRasterBand& band = *m_ms.GetRasterBand(b);
    double minimum = 0.0;
    double maximum = 0.0;
    double mean = 0.0;
    double stdDev = 0.0;
    bool done = band.ComputeStatics(&minimum, &maximum, &mean, &stdDev, true, &progress);
    if (done && targets.robust) done = MeasureRobustly(m_ms, b, mean, stdDev, progress);
    if (!done) {
      if (progress.IsCancelRequested()) throw RunError(ERR_CANCELLED, messages::kCancelled);
      throw RunError(ERR_STATISTICS, messages::kMsStatisticsFailed);
    }
    targets.means.push_back(mean);
    targets.stdDevs.push_back(stdDev);
  }
}

}  // namespace fusion
