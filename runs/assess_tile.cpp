#include "runs/assess_tile.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <utility>

namespace fusion {
namespace {

/// Multispectral pixels at the edges that are left out; fewer of small tiles.
int Border(int width, int height) { return std::min(8, std::min(width, height) / 16); }

/// The share of a filter's weight that lies on pan where a degraded pan pixel has data.
constexpr double kLeastPan = 0.5;

bool HasGap(const quality::Image& image, std::size_t pixel) {
  return std::any_of(image.bands.begin(), image.bands.end(), [&](const auto& b) { return !std::isfinite(b[pixel]); });
}

void MarkGaps(quality::Image& image) {
  if (image.valid.empty()) image.valid.assign(image.PixelCount(), 1);
  for (std::size_t i = 0; i < image.PixelCount(); ++i) {
    if (HasGap(image, i)) image.valid[i] = 0;
  }
}

quality::Image Marked(quality::Image image) {
  MarkGaps(image);
  return image;
}

/// What does not count in one image does not in the other.
void CountTogether(quality::Image& image, const quality::Image& other) {
  image.valid = quality::CommonPixels(image, other);
}

/// Positions on an axis of output pixels that are ratio input pixels wide.
std::vector<double> CentresOf(int first, int count, int ratio) {
  std::vector<double> centres;
  centres.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) centres.push_back(first + i * ratio + (ratio - 1) / 2.0);
  return centres;
}

PlacedImage Degraded(AssessScene& scene, const CRect& tile, double gain) {
  const int ratioX = scene.RatioX();
  const int ratioY = scene.RatioY();
  const CRect out(0, 0, tile.Width() / ratioX, tile.Height() / ratioY);
  const auto axis = [gain](int first, int count, int ratio, int size) {
    return AxisFilter(LowPassShape::Gaussian(DeviationOfGain(ratio, gain)), CentresOf(first, count, ratio), size);
  };
  // At the edge of the image the weights that lie on it count alone.
  const SeparableFilter filter(axis(tile.left, out.Width(), ratioX, scene.MsWidth()),
                               axis(tile.top, out.Height(), ratioY, scene.MsHeight()), 0.0);
  const CRect reads = filter.Reads(out);
  const PlacedImage fine = scene.ReadMs(reads);
  PlacedImage degraded;
  degraded.wkt = fine.wkt;
  std::copy(std::begin(fine.geoTransform), std::end(fine.geoTransform), std::begin(degraded.geoTransform));
  double* t = degraded.geoTransform;
  t[0] += (tile.left - reads.left) * t[1];
  t[3] += (tile.top - reads.top) * t[5];
  t[1] *= ratioX;
  t[5] *= ratioY;
  degraded.image.width = out.Width();
  degraded.image.height = out.Height();
  for (const auto& band : fine.image.bands) {
    std::vector<double> values(degraded.image.PixelCount());
    filter.Apply(band.data(), reads, out, values.data());
    degraded.image.bands.push_back(std::move(values));
  }
  return degraded;
}

/// Where the multispectral pixels lie, from the pixels of a part of pan.
PanPositions Within(PanPositions positions, const CRect& part) {
  for (double& x : positions.x) x -= part.left;
  for (double& y : positions.y) y -= part.top;
  return positions;
}

/// Each measure keeps its own sums, so that threads do not change them.
void InParallel(platform::Workers* workers, const std::vector<std::function<void()>>& measures) {
  platform::ForEach(workers, static_cast<int>(measures.size()),
                    [&](int i) { measures[static_cast<std::size_t>(i)](); });
}

/// The filter of a sensor from pan's pixels to multispectral ones.
/// @param width, height of the image on pan's pixels
PanLowPass SensorFilter(const PanGrid& grid, const PanPositions& positions, const Move& move, double gain, int width,
                        int height, double leastShare = kLeastShare) {
  const auto shape = [gain](double ratio) { return LowPassShape::Gaussian(DeviationOfGain(ratio, gain)); };
  return {positions, move.x, move.y, shape(grid.RatioX()), shape(grid.RatioY()), width, height, leastShare};
}

/// The pan pixels whose centres lie on a rectangle of multispectral ones.
CRect PanUnder(const PanPositions& positions, const PanGrid& grid) {
  const auto edges = [](const std::vector<double>& centres, double ratio, int size) {
    const auto [least, most] = std::minmax_element(centres.begin(), centres.end());
    // Centres are counted from those of pixels, edges from theirs.
    const int from = static_cast<int>(std::lround(*least + 0.5 - ratio / 2.0));
    const int to = static_cast<int>(std::lround(*most + 0.5 + ratio / 2.0));
    return std::pair(std::clamp(from, 0, size), std::clamp(to, 0, size));
  };
  const auto [left, right] = edges(positions.x, grid.RatioX(), grid.PanWidth());
  const auto [top, bottom] = edges(positions.y, grid.RatioY(), grid.PanHeight());
  return {left, top, right, bottom};
}

double Lanczos(double x) {
  constexpr double kReach = 4.0;
  if (x == 0.0) return 1.0;
  if (std::fabs(x) >= kReach) return 0.0;
  const double a = std::numbers::pi * x;
  return std::sin(a) / a * std::sin(a / kReach) / (a / kReach);
}

/// The weights of the samples first, first + 1 and so on at a fractional position after the fourth of them.
std::vector<double> MoveWeights(double fraction) {
  std::vector<double> weights;
  double sum = 0.0;
  for (int k = -3; k <= 4; ++k) {
    weights.push_back(Lanczos(k - fraction));
    sum += weights.back();
  }
  for (double& w : weights) w /= sum;
  return weights;
}

/// The image moved by a part of its pixels, with a kernel that keeps its detail.
quality::Image Moved(const quality::Image& image, const Move& move) {
  constexpr int kBefore = 3;
  const auto shifted = [&](const std::vector<double>& in, double by, int count, std::ptrdiff_t step, int lines,
                           std::ptrdiff_t lineStep) {
    std::vector<double> out(in.size(), std::numeric_limits<double>::quiet_NaN());
    const double whole = std::floor(-by);
    const std::vector<double> weights = MoveWeights(-by - whole);
    for (int line = 0; line < lines; ++line) {
      for (int i = 0; i < count; ++i) {
        const int first = i + static_cast<int>(whole) - kBefore;
        double sum = 0.0;
        for (std::size_t k = 0; k < weights.size(); ++k) {
          const int at = std::clamp(first + static_cast<int>(k), 0, count - 1);
          sum += weights[k] * in[static_cast<std::size_t>(line * lineStep + at * step)];
        }
        out[static_cast<std::size_t>(line * lineStep + i * step)] = sum;
      }
    }
    return out;
  };
  quality::Image moved = image;
  for (auto& band : moved.bands) {
    band = shifted(band, move.x, image.width, 1, image.height, image.width);
    band = shifted(band, move.y, image.height, image.width, image.width, 1);
  }
  return moved;
}

}  // namespace

