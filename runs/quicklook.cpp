#include "runs/quicklook.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "estimation/pan_grid.h"
#include "framework/messages.h"
#include "framework/overlap.h"
#include "platform/algorithm/base_algorithm.h"
#include "platform/utility/common_fun.h"
#include "runs/failures.h"
#include "runs/letters.h"
#include "runs/ms_files.h"
#include "runs/notices.h"
#include "runs/open_input.h"
#include "runs/reduced_image.h"
#include "runs/run_progress.h"
#include "runs/scene_pair.h"

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

/// How much changes along the rows of an image, block by block.
class DetailMap {
 public:
  DetailMap(const CRect& rect, int side)
      : m_rect(rect),
        m_side(side),
        m_width((rect.Width() + side - 1) / side),
        m_height((rect.Height() + side - 1) / side),
        m_changes(static_cast<std::size_t>(m_width) * static_cast<std::size_t>(m_height), 0.0),
        m_known(m_changes.size(), 0.0),
        m_looked(m_changes.size(), 0.0) {}

  void AddRow(int y, const std::vector<double>& samples) {
    const std::size_t row = static_cast<std::size_t>((y - m_rect.top) / m_side) * static_cast<std::size_t>(m_width);
    for (std::size_t x = 1; x < samples.size(); ++x) {
      const std::size_t i = row + x / static_cast<std::size_t>(m_side);
      ++m_looked[i];
      if (!std::isfinite(samples[x]) || !std::isfinite(samples[x - 1])) continue;
      ++m_known[i];
      // The root keeps single bright edges from deciding.
      m_changes[i] += std::sqrt(std::fabs(samples[x] - samples[x - 1]));
    }
  }
  /// The window of width x height pixels with most change in it, of those that are full of data where there are any.
  CRect Best(int width, int height) const {
    const int across = std::clamp(width / m_side, 1, m_width);
    const int down = std::clamp(height / m_side, 1, m_height);
    const auto changes = Sums(m_changes);
    const auto known = Sums(m_known);
    const auto looked = Sums(m_looked);
    double best = -1.0;
    int left = 0;
    int top = 0;
    for (int y = 0; y + down <= m_height; ++y) {
      for (int x = 0; x + across <= m_width; ++x) {
        const auto in = [&](const std::vector<double>& sums) {
          const auto at = [&](int i, int j) {
            return sums[static_cast<std::size_t>(j) * static_cast<std::size_t>(m_width + 1) +
                        static_cast<std::size_t>(i)];
          };
          return at(x + across, y + down) - at(x, y + down) - at(x + across, y) + at(x, y);
        };
        const double share = in(looked) > 0.0 ? in(known) / in(looked) : 0.0;
        const double value = in(changes) / std::max(in(looked), 1.0) * share * share * share * share;
        if (value <= best) continue;
        best = value;
        left = x;
        top = y;
      }
    }
    const auto start = [](int at, int size, int all, int from) {
      return from + std::clamp(at, 0, std::max(all - size, 0));
    };
    const int x = start(left * m_side, width, m_rect.Width(), m_rect.left);
    const int y = start(top * m_side, height, m_rect.Height(), m_rect.top);
    return {x, y, std::min(x + width, m_rect.right), std::min(y + height, m_rect.bottom)};
  }

 private:
  /// Of all blocks above and to the left, one row and column more than blocks.
  std::vector<double> Sums(const std::vector<double>& values) const {
    const auto stride = static_cast<std::size_t>(m_width + 1);
    std::vector<double> sums(stride * static_cast<std::size_t>(m_height + 1), 0.0);
    for (std::size_t y = 0; y < static_cast<std::size_t>(m_height); ++y) {
      for (std::size_t x = 0; x + 1 < stride; ++x) {
        sums[(y + 1) * stride + x + 1] =
            values[y * (stride - 1) + x] + sums[y * stride + x + 1] + sums[(y + 1) * stride + x] - sums[y * stride + x];
      }
    }
    return sums;
  }

  CRect m_rect;
  int m_side;
  int m_width;
  int m_height;
  std::vector<double> m_changes;
  std::vector<double> m_known;
  std::vector<double> m_looked;
};

/// The three images as they are drawn from.
class Images {
 public:
  Images(const PairNames& names, const std::wstring& fused, RunProgress& progress)
      : m_pair(names, m_notices), m_progress(progress) {
    OpenInput(m_fused, fused);
    m_fused.SetMaskNoData(true);
    m_colours = NaturalColours(m_pair.Described());
    bool reprojects = false;
    FindOverlap(m_pair.Pan(), m_pair.Ms(), reprojects);
    // Where the fused image's pixels lie in the multispectral one.
    m_grid = std::make_unique<PanGrid>(m_pair.Ms(), m_fused);
    if (reprojects && !m_grid->Reproject(m_pair.Ms(), m_fused)) {
      throw RunError(ERR_REPROJECT, messages::kReprojectFailed);
    }
  }

