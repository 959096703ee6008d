#include "runs/quicklook.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/algorithm/base_algorithm.h"
#include "platform/utility/common_fun.h"
#include "runs/detail_map.h"
#include "runs/failures.h"
#include "runs/letters.h"
#include "runs/ms_files.h"
#include "runs/open_input.h"
#include "runs/run_progress.h"
#include "runs/scene_views.h"

namespace fusion {
namespace {

/// The longer side of a panel, in pixels of the picture.
constexpr int kSide = 480;
/// The sides of the detail, in pan pixels, each of which is shown as 2 x 2.
constexpr int kDetail = 240;
constexpr int kDetailZoom = 2;
/// Images that are read: three for each row of panels.
constexpr int kSteps = 6;
constexpr int kGap = 8;
constexpr int kTitle = kLetterHeight + 8;

/// What is shown of a rectangle of the fused image.
struct Panels {
  quality::Image pan;
  quality::Image ms;
  quality::Image fused;
};

/// The three images as they are drawn from.
class Images {
 public:
  Images(const PairNames& names, const std::wstring& fused, RunProgress& progress)
      : m_views(names, [this] { m_progress.Advance(m_step); }), m_progress(progress) {
    OpenInput(m_fused, fused);
    m_fused.SetMaskNoData(true);
    m_inPan = m_views.Pair().Pan().GroundToImage(m_fused.ImageToGround(CRect(0, 0, Width(), Height())));
  }

  int Width() const { return m_fused.GetWidth(); }
  int Height() const { return m_fused.GetHeight(); }

  /// A rectangle of the fused image, in fewer pixels.
  /// @param map of the fused image; null: none
  Panels Read(const CRect& rect, int width, int height, DetailMap* map) {
    Panels panels;
    const int left = m_inPan.left + rect.left;
    const int top = m_inPan.top + rect.top;
    const CRect inPan(left, top, left + rect.Width(), top + rect.Height());
    panels.pan = m_views.Pan(inPan, width, height, [&](int y, const std::vector<double>& samples) {
      if (map) map->AddRow(y - m_inPan.top, samples);
    });
    ++m_step;
    panels.fused = m_views.Of(m_fused, m_views.Colours(), rect, width, height);
    ++m_step;
    panels.ms = m_views.Ms(inPan, width, height);
    ++m_step;
    return panels;
  }

 private:
  SceneViews m_views;
  CRasterSource m_fused;
  CRect m_inPan;
  RunProgress& m_progress;
  int m_step = 0;
};

/// The bands of panels, which hold no others than are shown.
std::vector<int> Shown(const quality::Image& image) {
  return image.bands.size() == 1 ? std::vector<int>{0} : std::vector<int>{0, 1, 2};
}

/// Brighter than in proportion, as eyes see it: shadows and ground beside clouds stay visible.
std::vector<Stretch> Brightened(const quality::Image& image, const std::vector<int>& bands) {
  constexpr double kBend = 0.7;
  std::vector<Stretch> stretches = StretchesOf(image, bands);
  for (Stretch& stretch : stretches) stretch.bend = kBend;
  return stretches;
}

void DrawRow(Picture& picture, const Panels& panels, bool onBandScale, int left, int top, int step, int zoom) {
  const std::vector<int> bands = Shown(panels.ms);
  const std::vector<Stretch> colours = Brightened(panels.ms, bands);
  picture.Draw(panels.pan, {0}, Brightened(panels.pan, {0}), left, top, zoom);
  picture.Draw(panels.ms, bands, colours, left + step, top, zoom);
  picture.Draw(panels.fused, bands, onBandScale ? colours : Brightened(panels.fused, bands), left + 2 * step, top,
               zoom);
}

}  // namespace

Quicklook::Quicklook(const FuseRequest& request, const std::vector<std::wstring>& inputs,
                     const platform::PendingOutput& output)
    : m_request(request), m_file(CommonFun::Utf82U(request.quicklook)), m_pending(m_file, request.overwrite, inputs) {
  Picture::CheckFile("--quicklook", m_file, m_pending);
  if (output.Concerns(m_file))
    throw UsageError("--quicklook " + request.quicklook + " is a file of this run's images.");
}

void Quicklook::Draw(const std::wstring& fused, const std::string& method, const std::vector<int>& bands,
                     bool onBandScale, RunProgress& progress) {
  const MsImage ms(m_request.ms, m_request.moreMs, m_request.pan);
  PairNames names{m_request.pan, ms.Path(), {}, m_request.panBand, m_request.sameExtent, m_request.noData};
  for (const int band : bands) names.bands.push_back(band + 1);
  Images images(names, fused, progress);
  const CRect whole(0, 0, images.Width(), images.Height());
  const int longer = std::max(whole.Width(), whole.Height());
  const double scale = std::min(1.0, static_cast<double>(kSide) / longer);
  const int zoom = std::max(1, kSide / longer);
  progress.Begin({"quicklook"}, L"quicklook", kSteps);
  DetailMap map(whole, (longer + kSide - 1) / kSide);
  const auto scaled = [scale](int size) { return std::max(1, static_cast<int>(std::lround(scale * size))); };
  const Panels all = images.Read(whole, scaled(whole.Width()), scaled(whole.Height()), &map);
  const bool hasDetail = longer > kDetail;
  const CRect window = map.Best(std::min(kDetail, whole.Width()), std::min(kDetail, whole.Height()));
  const Panels detail = hasDetail ? images.Read(window, window.Width(), window.Height(), nullptr) : Panels();

  const int wholeWidth = all.pan.width * zoom;
  const int wholeHeight = all.pan.height * zoom;
  const int detailHeight = hasDetail ? detail.pan.height * kDetailZoom : 0;
  const std::string titles[] = {"pan", "multispectral, upsampled",
                                method + (onBandScale ? "" : ", stretched by itself")};
  int width = std::max(wholeWidth, hasDetail ? detail.pan.width * kDetailZoom : 0);
  for (const std::string& title : titles) width = std::max(width, kLetterStep * static_cast<int>(title.size()));
  const int step = width + kGap;
  const int below = kGap + kTitle + wholeHeight + kGap;
  Picture picture(kGap + 3 * step, below + (hasDetail ? kTitle + detailHeight + kGap : 0));
  for (int i = 0; i < 3; ++i) picture.Write(titles[i], kGap + i * step, kGap);
  DrawRow(picture, all, onBandScale, kGap, kGap + kTitle, step, zoom);
  if (hasDetail) {
    const std::string place = "detail of " + std::to_string(window.Width()) + " x " + std::to_string(window.Height()) +
                              " pixels at " + std::to_string(window.left) + ", " + std::to_string(window.top);
    picture.Write(place, kGap, below);
    DrawRow(picture, detail, onBandScale, kGap, below + kTitle, step, kDetailZoom);
    for (int i = 0; i < 3; ++i) {
      picture.Frame(kGap + i * step + zoom * scaled(window.left), kGap + kTitle + zoom * scaled(window.top),
                    zoom * scaled(window.Width()), zoom * scaled(window.Height()));
    }
  }
  progress.Advance(kSteps);
  progress.Finish();
  m_picture = std::make_unique<Picture>(std::move(picture));
}

void Quicklook::Save() {
  if (m_picture) m_picture->Save(m_file, m_pending);
}

}  // namespace fusion
