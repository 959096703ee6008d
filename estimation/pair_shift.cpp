#include "estimation/pair_shift.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "estimation/median.h"

namespace fusion {
namespace {

constexpr int kFarthest = 16;
constexpr PanBlur kUsual = {false, 1.0};

/// The deviation of normal values whose median distance from their median this is.
double Spread(std::vector<double> values, double median) {
  constexpr double kOfNormal = 1.4826;
  for (double& v : values) v = std::fabs(v - median);
  return kOfNormal * Median(std::move(values));
}

/// The details of a window in arrays without gaps: 0 where one of them has none, so that gaps add nothing.
struct Details {
  int width = 0;
  int height = 0;
  std::vector<std::vector<double>> bands;
  std::vector<double> pan;
};

Details DetailsOf(const RegistrationTile& tile, const Registration& registration) {
  Details details{tile.positions.width, tile.positions.height, {}, {}};
  for (const auto& band : tile.bands) details.bands.push_back(DetailOf(band, details.width, details.height));
  details.pan = DetailOf(registration.Degraded(tile, kUsual, 0.0, 0.0), details.width, details.height);
  for (std::size_t i = 0; i < details.pan.size(); ++i) {
    double sum = 0.0;
    for (const auto& band : details.bands) sum += band[i];
    if (sum != sum) {
      for (auto& band : details.bands) band[i] = 0.0;
    }
    if (details.pan[i] != details.pan[i]) details.pan[i] = 0.0;
  }
  return details;
}

/// Multispectral pixels.
struct Offset {
  int x = 0;
  int y = 0;
};

/// How far a window can be moved on itself.
int FarthestMove(const Details& details) { return std::min(kFarthest, std::min(details.width, details.height) / 4); }

/// Adds the second moments of the bands inside a window, and of pan's detail that lies beside them by the offset.
void AddMoments(const Details& details, const Offset& offset, std::vector<double>& sums) {
  const int reach = FarthestMove(details);
  const std::size_t n = details.bands.size();
  std::vector<double> own((n + 1) * (n + 1), 0.0);
  const auto addRows = [&](std::size_t i, std::size_t j) {
    const std::vector<double>& first = details.bands[i];
    const std::vector<double>& second = j < n ? details.bands[j] : details.pan;
    const std::ptrdiff_t beside = j < n ? 0 : static_cast<std::ptrdiff_t>(offset.y) * details.width + offset.x;
    double sum = 0.0;
    for (int y = reach; y < details.height - reach; ++y) {
      const double* a = first.data() + static_cast<std::ptrdiff_t>(y) * details.width;
      const double* b = second.data() + static_cast<std::ptrdiff_t>(y) * details.width + beside;
      for (int x = reach; x < details.width - reach; ++x) sum += a[x] * b[x];
    }
    own[i * (n + 1) + j] = own[j * (n + 1) + i] = sum;
  };
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = i; j <= n; ++j) addRows(i, j);
  }
  double& pan = own.back();
  for (int y = reach; y < details.height - reach; ++y) {
    for (int x = reach; x < details.width - reach; ++x) {
      const std::ptrdiff_t at = std::ptrdiff_t{y + offset.y} * details.width + x + offset.x;
      const double v = details.pan[static_cast<std::size_t>(at)];
      pan += v * v;
    }
  }
  // Windows with much detail do not decide alone.
  if (!(pan > 0.0)) return;
  const double weight = 1.0 / std::sqrt(pan);
  for (std::size_t i = 0; i < sums.size(); ++i) sums[i] += weight * own[i];
}

class ShiftSearch {
 public:
  ShiftSearch(const std::vector<CRect>& windows, const PanGrid& grid,
              const std::function<RegistrationTile(const CRect&, const PanPositions&)>& read,
              platform::Workers* workers, const std::function<void()>& watch)
      : m_windows(windows), m_grid(grid), m_read(read), m_workers(workers), m_watch(watch) {}

  PairShift Measure() {
    PairShift result = Around({});
    const Offset far = FindFar();
    // What Registration reaches by itself is its own.
    if (std::max(std::abs(far.x), std::abs(far.y)) > 1) {
      PairShift other = Around(far);
      constexpr double kLeastFall = 0.2;
      if (1.0 - other.score <= (1.0 - kLeastFall) * (1.0 - result.score)) {
        other.inPlace = result.inPlace;
        other.isFar = true;
        return other;
      }
    }
    return result;
  }

 private:
  std::vector<RegistrationTile> ReadAll(const Offset& offset, std::vector<std::pair<double, double>>* moves) const {
    std::vector<RegistrationTile> tiles;
    for (const CRect& rect : m_windows) {
      PanPositions positions = m_grid.Positions(rect);
      const auto [x, y] = MoveOf(rect, offset);
      for (double& at : positions.x) at += x;
      for (double& at : positions.y) at += y;
      if (moves) moves->emplace_back(x, y);
      tiles.push_back(m_read(rect, positions));
    }
    return tiles;
  }