  int Width() const { return m_fused.GetWidth(); }
  int Height() const { return m_fused.GetHeight(); }
  const std::vector<int>& Colours() const { return m_colours; }

  /// A rectangle of the fused image, in fewer pixels.
  Panels Read(const CRect& rect, int width, int height, DetailMap* map) {
    Panels panels;
    const CRect inPan = m_pair.Pan().GroundToImage(m_fused.ImageToGround(rect));
    const auto addRow = [&](int y, const std::vector<double>& samples) {
      GoOn();
      if (map) map->AddRow(y - inPan.top + rect.top, samples);
    };
    const auto goOn = [this](int, const std::vector<double>&) { GoOn(); };
    panels.pan = ReducedImage(m_pair.Pan(), {m_pair.PanBand()},
                              {inPan.left, inPan.top, inPan.left + rect.Width(), inPan.top + rect.Height()}, width,
                              height, addRow);
    ++m_step;
    panels.fused = ReducedImage(m_fused, m_colours, rect, width, height, goOn);
    ++m_step;
    panels.ms = Upsampled(rect, width, height);
    ++m_step;
    return panels;
  }

 private:
  void GoOn() {
    if (!m_progress.Step(m_step, L"")) throw RunError(ERR_CANCELLED, messages::kCancelled);
  }

  /// The positions of the centres of a panel's pixels in the multispectral image.
  void Place(const CRect& rect, int width, int height, std::vector<double>& x, std::vector<double>& y) const {
    // Of the pixel under the centre, and how far beside its own centre that lies.
    const auto under = [](int i, int count, int first, int size, double& beside) {
      const double at = (i + 0.5) * size / count;
      const int pixel = std::min(static_cast<int>(at), size - 1);
      beside = at - pixel - 0.5;
      return first + pixel;
    };
    double right = 0.0;
    double down = 0.0;
    for (int j = 0; j < height; ++j) {
      const int r = under(j, height, rect.top, rect.Height(), down);
      for (int i = 0; i < width; ++i) {
        const int c = under(i, width, rect.left, rect.Width(), right);
        const PanPositions at = m_grid->Positions({c, r, c + 1, r + 1});
        x.push_back(at.x[0] + right * m_grid->RatioX());
        y.push_back(at.y[0] + down * m_grid->RatioY());
      }
    }
  }

  quality::Image Upsampled(const CRect& rect, int width, int height) {
    std::vector<double> x;
    std::vector<double> y;
    Place(rect, width, height, x, y);
    const CRasterSource& ms = m_pair.Ms();
    const auto range = [](const std::vector<double>& places, int size) {
      double first = size;
      double last = -1.0;
      for (const double at : places) {
        if (!(at >= -1.0 && at <= size)) continue;
        first = std::min(first, at);
        last = std::max(last, at);
      }
      constexpr int kBeside = 2;
      return std::pair(std::max(static_cast<int>(std::floor(first)) - kBeside, 0),
                       std::min(static_cast<int>(std::floor(last)) + kBeside + 1, size));
    };
    const auto [left, right] = range(x, ms.GetWidth());
    const auto [top, bottom] = range(y, ms.GetHeight());
    quality::Image image;
    image.width = width;
    image.height = height;
    image.bands.assign(m_colours.size(),
                       std::vector<double>(image.PixelCount(), std::numeric_limits<double>::quiet_NaN()));
    if (left >= right || top >= bottom) return image;
    // Averaged to about the panel's pixels first.
    const double ownX = std::max(1.0, m_grid->RatioX() * rect.Width() / width);
    const double ownY = std::max(1.0, m_grid->RatioY() * rect.Height() / height);
    std::vector<int> bands;
    for (const int colour : m_colours) bands.push_back(m_pair.Bands()[static_cast<std::size_t>(colour)]);
    const quality::Image source = ReducedImage(ms, bands, {left, top, right, bottom},
                                               std::max(1, static_cast<int>(std::lround((right - left) / ownX))),
                                               std::max(1, static_cast<int>(std::lround((bottom - top) / ownY))),
                                               [this](int, const std::vector<double>&) { GoOn(); });
    const double scaleX = static_cast<double>(source.width) / (right - left);
    const double scaleY = static_cast<double>(source.height) / (bottom - top);
    for (std::size_t b = 0; b < bands.size(); ++b) {
      for (std::size_t i = 0; i < x.size(); ++i) {
        image.bands[b][i] = Sampled(source, b, (x[i] + 0.5 - left) * scaleX - 0.5, (y[i] + 0.5 - top) * scaleY - 0.5);
      }
    }
    return image;
  }

  Notices m_notices{nullptr};
  ScenePair m_pair;
  CRasterSource m_fused;
  std::vector<int> m_colours;
  std::unique_ptr<PanGrid> m_grid;
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
  progress.Step(kSteps, L"");
  progress.Finish();
  m_picture = std::make_unique<Picture>(std::move(picture));
}

void Quicklook::Save() {
  if (m_picture) m_picture->Save(m_file, m_pending);
}

}  // namespace fusion
