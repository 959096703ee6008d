#include "runs/sample_scene.h"

#include <algorithm>
#include <cmath>

namespace fusion {
namespace {

enum Kind { kCrop, kMeadow, kSoil, kWood, kWater, kRoad, kBrightRoof, kRedRoof, kShadow, kKindCount };

// Reflectance in blue, green, red and near infrared; plausible figures, not measurements. Water is next to black, as it
// is once the haze above it has been taken off.
constexpr double kSpectra[kKindCount][4] = {
    {0.05, 0.10, 0.06, 0.45}, {0.06, 0.12, 0.08, 0.38},     {0.12, 0.17, 0.24, 0.31},
    {0.03, 0.06, 0.04, 0.33}, {0.020, 0.014, 0.006, 0.001}, {0.14, 0.15, 0.16, 0.18},
    {0.40, 0.42, 0.44, 0.47}, {0.12, 0.16, 0.30, 0.36},     {0.02, 0.02, 0.02, 0.04},
};
constexpr double kPanShares[4] = {0.22, 0.30, 0.32, 0.16};

constexpr int kFieldSize = 150;
constexpr int kRoadSpacing = 420;
constexpr int kPlotSize = 44;
constexpr int kTreeSpacing = 16;
constexpr int kBendLength = 600;
constexpr double kTown = 0.52;
constexpr double kRiverHalf = 28.0;

double Ease(double t) { return t * t * (3.0 - 2.0 * t); }

}  // namespace

SampleScene::SampleScene(unsigned seed, int width, int height, int bandCount, double clouds)
    : m_seed(seed),
      m_width(width),
      m_height(height),
      m_bandCount(bandCount),
      m_cloudy(clouds > 0.0),
      m_cloudBase(m_cloudy ? CloudBase(clouds) : 0.0) {}

std::uint64_t SampleScene::Bits(std::uint32_t channel, std::int64_t x, std::int64_t y) const {
  std::uint64_t h = (static_cast<std::uint64_t>(m_seed) << 32) ^ channel;
  h ^= static_cast<std::uint64_t>(x) * 0x9E3779B97F4A7C15ULL;
  h ^= static_cast<std::uint64_t>(y) * 0xC2B2AE3D27D4EB4FULL;
  h ^= h >> 29;
  h *= 0xBF58476D1CE4E5B9ULL;
  h ^= h >> 32;
  h *= 0x94D049BB133111EBULL;
  return h;
}

std::uint32_t SampleScene::Hash(std::uint32_t channel, std::int64_t x, std::int64_t y) const {
  return static_cast<std::uint32_t>(Bits(channel, x, y) >> 32);
}

double SampleScene::Unit(std::uint32_t channel, std::int64_t x, std::int64_t y) const {
  return Hash(channel, x, y) / 4294967296.0;
}

/// Between -1 and 1, all alike.
double SampleScene::Grain(std::uint32_t channel, int column, int row) const {
  return Unit(channel, column, row) * 2.0 - 1.0;
}

double SampleScene::Noise(unsigned channel, int column, int row) const {
  // The sum of four numbers that are anything from 0 to 1 has the mean 2 and the variance 4 / 12.
  constexpr double kRootOf3 = 1.7320508075688772;
  const std::uint64_t bits = Bits(channel, column, row);
  const std::uint64_t sum = (bits & 0xFFFF) + (bits >> 16 & 0xFFFF) + (bits >> 32 & 0xFFFF) + (bits >> 48);
  return kRootOf3 * (static_cast<double>(sum) / 65535.0 - 2.0);
}

/// Column of the middle of the river.
double SampleScene::RiverAt(int row) const {
  const int bend = row / kBendLength;
  const double along = Ease(static_cast<double>(row % kBendLength) / kBendLength);
  return kBeyond + m_width * (0.3 + 0.4 * (Unit(21, 0, bend) * (1.0 - along) + Unit(21, 0, bend + 1) * along));
}

/// Smooth noise between 0 and 1: random values on a lattice, blended.
void SampleScene::SmoothRow(std::uint32_t channel, int period, int row, int firstColumn,
                            std::vector<double>& values) const {
  const int top = row / period;
  const double down = Ease(static_cast<double>(row % period) / period);
  double left = 0.0;
  double right = 0.0;
  const auto at = [&](int cell) {
    return Unit(channel, cell, top) * (1.0 - down) + Unit(channel, cell, top + 1) * down;
  };
  for (std::size_t i = 0; i < values.size(); ++i) {
    const int column = firstColumn + static_cast<int>(i);
    if (i == 0 || column % period == 0) {
      left = i == 0 ? at(column / period) : right;
      right = at(column / period + 1);
    }
    const double across = Ease(static_cast<double>(column % period) / period);
    values[i] = left * (1.0 - across) + right * across;
  }
}

/// Clouds are the peaks of a smooth height with ever smaller bulges, 0 to 1.
void SampleScene::CloudRow(int row, int firstColumn, std::vector<double>& heights) const {
  static constexpr struct {
    int period;
    double height;
  } kBulges[] = {{260, 0.6}, {70, 0.25}, {19, 0.15}};
  std::fill(heights.begin(), heights.end(), 0.0);
  std::vector<double> bulge(heights.size());
  std::uint32_t channel = 50;
  for (const auto& [period, height] : kBulges) {
    SmoothRow(channel++, period, row, firstColumn, bulge);
    for (std::size_t i = 0; i < heights.size(); ++i) heights[i] += height * bulge[i];
  }
}

/// The height that a share of the picture reaches, by a grid of its pixels.
double SampleScene::CloudBase(double share) const {
  constexpr int kMost = 256;
  const int across = (m_width + kMost - 1) / kMost;
  const int down = (m_height + kMost - 1) / kMost;
  std::vector<double> row(static_cast<std::size_t>(m_width));
  std::vector<double> heights;
  for (int y = 0; y < m_height; y += down) {
    CloudRow(y + kBeyond, kBeyond, row);
    for (int x = 0; x < m_width; x += across) heights.push_back(row[static_cast<std::size_t>(x)]);
  }
  std::sort(heights.begin(), heights.end());
  const auto below = static_cast<std::size_t>((1.0 - share) * static_cast<double>(heights.size()));
  return heights[std::min(below, heights.size() - 1)];
}

/// Fields are the cells around randomly moved lattice points.
SampleScene::Surface SampleScene::FieldAt(int column, int row) const {
  const int cellX = column / kFieldSize;
  const int cellY = row / kFieldSize;
  double nearest = 1e18;
  int fieldX = 0;
  int fieldY = 0;
  for (int y = cellY - 1; y <= cellY + 1; ++y) {
    for (int x = cellX - 1; x <= cellX + 1; ++x) {
      const double dx = (x + Unit(1, x, y)) * kFieldSize - column;
      const double dy = (y + Unit(2, x, y)) * kFieldSize - row;
      // City-block distance gives straight field borders.
      const double distance = std::fabs(dx) + std::fabs(dy);
      if (distance < nearest) {
        nearest = distance;
        fieldX = x;
        fieldY = y;
      }
    }
  }
  static constexpr Kind kKinds[] = {kCrop, kCrop, kMeadow, kSoil, kSoil, kWood, kCrop, kMeadow};
  const int kind = kKinds[Hash(3, fieldX, fieldY) % std::size(kKinds)];
  // Furrows: every field has a direction and a spacing of its own. The direction comes from the half angle's tangent,
  // because a sine may differ in its last digit from one system's library to another's.
  const double t = Unit(4, fieldX, fieldY) * 2.0 - 1.0;
  const double spacing = 5.0 + 6.0 * Unit(5, fieldX, fieldY);
  const double phase = (column * (1.0 - t * t) + row * 2.0 * t) / ((1.0 + t * t) * spacing);
  const double furrow = kind == kWood ? 0.0 : 0.06 * ((phase - std::floor(phase) < 0.5) ? 1.0 : -1.0);
  return {kind, 0.8 + 0.4 * Unit(6, fieldX, fieldY) + furrow};
}

/// A tree every so often: one crown at most in each cell of a lattice, lit from the upper left.
bool SampleScene::TreeAt(int column, int row, double density, Surface& tree) const {
  const int cellX = column / kTreeSpacing;
  const int cellY = row / kTreeSpacing;
  if (Unit(14, cellX, cellY) >= density) return false;
  const double radius = 2.5 + 3.0 * Unit(15, cellX, cellY);
  const double room = kTreeSpacing - 2.0 * radius;
  const double x = column % kTreeSpacing - (radius + room * Unit(16, cellX, cellY));
  const double y = row % kTreeSpacing - (radius + room * Unit(17, cellX, cellY));
  if (x * x + y * y > radius * radius) return false;
  tree = {kWood, 1.3 - 0.4 * (x + y) / radius};
  return true;
}

SampleScene::Surface SampleScene::SurfaceAt(int column, int row, double town, double river) const {
  const double fromRiver = std::fabs(column - river);
  // No more than a sixth of a narrow picture.
  if (fromRiver < std::min(kRiverHalf, m_width / 12.0)) return {kWater, 1.0 - 0.008 * fromRiver};

  const int roadX = static_cast<int>(Unit(7, column / kRoadSpacing, 0) * 200.0) + 60;
  const int roadY = static_cast<int>(Unit(8, 0, row / kRoadSpacing) * 200.0) + 60;
  const int acrossX = column % kRoadSpacing - roadX;
  const int acrossY = row % kRoadSpacing - roadY;
  if (std::abs(acrossX) < 7 || std::abs(acrossY) < 7) {
    const bool line = (acrossX == 0 && row % 16 < 8) || (acrossY == 0 && column % 16 < 8);
    return {kRoad, line ? 2.2 : 1.0};
  }

  Surface tree{};
  if (town > kTown) {
    const int plotX = column / kPlotSize;
    const int plotY = row / kPlotSize;
    const int w = 14 + static_cast<int>(Unit(9, plotX, plotY) * 18.0);
    const int h = 12 + static_cast<int>(Unit(10, plotX, plotY) * 18.0);
    const int x = column % kPlotSize - 6;
    const int y = row % kPlotSize - 6;
    if (x >= 0 && x < w && y >= 0 && y < h) {
      const bool red = Hash(11, plotX, plotY) % 3 != 0;
      // The two halves of a roof catch the light differently.
      return {red ? kRedRoof : kBrightRoof, (x < w / 2 ? 0.85 : 1.1) * (0.8 + 0.4 * Unit(12, plotX, plotY))};
    }
    if (x >= 4 && x < w + 5 && y >= 4 && y < h + 5) return {kShadow, 1.0};
    return TreeAt(column, row, 0.3, tree) ? tree : Surface{kMeadow, 0.9};
  }
  const Surface field = FieldAt(column, row);
  return field.kind == kMeadow && TreeAt(column, row, 0.1, tree) ? tree : field;
}

double SampleScene::Reflectance(int kind, int band) const {
  if (band < 4) return kSpectra[kind][band];
  // Further bands: mixtures of the four with weights of their own.
  double value = 0.0;
  double weights = 0.0;
  for (int b = 0; b < 4; ++b) {
    const double weight = 0.1 + Unit(13, band, b);
    value += weight * kSpectra[kind][b];
    weights += weight;
  }
  return value / weights;
}

double SampleScene::PanShare(int band) const {
  if (band >= 4) return 0.0;
  double sum = 0.0;
  for (int b = 0; b < std::min(m_bandCount, 4); ++b) sum += kPanShares[b];
  return kPanShares[band] / sum;
}

void SampleScene::Row(int row, int firstColumn, std::vector<std::vector<double>>& bands) const {
  // Cells of all kinds are counted from the landscape's corner, so no position is negative.
  row += kBeyond;
  firstColumn += kBeyond;
  const std::size_t width = bands.front().size();
  std::vector<double> town(width);
  std::vector<double> relief(width);
  std::vector<double> texture(width);
  std::vector<double> cloud(width);
  const double river = RiverAt(row);
  SmoothRow(20, 400, row, firstColumn, town);
  SmoothRow(22, 210, row, firstColumn, relief);
  SmoothRow(23, 7, row, firstColumn, texture);
  if (m_cloudy) CloudRow(row, firstColumn, cloud);
  for (std::size_t i = 0; i < width; ++i) {
    const int column = firstColumn + static_cast<int>(i);
    const Surface surface = SurfaceAt(column, row, town[i], river);
    const double rough = surface.kind == kWood ? 0.9 : surface.kind == kWater ? 0.05 : 0.25;
    const double light = surface.brightness * (0.9 + 0.2 * relief[i]) *
                         (1.0 + rough * (texture[i] - 0.5) + 0.06 * Grain(24, column, row));
    // Edges of clouds let the ground shine through.
    const double hidden = m_cloudy ? std::clamp(0.5 + 8.0 * (cloud[i] - m_cloudBase), 0.0, 1.0) : 0.0;
    const double white = 0.7 + 0.25 * cloud[i];
    for (int b = 0; b < m_bandCount; ++b) {
      const double ground =
          Reflectance(surface.kind, b) * light * (1.0 + 0.02 * Grain(25U + static_cast<unsigned>(b), column, row));
      const double seen = ground + hidden * (white - ground);
      bands[static_cast<std::size_t>(b)][i] = std::clamp(seen, 0.0, 1.0);
    }
  }
}

}  // namespace fusion
