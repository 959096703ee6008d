#include "runs/report_views.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "runs/detail_map.h"
#include "runs/picture.h"

namespace fusion {
namespace {

/// The longer side of the picture of a whole image, and the sides of a detail.
constexpr int kWhole = 1200;
constexpr int kDetail = 512;
constexpr int kDetails = 3;
/// Of all pictures together; where there are more images than this allows, their pictures become smaller.
constexpr double kMostPixels = 24e6;

/// A view before it is encoded.
struct Drawing {
  ReportView view;
  std::vector<Picture> pictures;
};

/// How an image is shown.
struct Looks {
  std::vector<int> bands;
  std::vector<Stretch> stretches;
};

std::vector<Stretch> Brightened(std::vector<Stretch> stretches) {
  // As the eye sees it: shadows stay visible.
  constexpr double kBend = 0.7;
  for (Stretch& stretch : stretches) stretch.bend = kBend;
  return stretches;
}

std::vector<int> AllBands(const quality::Image& image) {
  std::vector<int> bands;
  for (std::size_t b = 0; b < image.bands.size(); ++b) bands.push_back(static_cast<int>(b));
  return bands;
}

/// Whether what spans one range of values looks reasonable in a stretch of the other.
bool AreAlike(const std::vector<Stretch>& first, const std::vector<Stretch>& second) {
  constexpr double kMost = 4.0;
  for (std::size_t i = 0; i < first.size() && i < second.size(); ++i) {
    const double a = first[i].high - first[i].low;
    const double b = second[i].high - second[i].low;
    if (a > kMost * b || b > kMost * a) return false;
    if (first[i].low >= second[i].high || second[i].low >= first[i].high) return false;
  }
  return first.size() == second.size();
}

class FrameDrawer {
 public:
  FrameDrawer(SceneViews& scene, const std::vector<FusedSource>& images, ReportFrame& frame, double scale)
      : m_scene(scene), m_images(images), m_frame(frame), m_scale(scale) {}

  std::vector<Drawing> Draw() {
    const CRect& rect = m_frame.rect;
    const int longer = std::max(rect.Width(), rect.Height());
    const int side = Scaled(kWhole);
    const double share = std::min(1.0, static_cast<double>(side) / longer);
    const auto shown = [share](int size) { return std::max(1, static_cast<int>(std::lround(share * size))); };
    DetailMap map(rect, (longer + kBlocks - 1) / kBlocks);
    std::vector<Drawing> drawings;
    drawings.push_back(Show("whole scene", rect, shown(rect.Width()), shown(rect.Height()), &map));
    const int detail = Scaled(kDetail);
    std::vector<CRect> windows;
    for (int i = 0; i < kDetails && longer > side; ++i) {
      const CRect window = map.Best(std::min(detail, rect.Width()), std::min(detail, rect.Height()), windows);
      if (window.Area() == 0) break;
      windows.push_back(window);
      drawings.push_back(Show("detail " + std::to_string(i + 1), window, window.Width(), window.Height(), nullptr));
    }
    return drawings;
  }

 private:
  /// Of the map, along the longer side.
  static constexpr int kBlocks = 240;

  int Scaled(int size) const { return std::max(64, static_cast<int>(std::lround(m_scale * size))); }

  Drawing Show(const std::string& title, const CRect& rect, int width, int height, DetailMap* map) {
    Drawing drawing;
    drawing.view = {.title = title, .rect = rect, .width = width, .height = height, .pictures = {}};
    const quality::Image pan = m_scene.Pan(rect, width, height, [&](int y, const std::vector<double>& samples) {
      if (map) map->AddRow(y, samples);
    });
    // The stretches are those of the whole, so that a detail looks like itself there.
    if (map) m_pan = {{0}, Brightened(StretchesOf(pan, {0}))};
    Add(drawing, pan, m_pan);
    const quality::Image ms = m_scene.Ms(rect, width, height);
    if (map) m_ms = {AllBands(ms), Brightened(StretchesOf(ms, AllBands(ms)))};
    Add(drawing, ms, m_ms);
    for (std::size_t i = 0; i < m_frame.images.size(); ++i) {
      const FusedSource& image = m_images[m_frame.images[i]];
      const std::optional<std::vector<int>> paired = PairedColours(image);
      const CRect own(rect.left - m_frame.rect.left, rect.top - m_frame.rect.top, rect.right - m_frame.rect.left,
                      rect.bottom - m_frame.rect.top);
      const quality::Image fused = m_scene.Of(*image.raster, paired ? *paired : OwnColours(image), own, width, height);
      if (map) m_fused.push_back(LooksOf(fused, paired.has_value()));
      Add(drawing, fused, m_fused[i]);
    }
    return drawing;
  }