void MarkInside(quality::Image& image, int borderX, int borderY) {
  MarkGaps(image);
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      const bool inside = x >= borderX && y >= borderY && x < image.width - borderX && y < image.height - borderY;
      if (!inside)
        image.valid[static_cast<std::size_t>(y) * static_cast<std::size_t>(image.width) + static_cast<std::size_t>(x)] =
            0;
    }
  }
}

void AssessTile::SetUpsampled(quality::Image upsampled) {
  m_upsampled = std::move(upsampled);
  Mark();
}

bool AssessTile::IsWorthIt() const {
  constexpr std::int64_t kLeast = 64;
  double least = std::numeric_limits<double>::infinity();
  double most = -least;
  std::int64_t count = 0;
  for (std::size_t i = 0; i < m_pan.image.PixelCount(); ++i) {
    if (!m_pan.image.Counts(i) || !m_upsampled.Counts(i)) continue;
    ++count;
    least = std::min(least, m_pan.image.bands[0][i]);
    most = std::max(most, m_pan.image.bands[0][i]);
  }
  // What filters make of an even image differs in its last digits.
  constexpr double kRounding = 1e-6;
  return count >= kLeast && most - least > kRounding * std::max(std::fabs(most), std::fabs(least));
}

ReducedTile::ReducedTile(AssessScene& scene, const CRect& tile, const SensorGains& gains)
    : AssessTile(scene.Workers()) {
  m_truth = scene.ReadMs(tile);
  m_ms = Degraded(scene, tile, gains.bands);
  const PanGrid& grid = scene.Grid();
  const PanLowPass filter =
      SensorFilter(grid, grid.Positions(tile), {}, gains.pan, grid.PanWidth(), grid.PanHeight(), kLeastPan);
  const CRect reads = filter.Reads();
  m_pan = m_truth;
  m_pan.image.bands.assign(1, std::vector<double>(m_pan.image.PixelCount(), std::nan("")));
  if (reads.Area() == 0) return;
  filter.Apply(scene.ReadPan(reads).image.bands[0].data(), reads, m_pan.image.bands[0].data());
}

