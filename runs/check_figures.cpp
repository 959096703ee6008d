#include "runs/check_figures.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "platform/utility/matrix_operation.h"

namespace fusion {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
/// An area of up to twice as many pixels is walked over whole, of a larger one about as many.
constexpr std::int64_t kEnoughMs = std::int64_t{1} << 20;
constexpr std::int64_t kEnoughPan = std::int64_t{1} << 23;
/// Pan pixels that are in memory at a time, if a few rows are not more.
constexpr std::int64_t kStrip = std::int64_t{1} << 22;
/// Columns that lie askew in pan have little of it between them only where they are few.
constexpr int kAskewColumns = 256;

/// The strips of an area to be walked over: all of them, or some.
std::vector<CRect> Strips(const CRect& area, std::int64_t enough, double panPerPixel) {
  constexpr int kFewRows = 16;
  constexpr int kManyRows = 128;
  constexpr int kLeastStrips = 16;
  const double width = std::max(area.Width(), 1);
  const bool whole = area.Area() <= 2 * enough;
  double rows = std::min<double>(kManyRows, static_cast<double>(kStrip) / (width * panPerPixel));
  if (!whole) rows = std::min(rows, static_cast<double>(enough) / (width * kLeastStrips));
  const int height = static_cast<int>(std::max<double>(kFewRows, rows));
  const int count = (area.Height() + height - 1) / height;
  const int taken =
      whole ? count
            : static_cast<int>(std::clamp<std::int64_t>(enough / (std::int64_t{area.Width()} * height), 1, count));
  std::vector<CRect> strips;
  for (int i = 0; i < taken; ++i) {
    const auto n = static_cast<int>((2 * std::int64_t{i} + 1) * count / (2 * std::int64_t{taken}));
    const int top = area.top + n * height;
    strips.emplace_back(area.left, top, area.right, std::min(top + height, area.bottom));
  }
  return strips;
}

std::int64_t AreaOf(const std::vector<CRect>& strips) {
  return std::accumulate(strips.begin(), strips.end(), std::int64_t{0},
                         [](std::int64_t sum, const CRect& strip) { return sum + strip.Area(); });
}

/// Second moments of vectors that are looked at as correlations of the last component with the others.
class Correlations {
 public:
  explicit Correlations(std::size_t size) : m_moments(static_cast<int>(size)), m_size(size) {}

  /// @return the vectors without a NaN
  std::int64_t Add(const std::vector<std::vector<double>>& images) {
    std::vector<std::vector<double>> valid(m_size);
    for (std::size_t i = 0; i < images[0].size(); ++i) {
      double sum = 0.0;
      for (const auto& image : images) sum += image[i];
      if (sum != sum) continue;
      for (std::size_t b = 0; b < m_size; ++b) valid[b].push_back(images[b][i]);
    }
    std::vector<const double*> columns;
    columns.reserve(m_size);
    for (const auto& column : valid) columns.push_back(column.data());
    m_moments.Add(columns.data(), static_cast<std::int64_t>(valid[0].size()));
    return static_cast<std::int64_t>(valid[0].size());
  }
  double Mean(std::size_t i) const { return m_moments.Count() > 0 ? m_moments.Mean(static_cast<int>(i)) : kNaN; }
  double WithLast(std::size_t i) const {
    const int last = static_cast<int>(m_size) - 1;
    const double spread = std::sqrt(Covariance(i, i)) * std::sqrt(m_moments.Covariance(last, last));
    return spread > 0.0 ? m_moments.Covariance(static_cast<int>(i), last) / spread : kNaN;
  }
  /// The correlation of the last component with the best linear mix of the others.
  double OfMix() const {
    std::vector<double> matrix;
    std::vector<double> right;
    const std::size_t n = m_size - 1;
    for (std::size_t i = 0; i < n; ++i) {
      for (std::size_t j = 0; j < n; ++j) {
        const double spread = std::sqrt(Covariance(i, i)) * std::sqrt(Covariance(j, j));
        matrix.push_back(spread > 0.0 ? Covariance(i, j) / spread : 0.0);
      }
      const double own = WithLast(i);
      right.push_back(own == own ? own : 0.0);
    }
    std::vector<double> mix(n);
    constexpr double kCut = 1e-9;
    if (!CMatrixOperation::SolveLeastSquares(matrix.data(), static_cast<int>(n), kCut, right.data(), mix.data())) {
      return kNaN;
    }
    return std::sqrt(std::max(0.0, std::inner_product(right.begin(), right.end(), mix.begin(), 0.0)));
  }

