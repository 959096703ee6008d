#include "runs/report_quality.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>

#include "framework/messages.h"
#include "platform/algorithm/base_algorithm.h"
#include "platform/utility/common_fun.h"
#include "runs/assess_fusion.h"
#include "runs/assess_mtf.h"
#include "runs/assess_scene.h"
#include "runs/assess_tile.h"
#include "runs/failures.h"
#include "runs/notices.h"
#include "runs/open_input.h"

namespace fusion {
namespace {

/// Where the run that made an image has moved the multispectral one.
Move MoveOf(const FusedSource& source) {
  Move move;
  bool applied = false;
  if (!source.provenance) return move;
  for (const ModelFact& fact : source.provenance->model) {
    if (fact.name == "shift" && fact.values.size() == 2) move = {fact.values[0], fact.values[1]};
    if (fact.name == "shift_applied" && fact.values.size() == 1) applied = fact.values[0] != 0.0;
  }
  return applied ? move : Move();
}

/// The pixels of pan that a part of it has.
CRect PlaceOnPan(const CRasterSource& pan, const PlacedImage& part) {
  const double* t = part.geoTransform;
  const int left = static_cast<int>(std::lround(pan.GroundToPixel().X(t[0], t[3])));
  const int top = static_cast<int>(std::lround(pan.GroundToPixel().Y(t[0], t[3])));
  return {left, top, left + part.image.width, top + part.image.height};
}

/// The paired bands of a fused image on some pixels of pan; NaN beyond the image.
quality::Image ReadOn(const CRect& rect, const FusedSource& source) {
  quality::Image image;
  image.width = rect.Width();
  image.height = rect.Height();
  image.bands.assign(source.fusedBands.size(),
                     std::vector<double>(image.PixelCount(), std::numeric_limits<double>::quiet_NaN()));
  const CRect& own = source.onPan;
  const CRect both(std::max(rect.left, own.left), std::max(rect.top, own.top), std::min(rect.right, own.right),
                   std::min(rect.bottom, own.bottom));
  if (both.left >= both.right || both.top >= both.bottom) return image;
  std::vector<double> part(static_cast<std::size_t>(both.Area()));
  for (std::size_t b = 0; b < image.bands.size(); ++b) {
    if (source.raster->GetRasterBand(source.fusedBands[b] - 1)
            ->ReadBlock(both.left - own.left, both.top - own.top, both.Width(), both.Height(), part.data(),
                        both.Width(), both.Height(), PDT_FLOAT64) != 0) {
      throw RunError(ERR_READ, messages::kReadFailed);
    }
    for (int y = both.top; y < both.bottom; ++y) {
      const auto from = part.begin() + static_cast<std::ptrdiff_t>(y - both.top) * both.Width();
      std::copy(
          from, from + both.Width(),
          image.bands[b].begin() + static_cast<std::ptrdiff_t>(y - rect.top) * image.width + (both.left - rect.left));
    }
  }
  return image;
}

/// Images of the same multispectral bands.
class QualityGroup {
 public:
  QualityGroup(const ReportRequest& request, const std::string& ms, const std::vector<int>& bands, Notices& notices,
               const std::function<void()>& watch)
      : m_scene(RequestOf(request, ms, bands), notices),
        m_ratio(std::sqrt(static_cast<double>(m_scene.RatioX()) * m_scene.RatioY())),
        m_gains(ChooseGains(m_scene, {}, m_ratio, watch)) {
    if (!m_gains.doubt.empty()) notices.Add(m_gains.doubt + '.');
    OpenInput(m_pan, CommonFun::Utf82U(request.pan));
  }

  std::vector<MethodSums> Measure(const std::vector<const FusedSource*>& sources,
                                  const std::function<void(double done)>& step) {
    const int block = std::max(m_scene.RatioX(), m_scene.RatioY());
    std::vector<MethodSums> sums(sources.size(), MethodSums(block));
    const ScratchFolder scratch;
    const auto all = static_cast<double>(m_scene.Tiles().size() * sources.size());
    double done = 0.0;
    for (const CRect& rect : m_scene.Tiles()) {
      FullTile tile(m_scene, rect, m_gains.full);
      tile.SetUpsampled(TileFiles(scratch.Path(), tile, m_scene.StoredType(), true).Upsampled());
      const CRect onPan = PlaceOnPan(m_pan, tile.Pan());
      for (std::size_t i = 0; i < sources.size(); ++i) {
        if (tile.IsWorthIt()) tile.Measure(ReadOn(onPan, *sources[i]), MoveOf(*sources[i]), sums[i]);
        step(++done / all);
      }
    }
    return sums;
  }

 private:
  static AssessRequest RequestOf(const ReportRequest& request, const std::string& ms, const std::vector<int>& bands) {
    AssessRequest assess;
    assess.pan = request.pan;
    assess.ms = ms;
    assess.bands = bands;
    assess.panBand = request.panBand;
    assess.sameExtent = request.sameExtent;
    assess.noData = request.noData;
    assess.threads = request.threads;
    return assess;
  }

  AssessScene m_scene;
  double m_ratio;
  SceneGains m_gains;
  CRasterSource m_pan;
};

ReportQuality QualityOf(const MethodSums& sums) {
  const double dS = sums.noReference.DS();
  return {quality::HybridQnr(1.0 - sums.consistency.Value(), dS), sums.noReference.Qnr(), sums.noReference.DLambda(),
          dS, sums.gradients.Sharpness()};
}

}  // namespace

void MeasureQuality(const ReportRequest& request, const std::string& ms, const std::vector<FusedSource>& sources,
                    const std::function<void(double done)>& step, Notices& notices, std::vector<ReportImage>& images) {
  std::map<std::vector<int>, std::vector<std::size_t>> groups;
  for (std::size_t i = 0; i < sources.size(); ++i) {
    images[i].notMeasured = sources[i].unpaired;
    if (sources[i].unpaired.empty()) groups[sources[i].msBands].push_back(i);
  }
  double before = 0.0;
  for (const auto& [bands, members] : groups) {
    const double share = static_cast<double>(members.size()) / static_cast<double>(sources.size());
    try {
      std::vector<const FusedSource*> group;
      for (const std::size_t i : members) group.push_back(&sources[i]);
      QualityGroup measure(request, ms, bands, notices, [&] { step(before); });
      const std::vector<MethodSums> sums = measure.Measure(group, [&](double done) { step(before + share * done); });
      for (std::size_t g = 0; g < members.size(); ++g) images[members[g]].quality = QualityOf(sums[g]);
    } catch (const RunFailure& failure) {
      // Images without common ground are no fault of the run.
      if (failure.GetKind() != RunFailure::Kind::kWrongUsage && failure.Type() != ERR_NONE) throw;
      for (const std::size_t i : members) images[i].notMeasured = failure.Sentence();
    }
    before += share;
  }
}

}  // namespace fusion