void ReducedTile::Mark() {
  MarkGaps(m_upsampled);
  const int border = Border(m_truth.image.width, m_truth.image.height);
  MarkInside(m_pan.image, border, border);
  CountTogether(m_pan.image, m_upsampled);
  MarkGaps(m_truth.image);
  CountTogether(m_truth.image, m_pan.image);
}

void ReducedTile::Measure(const quality::Image& fused, const Move& move, MethodSums& sums) const {
  const quality::Image result = Marked(fused);
  // A method that has moved the multispectral image is right where pan is: the truth moves along.
  const quality::Image moved = move.IsNone() ? quality::Image() : Marked(Moved(m_truth.image, move));
  const quality::Image& truth = move.IsNone() ? m_truth.image : moved;
  InParallel(m_workers, {[&] { sums.errors.Add(truth, result); }, [&] { sums.angles.Add(truth, result); },
                         [&] { sums.q2n.Add(truth, result); }, [&] { sums.uiqi.Add(truth, result); },
                         [&] { sums.detail.Add(truth, result); }});
}

FullTile::FullTile(AssessScene& scene, const CRect& tile, const SensorGains& gains)
    : AssessTile(scene.Workers()), m_scene(scene), m_gains(gains) {
  m_ms = scene.ReadMs(tile);
  const PanPositions positions = scene.Grid().Positions(tile);
  const CRect under = PanUnder(positions, scene.Grid());
  m_positions = Within(positions, under);
  m_pan = scene.ReadPan(under);
}

void FullTile::Mark() {
  MarkGaps(m_upsampled);
  const int border = Border(m_ms.image.width, m_ms.image.height);
  MarkInside(m_pan.image, border * m_scene.RatioX(), border * m_scene.RatioY());
  CountTogether(m_pan.image, m_upsampled);
  MarkInside(m_ms.image, border, border);
  m_still = CoarseAt({});
}

FullTile::Coarse FullTile::CoarseAt(const Move& move) const {
  Coarse coarse{Lowered(m_pan.image, move, m_gains.pan), m_ms.image};
  CountTogether(coarse.ms, coarse.pan);
  return coarse;
}

quality::Image FullTile::Lowered(const quality::Image& image, const Move& move, double gain) const {
  const PanLowPass filter = SensorFilter(m_scene.Grid(), m_positions, move, gain, image.width, image.height);
  quality::Image lowered;
  lowered.width = m_ms.image.width;
  lowered.height = m_ms.image.height;
  for (const auto& band : image.bands) {
    std::vector<double> values(lowered.PixelCount());
    filter.Apply(band.data(), CRect(0, 0, image.width, image.height), values.data());
    lowered.bands.push_back(std::move(values));
  }
  MarkGaps(lowered);
  return lowered;
}

void FullTile::Measure(const quality::Image& fused, const Move& move, MethodSums& sums) const {
  quality::Image result = Marked(fused);
  CountTogether(result, m_pan.image);
  const Coarse moved = move.IsNone() ? Coarse() : CoarseAt(move);
  const Coarse& coarse = move.IsNone() ? m_still : moved;
  InParallel(m_workers, {[&] { sums.noReference.Add(m_pan.image, result, coarse.pan, coarse.ms); },
                         [&] { sums.consistency.Add(coarse.ms, Lowered(fused, move, m_gains.bands)); },
                         [&] { sums.gradients.Add(m_pan.image, result); }});
}

}  // namespace fusion
