#include "tests/support/seen_scene.h"

#include <gtest/gtest.h>
#include <ogr_spatialref.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "platform/raster/raster_source.h"
#include "tests/support/scene.h"

namespace test_support {
namespace {

constexpr double kUnit = 0.49393916550014252;  // sqrt(-2 ln 0.3) / pi
constexpr int kBeyond = 60;
constexpr double kPixel = 10.0;

/// From one system to another, x before y in both.
std::shared_ptr<OGRCoordinateTransformation> Between(const std::string& from, const std::string& to) {
  OGRSpatialReference source(from.c_str());
  OGRSpatialReference target(to.c_str());
  for (OGRSpatialReference* system : {&source, &target}) system->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
  return std::shared_ptr<OGRCoordinateTransformation>(OGRCreateCoordinateTransformation(&source, &target),
                                                      OGRCoordinateTransformation::DestroyCT);
}

reference::Position Carried(OGRCoordinateTransformation& transformation, double x, double y) {
  EXPECT_TRUE(transformation.Transform(1, &x, &y));
  return {x, y};
}

/// What a position weighs a sample by.
double Weight(double distance, bool isBox, double width, double ratio) {
  if (isBox) return std::max(0.0, std::min(ratio / 2, distance + 0.5) - std::max(-ratio / 2, distance - 0.5));
  const double s = width * ratio * kUnit;
  return std::fabs(distance) <= 4 * s + 1 ? std::exp(-0.5 * std::pow(distance / s, 2)) : 0.0;
}

}  // namespace

SeenScene::SeenScene(unsigned seed, const SeenOptions& o) {
  static int count = 0;
  panFile = L"/vsimem/seen_pan_" + std::to_wstring(++count) + L".tif";
  msFile = L"/vsimem/seen_ms_" + std::to_wstring(count) + L".tif";
  const int reach = o.turn == 0.0 && !o.degrees ? 0 : static_cast<int>(0.2 * o.msWidth * o.ratioX);
  pan.width = static_cast<int>(o.msWidth * o.ratioX) + 2 * reach;
  pan.height = static_cast<int>(o.msHeight * o.ratioY) + 2 * reach;
  const int w = pan.width + 2 * kBeyond;
  const int h = pan.height + 2 * kBeyond;

  std::mt19937 random(seed);
  std::normal_distribution<double> normal(0.0, 1.0);
  std::uniform_int_distribution<int> column(0, w - 1);
  std::uniform_int_distribution<int> row(0, h - 1);
  std::vector<std::vector<double>> ground(static_cast<std::size_t>(o.bands),
                                          std::vector<double>(static_cast<std::size_t>(w * h), 600.0));
  for (int k = 0; k < w * h / 50; ++k) {
    const int x = column(random);
    const int y = row(random);
    const double value = 50.0 * normal(random);
    const int sizeX = 3 + k % 9;
    const int sizeY = 2 + k % 7;
    std::vector<double> values;
    for (int b = 0; b < o.bands; ++b) values.push_back((1.0 + 0.2 * b) * value + 6.0 * normal(random));
    for (int dy = 0; dy < sizeY && y + dy < h; ++dy) {
      for (int dx = 0; dx < sizeX && x + dx < w; ++dx) {
        for (std::size_t b = 0; b < ground.size(); ++b) {
          ground[b][static_cast<std::size_t>((y + dy) * w + x + dx)] += values[b];
        }
      }
    }
  }
  pan.geoTransform[0] = 440000.0;
  pan.geoTransform[3] = 4470000.0;
  pan.geoTransform[1] = kPixel;
  pan.geoTransform[5] = o.southUp ? kPixel : -kPixel;
  pan.bands.assign(1, {});
  truth.assign(ground.size(), {});
  for (int y = 0; y < pan.height; ++y) {
    for (int x = 0; x < pan.width; ++x) {
      double sum = 0.0;
      for (std::size_t b = 0; b < ground.size(); ++b) {
        const double v = ground[b][static_cast<std::size_t>((y + kBeyond) * w + x + kBeyond)];
        truth[b].push_back(v);
        sum += v;
      }
      pan.bands[0].push_back(sum / o.bands);
    }
  }

  ms.width = o.msWidth;
  ms.height = o.msHeight;
  const double down = o.southUp ? 1.0 : -1.0;
  ms.geoTransform[0] = pan.geoTransform[0] + reach * kPixel;
  ms.geoTransform[3] = pan.geoTransform[3] + down * reach * kPixel;
  ms.geoTransform[1] = o.ratioX * kPixel * std::cos(o.turn);
  ms.geoTransform[4] = -o.ratioX * kPixel * std::sin(o.turn);
  ms.geoTransform[2] = -o.ratioY * kPixel * std::sin(o.turn);
  ms.geoTransform[5] = down * o.ratioY * kPixel * std::cos(o.turn);
  m_perX = o.ratioX * std::fabs(std::cos(o.turn)) + o.ratioY * std::fabs(std::sin(o.turn));
  m_perY = o.ratioY * std::fabs(std::cos(o.turn)) + o.ratioX * std::fabs(std::sin(o.turn));
  if (o.degrees) PlaceInDegrees();
  ms.bands.assign(ground.size(), {});
  for (int r = 0; r < ms.height; ++r) {
    for (int c = 0; c < ms.width; ++c) {
      const reference::Position at = Place(c, r);
      const double u = at.x + o.moveX;
      const double v = at.y + o.moveY;
      const double sx = o.blur * m_perX * kUnit;
      const double sy = o.blur * m_perY * kUnit;
      std::vector<double> sums(ground.size(), 0.0);
      double all = 0.0;
      for (int y = static_cast<int>(std::floor(v - 4.5 * sy)); y <= v + 4.5 * sy; ++y) {
        for (int x = static_cast<int>(std::floor(u - 4.5 * sx)); x <= u + 4.5 * sx; ++x) {
          const double weight = std::exp(-0.5 * (std::pow((x - u) / sx, 2) + std::pow((y - v) / sy, 2)));
          all += weight;
          for (std::size_t b = 0; b < ground.size(); ++b) {
            sums[b] += weight * ground[b][static_cast<std::size_t>((y + kBeyond) * w + x + kBeyond)];
          }
        }
      }
      for (std::size_t b = 0; b < ground.size(); ++b) ms.bands[b].push_back(sums[b] / all);
    }
  }
  Write();
}

void SeenScene::PlaceInDegrees() {
  m_panWkt = UtmWkt();
  m_msWkt = Wgs84Wkt();
  m_toMetres = Between(m_msWkt, m_panWkt);
  const auto toDegrees = Between(m_panWkt, m_msWkt);
  double* m = ms.geoTransform;
  const reference::Position corner = Carried(*toDegrees, m[0], m[3]);
  const reference::Position right = Carried(*toDegrees, m[0] + m[1], m[3]);
  const reference::Position below = Carried(*toDegrees, m[0], m[3] + m[5]);
  m[1] = right.x - corner.x;
  m[5] = below.y - corner.y;
  m[0] = corner.x;
  m[3] = corner.y;
  // The upright rectangle in metres, of which each pixel has its part.
  double left = INFINITY;
  double end = -INFINITY;
  double low = INFINITY;
  double top = -INFINITY;
  for (int i = 0; i < 4; ++i) {
    const auto at = Carried(*m_toMetres, m[0] + i % 2 * ms.width * m[1], m[3] + i / 2 * ms.height * m[5]);
    left = std::min(left, at.x);
    end = std::max(end, at.x);
    low = std::min(low, at.y);
    top = std::max(top, at.y);
  }
  m_perX = (end - left) / ms.width / kPixel;
  m_perY = (top - low) / ms.height / kPixel;
}

SeenScene::~SeenScene() {
  CRasterSource::DeleteFileW(panFile);
  CRasterSource::DeleteFileW(msFile);
}

void SeenScene::Write() const {
  WriteImage(pan, panFile, PDT_FLOAT64, m_panWkt);
  WriteImage(ms, msFile, PDT_FLOAT64, m_msWkt);
}

void SeenScene::Write(double noData) const {
  WriteImage(pan, panFile, PDT_FLOAT64, m_panWkt, noData);
  WriteImage(ms, msFile, PDT_FLOAT64, m_msWkt, noData);
}

BayesianFusionParam SeenScene::Record(double weight) const {
  BayesianFusionParam param;
  param.m_strPanFile = panFile;
  param.m_strMSFile = msFile;
  param.m_strOutFile = L"/vsimem/seen_out.tif";
  param.m_eOutDataType = PDT_FLOAT64;
  param.m_bNeedReproject = m_toMetres != nullptr;
  param.m_dBayesParam = weight;
  return param;
}

reference::Position SeenScene::Place(int column, int row) const {
  const double* m = ms.geoTransform;
  double x = m[0] + (column + 0.5) * m[1] + (row + 0.5) * m[2];
  double y = m[3] + (column + 0.5) * m[4] + (row + 0.5) * m[5];
  if (m_toMetres) {
    const reference::Position carried = Carried(*m_toMetres, x, y);
    x = carried.x;
    y = carried.y;
  }
  return {(x - pan.geoTransform[0]) / pan.geoTransform[1] - 0.5, (y - pan.geoTransform[3]) / pan.geoTransform[5] - 0.5};
}

std::vector<double> LowPassOf(const SeenScene& scene, bool isBox, double width, double shiftX, double shiftY) {
  std::vector<double> values;
  const double perX = scene.PanPerPixel();
  const double perY = scene.PanPerPixelDown();
  const int reachX = static_cast<int>(4.0 * width * perX * kUnit + perX) + 3;
  const int reachY = static_cast<int>(4.0 * width * perY * kUnit + perY) + 3;
  for (int r = 0; r < scene.ms.height; ++r) {
    for (int c = 0; c < scene.ms.width; ++c) {
      const reference::Position at = scene.Place(c, r);
      const double u = at.x + shiftX;
      const double v = at.y + shiftY;
      double sum = 0.0;
      double inside = 0.0;
      double all = 0.0;
      for (int y = static_cast<int>(std::floor(v)) - reachY; y <= v + reachY; ++y) {
        const double down = Weight(y - v, isBox, width, perY);
        if (down == 0.0) continue;
        for (int x = static_cast<int>(std::floor(u)) - reachX; x <= u + reachX; ++x) {
          const double weight = down * Weight(x - u, isBox, width, perX);
          if (weight == 0.0) continue;
          all += weight;
          if (x < 0 || y < 0 || x >= scene.pan.width || y >= scene.pan.height) continue;
          inside += weight;
          sum += weight * scene.pan.bands[0][static_cast<std::size_t>(y * scene.pan.width + x)];
        }
      }
      values.push_back(inside >= 0.98 * all ? sum / inside : NAN);
    }
  }
  return values;
}

}  // namespace test_support