  Looks LooksOf(const quality::Image& fused, bool isPaired) {
    Looks looks{AllBands(fused), Brightened(StretchesOf(fused, AllBands(fused)))};
    m_frame.onBandScale.push_back(isPaired && AreAlike(looks.stretches, m_ms.stretches));
    if (m_frame.onBandScale.back()) looks.stretches = m_ms.stretches;
    return looks;
  }

  /// The bands of a fused image that show what those of the multispectral one do, counted from 0.
  std::optional<std::vector<int>> PairedColours(const FusedSource& image) const {
    std::vector<int> bands;
    for (const int colour : m_scene.Colours()) {
      const int band = m_scene.Pair().Bands()[static_cast<std::size_t>(colour)] + 1;
      const auto found = std::find(image.msBands.begin(), image.msBands.end(), band);
      if (found == image.msBands.end()) return std::nullopt;
      bands.push_back(image.fusedBands[static_cast<std::size_t>(found - image.msBands.begin())] - 1);
    }
    return bands;
  }

  static std::vector<int> OwnColours(const FusedSource& image) {
    std::vector<int> bands;
    for (const int band : image.fusedBands) bands.push_back(band - 1);
    std::vector<int> colours = NaturalColours(platform::RasterDescription(*image.raster, bands).bands);
    for (int& colour : colours) colour = bands[static_cast<std::size_t>(colour)];
    return colours;
  }

  static void Add(Drawing& drawing, const quality::Image& image, const Looks& looks) {
    Picture picture(image.width, image.height);
    picture.Hatch();
    picture.Draw(image, looks.bands, looks.stretches, 0, 0);
    drawing.pictures.push_back(std::move(picture));
  }

  SceneViews& m_scene;
  const std::vector<FusedSource>& m_images;
  ReportFrame& m_frame;
  double m_scale;
  Looks m_pan;
  Looks m_ms;
  std::vector<Looks> m_fused;
};

/// All at the best quality at which they take no more than so many bytes together.
void Encode(std::vector<std::vector<Drawing>>& drawings, std::size_t mostBytes) {
  for (const int quality : {90, 82, 74, 62, 50, 35, 20}) {
    std::size_t bytes = 0;
    for (auto& frame : drawings) {
      for (Drawing& drawing : frame) {
        drawing.view.pictures.clear();
        for (const Picture& picture : drawing.pictures) {
          drawing.view.pictures.push_back(picture.Jpeg(quality));
          bytes += drawing.view.pictures.back().size();
        }
      }
    }
    if (bytes <= mostBytes) return;
  }
}

}  // namespace

std::vector<ReportFrame> DrawFrames(SceneViews& scene, const std::vector<FusedSource>& images, std::size_t mostBytes) {
  std::vector<ReportFrame> frames;
  for (std::size_t i = 0; i < images.size(); ++i) {
    const CRect& rect = images[i].onPan;
    auto frame = std::find_if(frames.begin(), frames.end(), [&](const ReportFrame& f) {
      return f.rect.left == rect.left && f.rect.top == rect.top && f.rect.right == rect.right &&
             f.rect.bottom == rect.bottom;
    });
    if (frame == frames.end())
      frame = frames.insert(frames.end(), {.rect = rect, .images = {}, .onBandScale = {}, .views = {}});
    frame->images.push_back(i);
  }
  constexpr double kPixels = static_cast<double>(kWhole) * kWhole + static_cast<double>(kDetails) * kDetail * kDetail;
  const double wanted = kPixels * static_cast<double>(images.size() + 2 * frames.size());
  const double scale = std::min(1.0, std::sqrt(kMostPixels / wanted));
  std::vector<std::vector<Drawing>> drawings;
  for (ReportFrame& frame : frames) drawings.push_back(FrameDrawer(scene, images, frame, scale).Draw());
  Encode(drawings, mostBytes);
  for (std::size_t f = 0; f < frames.size(); ++f) {
    for (Drawing& drawing : drawings[f]) frames[f].views.push_back(std::move(drawing.view));
  }
  return frames;
}

}  // namespace fusion