 private:
  double Covariance(std::size_t i, std::size_t j) const {
    return m_moments.Covariance(static_cast<int>(i), static_cast<int>(j));
  }

  platform::RunningCovariance m_moments;
  std::size_t m_size;
};

/// Pan as the mean over each pixel of a rectangle of multispectral ones.
std::vector<double> Averaged(ScenePair& pair, const PanGrid& grid, const CRect& rect, platform::Workers* workers) {
  std::vector<double> averaged(static_cast<std::size_t>(rect.Area()));
  const int columns = grid.IsGrid() ? rect.Width() : kAskewColumns;
  // At the edges of pan a part of a pixel says enough.
  constexpr double kHalf = 0.5;
  for (int left = rect.left; left < rect.right; left += columns) {
    const CRect part(left, rect.top, std::min(left + columns, rect.right), rect.bottom);
    const PanLowPass mean(grid.Positions(part), 0.0, 0.0, LowPassShape::Box(std::max(grid.RatioX(), 1.0)),
                          LowPassShape::Box(std::max(grid.RatioY(), 1.0)), grid.PanWidth(), grid.PanHeight(), kHalf);
    const CRect reads = mean.Reads();
    std::vector<double> values(static_cast<std::size_t>(part.Area()), kNaN);
    if (reads.Area() > 0) mean.Apply(pair.ReadPan(reads).data(), reads, values.data(), workers);
    for (int y = 0; y < part.Height(); ++y) {
      std::copy_n(values.begin() + static_cast<std::ptrdiff_t>(y) * part.Width(), part.Width(),
                  averaged.begin() + static_cast<std::ptrdiff_t>(y) * rect.Width() + (left - rect.left));
    }
  }
  return averaged;
}

}  // namespace

ValueFigures::ValueFigures(std::int64_t count, int width)
    : m_low{std::numeric_limits<double>::infinity()}, m_high{-std::numeric_limits<double>::infinity()} {
  constexpr std::int64_t kKept = 1 << 16;
  m_step = std::max<std::int64_t>(count / kKept, 1);
  // Of all columns.
  while (m_step > 1 && std::gcd(m_step, static_cast<std::int64_t>(std::max(width, 1))) > 1) ++m_step;
}

void ValueFigures::Add(const std::vector<double>& values, platform::Workers* workers) {
  m_figures.Add(values.data(), static_cast<std::int64_t>(values.size()), workers);
  for (const double v : values) {
    if (!std::isfinite(v)) continue;
    ++m_valid;
    if (v < m_low.value) m_low = {v};
    if (v > m_high.value) m_high = {v};
    m_low.count += v == m_low.value;
    m_high.count += v == m_high.value;
  }
  for (std::int64_t i = (m_step - m_all % m_step) % m_step; i < static_cast<std::int64_t>(values.size()); i += m_step) {
    const double v = values[static_cast<std::size_t>(i)];
    if (std::isfinite(v)) m_some.push_back(v);
  }
  m_all += static_cast<std::int64_t>(values.size());
}

void ValueFigures::Fill(CheckBand& band) const {
  const auto share = [](std::int64_t part, std::int64_t all) {
    return all > 0 ? static_cast<double>(part) / static_cast<double>(all) : kNaN;
  };
  const bool empty = m_figures.IsEmpty();
  band.minimum = empty ? kNaN : m_figures.Minimum();
  band.maximum = empty ? kNaN : m_figures.Maximum();
  band.mean = empty ? kNaN : m_figures.Mean();
  band.stdDev = empty ? kNaN : m_figures.StdDev();
  band.noData = share(m_all - m_valid, m_all);
  band.atMinimum = share(m_low.count, m_valid);
  band.atMaximum = share(m_high.count, m_valid);
}