  /// An offset in pan pixels, in the middle of a window.
  std::pair<double, double> MoveOf(const CRect& rect, const Offset& offset) const {
    const int x = (rect.left + rect.right) / 2;
    const int y = (rect.top + rect.bottom) / 2;
    const auto place = [this](int column, int row) {
      const PanPositions at = m_grid.Positions({column, row, column + 1, row + 1});
      return std::pair(at.x[0], at.y[0]);
    };
    const auto [x0, y0] = place(x, y);
    const auto [x1, y1] = place(x + offset.x, y + offset.y);
    return {x1 - x0, y1 - y0};
  }

  /// The whole multispectral pixels by which the image is to be moved.
  Offset FindFar() const {
    const std::vector<RegistrationTile> tiles = ReadAll({}, nullptr);
    if (tiles.empty()) return {};
    const Registration registration({}, m_grid, nullptr);
    std::vector<Details> details(tiles.size());
    platform::ForEach(m_workers, static_cast<int>(tiles.size()), [&](int t) {
      details[static_cast<std::size_t>(t)] = DetailsOf(tiles[static_cast<std::size_t>(t)], registration);
    });
    int reach = kFarthest;
    for (const Details& d : details) reach = std::min(reach, FarthestMove(d));
    const int side = 2 * reach + 1;
    const std::size_t n = tiles[0].bands.size();
    std::vector<double> scores(static_cast<std::size_t>(side) * static_cast<std::size_t>(side));
    platform::ForEach(m_workers, static_cast<int>(scores.size()), [&](int i) {
      std::vector<double> sums((n + 1) * (n + 1), 0.0);
      for (const Details& d : details) AddMoments(d, {i % side - reach, i / side - reach}, sums);
      scores[static_cast<std::size_t>(i)] = DetailScore(sums, static_cast<int>(n));
    });
    const auto best = static_cast<int>(std::max_element(scores.begin(), scores.end()) - scores.begin());
    return {best % side - reach, best / side - reach};
  }

  /// Everything about the images with the multispectral one moved beforehand.
  PairShift Around(const Offset& offset) const {
    std::vector<std::pair<double, double>> moves;
    Registration all(ReadAll(offset, &moves), m_grid, m_workers);
    all.SetWatch(m_watch);
    const RegistrationResult found = all.Find(true);
    PairShift result;
    result.blur = found.blur;
    result.inPlace = all.Score(found.blur, 0.0, 0.0);
    const RegistrationShift together = all.Locate(found.blur, found.shiftX, found.shiftY);
    result.score = together.score;
    std::vector<RegistrationShift> own(all.Tiles().size());
    std::vector<char> tells(own.size(), 0);
    platform::ForEach(m_workers, static_cast<int>(own.size()), [&](int t) {
      const auto i = static_cast<std::size_t>(t);
      Registration window({all.Tiles()[i]}, m_grid, nullptr);
      own[i] = window.Locate(found.blur, together.x, together.y);
      // A top at the end of the reach is none, and what hardly anything of pan's detail says is chance.
      constexpr double kLeastScore = 0.1;
      constexpr std::int64_t kLeastPixels = 200;
      const double reach = Registration::LargestShift(m_grid);
      tells[i] = own[i].score >= kLeastScore && std::fabs(own[i].x) < reach && std::fabs(own[i].y) < reach &&
                 window.Evidence(found.blur, own[i].x, own[i].y) >= kLeastPixels;
    });
    std::vector<double> x;
    std::vector<double> y;
    for (std::size_t i = 0; i < own.size(); ++i) {
      if (!tells[i]) continue;
      x.push_back(own[i].x + moves[i].first);
      y.push_back(own[i].y + moves[i].second);
    }
    result.windows = static_cast<int>(x.size());
    result.x = Median(x);
    result.y = Median(y);
    result.spreadX = Spread(std::move(x), result.x);
    result.spreadY = Spread(std::move(y), result.y);
    return result;
  }

  const std::vector<CRect>& m_windows;
  const PanGrid& m_grid;
  const std::function<RegistrationTile(const CRect&, const PanPositions&)>& m_read;
  platform::Workers* m_workers;
  const std::function<void()>& m_watch;
};

}  // namespace

PairShift MeasureShift(const std::vector<CRect>& windows, const PanGrid& grid,
                       const std::function<RegistrationTile(const CRect&, const PanPositions&)>& read,
                       platform::Workers* workers, const std::function<void()>& watch) {
  return ShiftSearch(windows, grid, read, workers, watch).Measure();
}

}  // namespace fusion
