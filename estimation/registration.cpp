#include "estimation/registration.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "estimation/median.h"
#include "framework/row_math.h"
#include "platform/statistics/running_covariance.h"
#include "platform/utility/matrix_operation.h"

namespace fusion {
namespace {

constexpr double kWidths[] = {0.5, 0.6, 0.7, 0.8, 0.9, 1.0, 1.1, 1.2, 1.35, 1.5, 1.7, 1.9};
constexpr int kWidthCount = static_cast<int>(std::size(kWidths));
constexpr PanBlur kWidest = {false, kWidths[kWidthCount - 1]};
constexpr PanBlur kBox = {true, 1.0};
constexpr int kLeastPixels = 50;

/// The top of the parabola through three points.
double TopOf(const double* x, const double* y) {
  const double left = (y[1] - y[0]) / (x[1] - x[0]);
  const double right = (y[2] - y[1]) / (x[2] - x[1]);
  const double bend = (right - left) / (x[2] - x[0]);
  if (!(bend < 0.0)) return x[1];
  return std::clamp((x[0] + x[1]) / 2.0 - left / (2.0 * bend), x[0], x[2]);
}

}  // namespace

std::vector<double> DetailOf(const std::vector<double>& values, int width, int height) {
  std::vector<double> details(values.size(), std::numeric_limits<double>::quiet_NaN());
  const auto stride = static_cast<std::size_t>(width);
  for (int y = 1; y + 1 < height; ++y) {
    for (int x = 1; x + 1 < width; ++x) {
      const std::size_t i = static_cast<std::size_t>(y) * stride + static_cast<std::size_t>(x);
      const auto rowSum = [&](std::size_t at) { return values[at - 1] + values[at] + values[at + 1]; };
      details[i] = values[i] - (rowSum(i - stride) + rowSum(i) + rowSum(i + stride)) / 9.0;
    }
  }
  return details;
}

double DetailScore(const std::vector<double>& moments, int n) {
  const auto m = static_cast<std::size_t>(n);
  const auto at = [&](std::size_t i, std::size_t j) {
    const double scale = std::sqrt(moments[i * (m + 1) + i]) * std::sqrt(moments[j * (m + 1) + j]);
    return scale > 0.0 ? moments[i * (m + 1) + j] / scale : 0.0;
  };
  std::vector<double> bands;
  std::vector<double> right;
  for (std::size_t i = 0; i < m; ++i) {
    for (std::size_t j = 0; j < m; ++j) bands.push_back(at(i, j));
    right.push_back(at(i, m));
  }
  std::vector<double> solution(m);
  constexpr double kCut = 1e-9;
  if (!CMatrixOperation::SolveLeastSquares(bands.data(), n, kCut, right.data(), solution.data())) return 0.0;
  double score = 0.0;
  for (std::size_t i = 0; i < m; ++i) score += right[i] * solution[i];
  return score;
}

std::vector<CRect> ChooseTiles(const CRect& area, const PanGrid& grid) {
  constexpr double kMost = 16.0;
  constexpr double kMostPanPixels = 1 << 24;
  const double width = area.Width();
  const double height = area.Height();
  const double panPerPixel = std::max(grid.RatioX() * grid.RatioY(), 1.0);
  double side = std::clamp(std::sqrt(width * height / kMost), 48.0, grid.IsGrid() ? 96.0 : 64.0);
  side = std::min(side, std::max(std::sqrt(kMostPanPixels / kMost / panPerPixel), 8.0));
  const double fitX = std::max(std::floor(width / side), 1.0);
  const double fitY = std::max(std::floor(height / side), 1.0);
  double across = fitX;
  double down = fitY;
  if (across * down > kMost) {
    across = std::clamp(std::round(std::sqrt(kMost * width / height)), 1.0, std::min(fitX, kMost));
    down = std::min(fitY, std::floor(kMost / across));
    across = std::min(fitX, std::floor(kMost / down));
  } else {
    // All of a small area is looked at.
    side = std::max(side, std::max(width / across, height / down));
  }
  std::vector<CRect> tiles;
  for (int j = 0; j < down; ++j) {
    for (int i = 0; i < across; ++i) {
      const auto start = [side](double size, double count, int k) {
        const double center = (k + 0.5) * size / count;
        return std::clamp(std::floor(center - side / 2.0), 0.0, std::max(std::floor(size - side), 0.0));
      };
      const int left = area.left + static_cast<int>(start(width, across, i));
      const int top = area.top + static_cast<int>(start(height, down, j));
      const int length = static_cast<int>(std::ceil(side));
      tiles.emplace_back(left, top, std::min(left + length, area.right), std::min(top + length, area.bottom));
    }
  }
  return tiles;
}

Registration::Registration(std::vector<RegistrationTile> tiles, const PanGrid& grid, platform::Workers* workers)
    : m_tiles(std::move(tiles)),
      m_grid(grid),
      m_workers(workers),
      m_bands(m_tiles.empty() ? 0 : static_cast<int>(m_tiles.front().bands.size())) {
  for (const RegistrationTile& tile : m_tiles) {
    auto& details = m_details.emplace_back();
    for (const auto& band : tile.bands) {
      details.push_back(DetailOf(band, tile.positions.width, tile.positions.height));
    }
  }
}

double Registration::LargestShift(const PanGrid& grid) { return 2.0 * std::max(grid.RatioX(), grid.RatioY()); }

CRect Registration::Reads(const PanPositions& positions, const PanGrid& grid) {
  // Of the widest of the filters, the farther of the reaches of a Gaussian and a box.
  const auto range = [&](const std::vector<double>& places, double ratio, int size) {
    const double reach = 4.0 * kWidest.Shape(ratio).size + 2.0 + LargestShift(grid);
    double first = size;
    double last = -1.0;
    for (const double at : places) {
      if (!(at + reach >= 0.0 && at - reach <= size - 1.0)) continue;
      first = std::min(first, at - reach);
      last = std::max(last, at + reach);
    }
    return std::pair(static_cast<int>(std::max(first, 0.0)),
                     static_cast<int>(std::clamp(last + 1.0, 0.0, static_cast<double>(size))));
  };
  const auto [left, right] = range(positions.x, grid.RatioX(), grid.PanWidth());
  const auto [top, bottom] = range(positions.y, grid.RatioY(), grid.PanHeight());
  return left < right && top < bottom ? CRect(left, top, right, bottom) : CRect();
}

std::vector<double> Registration::Degraded(const RegistrationTile& tile, const PanBlur& blur, double shiftX,
                                           double shiftY) const {
  const PanLowPass lowPass(tile.positions, shiftX, shiftY, blur.Shape(m_grid.RatioX()), blur.Shape(m_grid.RatioY()),
                           m_grid.PanWidth(), m_grid.PanHeight());
  const auto count = static_cast<std::size_t>(tile.positions.width) * static_cast<std::size_t>(tile.positions.height);
  std::vector<double> values(count);
  lowPass.Apply(tile.pan.data(), tile.panRect, values.data());
  return values;
}

Registration::Moments Registration::MomentsOf(std::size_t index, const PanBlur& blur, double shiftX,
                                              double shiftY) const {
  const RegistrationTile& tile = m_tiles[index];
  const std::vector<double> pan =
      DetailOf(Degraded(tile, blur, shiftX, shiftY), tile.positions.width, tile.positions.height);
  std::vector<const double*> details;
  for (const auto& band : m_details[index]) details.push_back(band.data());
  details.push_back(pan.data());

  std::vector<double> sums(pan.size());
  SumRows(details.data(), static_cast<int>(details.size()), static_cast<int>(pan.size()), sums.data());
  // Where one has no value none of them has.
  std::vector<std::vector<double>> valid(details.size(), std::vector<double>(pan.size()));
  std::size_t count = 0;
  for (std::size_t d = 0; d < details.size(); ++d) {
    count = 0;
    for (std::size_t i = 0; i < pan.size(); ++i) {
      valid[d][count] = details[d][i];
      count += sums[i] == sums[i] ? 1 : 0;
    }
    details[d] = valid[d].data();
  }
  platform::RunningCovariance products(static_cast<int>(details.size()));
  products.Add(details.data(), static_cast<std::int64_t>(count));
  Moments moments{products.Count(), {}};
  const int size = static_cast<int>(details.size());
  for (int i = 0; i < size; ++i) {
    for (int j = 0; j < size; ++j) {
      moments.values.push_back(products.Covariance(i, j) + products.Mean(i) * products.Mean(j));
    }
  }
  return moments;
}

std::vector<Registration::Moments> Registration::MomentsOfTiles(const PanBlur& blur, double shiftX,
                                                                double shiftY) const {
  std::vector<Moments> all(m_tiles.size());
  platform::ForEach(m_workers, static_cast<int>(all.size()), [&](int t) {
    all[static_cast<std::size_t>(t)] = MomentsOf(static_cast<std::size_t>(t), blur, shiftX, shiftY);
  });
  return all;
}

bool Registration::IsInside(const PanBlur& blur) {
  return !blur.isBox && blur.width > kWidths[0] && blur.width < kWidest.width;
}

std::int64_t Registration::Evidence(const PanBlur& blur, double shiftX, double shiftY) const {
  std::int64_t pixels = 0;
  for (const Moments& tile : MomentsOfTiles(blur, shiftX, shiftY)) pixels += tile.count;
  return pixels;
}

double Registration::Score(const PanBlur& blur, double shiftX, double shiftY) {
  if (m_watch) m_watch();
  const auto [known, isNew] = m_scores.try_emplace({blur.isBox, blur.width, shiftX, shiftY}, 0.0);
  if (!isNew) return known->second;
  const auto size = static_cast<std::size_t>(m_bands) + 1;
  const std::vector<Moments> all = MomentsOfTiles(blur, shiftX, shiftY);
  std::vector<double> spreads;
  for (const Moments& tile : all) {
    if (tile.count >= kLeastPixels) spreads.push_back(tile.values.back());
  }
  const double usual = Median(spreads);
  std::vector<double> sum(size * size, 0.0);
  for (const Moments& tile : all) {
    if (tile.count < kLeastPixels) continue;
    const double spread = std::sqrt(tile.values.back() + usual);
    if (!(spread > 0.0)) continue;
    for (std::size_t i = 0; i < sum.size(); ++i) sum[i] += static_cast<double>(tile.count) / spread * tile.values[i];
  }
  known->second = DetailScore(sum, m_bands);
  return known->second;
}

PanBlur Registration::Scan(double shiftX, double shiftY) {
  double scores[kWidthCount];
  for (int i = 0; i < kWidthCount; ++i) scores[i] = Score({false, kWidths[i]}, shiftX, shiftY);
  const int best = static_cast<int>(std::max_element(scores, scores + kWidthCount) - scores);
  if (!(scores[best] > 0.0)) return {};
  if (Score(kBox, shiftX, shiftY) >= scores[best]) return kBox;
  if (best == 0 || best == kWidthCount - 1) return {false, kWidths[best]};
  return {false, TopOf(kWidths + best - 1, scores + best - 1)};
}

void Registration::Climb(const PanBlur& blur, double& shiftX, double& shiftY) {
  constexpr double kLeastGain = 1e-4;
  const double largest = LargestShift(m_grid);
  for (const double step : {1.0, 0.5, 0.25, 0.125}) {
    for (bool moved = true; moved;) {
      double best = Score(blur, shiftX, shiftY) + kLeastGain;
      const double x = shiftX;
      const double y = shiftY;
      moved = false;
      for (const double dy : {-step, 0.0, step}) {
        for (const double dx : {-step, 0.0, step}) {
          if (std::max(std::fabs(x + dx), std::fabs(y + dy)) > largest) continue;
          const double score = Score(blur, x + dx, y + dy);
          if (score < best) continue;
          best = score;
          shiftX = x + dx;
          shiftY = y + dy;
          moved = true;
        }
      }
    }
  }
}

RegistrationShift Registration::Locate(const PanBlur& blur, double shiftX, double shiftY) {
  Climb(blur, shiftX, shiftY);
  // Far enough apart that the bend of the scores is more than the noise in them.
  const double step = std::max(m_grid.RatioX(), m_grid.RatioY()) / 8.0;
  const auto topOf = [&](double at, const auto& score) {
    const double places[] = {at - step, at, at + step};
    const double scores[] = {score(places[0]), score(at), score(places[2])};
    return TopOf(places, scores);
  };
  const double x = topOf(shiftX, [&](double at) { return Score(blur, at, shiftY); });
  const double y = topOf(shiftY, [&](double at) { return Score(blur, shiftX, at); });
  return {x, y, Score(blur, x, y)};
}

double Registration::Agreement(const PanBlur& first, const PanBlur& blur, double shiftX, double shiftY) {
  const std::vector<Moments> before = MomentsOfTiles(first, 0.0, 0.0);
  const std::vector<Moments> after = MomentsOfTiles(blur, shiftX, shiftY);
  std::int64_t pixels = 0;
  int compared = 0;
  int better = 0;
  for (std::size_t t = 0; t < before.size(); ++t) {
    if (before[t].count < kLeastPixels || after[t].count < kLeastPixels) continue;
    ++compared;
    pixels += after[t].count;
    if (DetailScore(after[t].values, m_bands) > DetailScore(before[t].values, m_bands)) ++better;
  }
  return pixels >= kLeastEvidence ? static_cast<double>(better) / compared : 0.0;
}

RegistrationResult Registration::Find(bool searchesShift) {
  constexpr double kLeastShift = 0.2;  // less is no shift that detail tells for certain
  constexpr double kLeastAgreement = 0.75;
  constexpr double kLeastFall = 0.05;
  RegistrationResult result;
  if (m_tiles.empty()) return result;
  result.blur = Scan(0.0, 0.0);
  result.score = Score(result.blur, 0.0, 0.0);
  if (!searchesShift || !(result.score > 0.0)) return result;
  double x = 0.0;
  double y = 0.0;
  PanBlur blur = result.blur;
  Climb(blur, x, y);
  if (std::max(std::fabs(x), std::fabs(y)) < kLeastShift) return result;
  blur = Scan(x, y);
  Climb(blur, x, y);
  result.agreement = Agreement(result.blur, blur, x, y);
  const double score = Score(blur, x, y);
  if (result.agreement < kLeastAgreement || !(1.0 - score <= (1.0 - kLeastFall) * (1.0 - result.score))) return result;
  return {blur, x, y, true, result.agreement, score};
}

}  // namespace fusion