bool ValueFigures::IsCut(const End& end, double direction) const {
  // Less is no loss, and single values are no pile.
  constexpr double kWorthAWord = 0.01;
  constexpr std::int64_t kLeastCount = 20;
  if (end.count < kLeastCount || static_cast<double>(end.count) < kWorthAWord * static_cast<double>(m_valid)) {
    return false;
  }
  const double range = m_high.value - m_low.value;
  // Of images with few values, such as classes, each may be frequent.
  std::vector<double> distinct = m_some;
  std::sort(distinct.begin(), distinct.end());
  distinct.erase(std::unique(distinct.begin(), distinct.end()), distinct.end());
  constexpr std::size_t kLeastValues = 32;
  if (!(range > 0.0) || distinct.size() < kLeastValues) return false;
  // The values within a hundredth of the range, and at least two steps, beside the end.
  const double reach = std::max(range / 100.0, 2.0 * range / static_cast<double>(distinct.size()));
  const auto beside = std::count_if(m_some.begin(), m_some.end(), [&](double v) {
    const double inward = direction * (end.value - v);
    return inward > 0.0 && inward <= reach;
  });
  constexpr double kPile = 2.0;
  const double besideShare = static_cast<double>(beside) / static_cast<double>(std::max<std::size_t>(m_some.size(), 1));
  return static_cast<double>(end.count) / static_cast<double>(m_valid) > kPile * besideShare;
}

PairFigures WalkPair(ScenePair& pair, const PanGrid& grid, const CRect& msArea, const CRect& panArea,
                     platform::Workers* workers, const std::function<void(double done)>& tell) {
  PairFigures result;
  const std::vector<CRect> panStrips = Strips(panArea, kEnoughPan, 1.0);
  const std::vector<CRect> msStrips =
      Strips(msArea, kEnoughMs, std::max(grid.RatioX(), 1.0) * std::max(grid.RatioY(), 1.0));
  const double steps = static_cast<double>(panStrips.size() + msStrips.size());
  double step = 0.0;

  ValueFigures pan(AreaOf(panStrips), panArea.Width());
  for (const CRect& strip : panStrips) {
    pan.Add(pair.ReadPan(strip), workers);
    tell(++step / steps);
  }
  pan.Fill(result.pan);
  result.isPanCutLow = pan.IsCutLow();
  result.isPanCutHigh = pan.IsCutHigh();

  const std::size_t n = pair.Bands().size();
  const std::int64_t pixels = AreaOf(msStrips);
  std::vector<ValueFigures> bands(n, ValueFigures(pixels, msArea.Width()));
  Correlations values(n + 1);
  Correlations details(n + 1);
  std::int64_t covered = 0;
  std::int64_t zeros = 0;
  for (const CRect& strip : msStrips) {
    std::vector<std::vector<double>> images = pair.ReadMs(strip);
    for (std::size_t b = 0; b < n; ++b) bands[b].Add(images[b], workers);
    for (std::size_t i = 0; i < images[0].size(); ++i) {
      zeros += std::all_of(images.begin(), images.end(), [i](const auto& image) { return image[i] == 0.0; });
    }
    images.push_back(Averaged(pair, grid, strip, workers));
    covered += values.Add(images);
    for (auto& image : images) image = DetailOf(image, strip.Width(), strip.Height());
    details.Add(images);
    tell(++step / steps);
  }
  for (std::size_t b = 0; b < n; ++b) {
    CheckBand band;
    band.name = pair.Labels()[b];
    bands[b].Fill(band);
    band.panRatio = values.Mean(n) / values.Mean(b);
    band.correlation = values.WithLast(b);
    band.detail = details.WithLast(b);
    result.bands.push_back(band);
    result.isCutLow.push_back(bands[b].IsCutLow());
    result.isCutHigh.push_back(bands[b].IsCutHigh());
  }
  const double all = static_cast<double>(std::max<std::int64_t>(pixels, 1));
  result.share = static_cast<double>(pixels) / static_cast<double>(std::max<std::int64_t>(msArea.Area(), 1));
  result.covered = static_cast<double>(covered) / all;
  result.zeros = static_cast<double>(zeros) / all;
  result.mixCorrelation = values.OfMix();
  return result;
}

}  // namespace fusion
