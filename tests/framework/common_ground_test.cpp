// The ground that two images of different coordinate systems share: over poles, across 180 degrees, and as usual. Held
// against every pan pixel, carried over by OGR one by one.
#include <gtest/gtest.h>
#include <ogr_spatialref.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <ostream>

#include "band_arithmetic/brovey_fusion.h"
#include "platform/raster/reproject.h"
#include "tests/support/scene.h"
#include "tests/support/test_raster.h"

namespace {

constexpr int kGeographic = 4326;
constexpr int kNorthPole = 3413;
constexpr int kSouthPole = 3031;

/// A north-up image between two corners.
struct Grid {
  int epsg;
  double left;
  double top;
  double right;
  double bottom;
  int width;
  int height;

  double PixelWidth() const { return (right - left) / width; }
  double PixelHeight() const { return (bottom - top) / height; }
  std::vector<double> GeoTransform() const { return {left, PixelWidth(), 0.0, top, 0.0, PixelHeight()}; }
};

struct Pair {
  const char* name;
  Grid pan;
  Grid ms;
};
void PrintTo(const Pair& pair, std::ostream* out) { *out << pair.name; }

const Grid kWorld = {kGeographic, -180.0, 90.0, 180.0, -90.0, 128, 64};
const Grid kArctic = {kNorthPole, -4e6, 4e6, 4e6, -4e6, 100, 100};
const Grid kArcticCoarse = {kNorthPole, -4e6, 4e6, 4e6, -4e6, 25, 25};
const Grid kZone60 = {32660, 600000.0, 1000000.0, 1000000.0, 600000.0, 40, 40};

const Pair kPairs[] = {
    {"a polar image on a global one", kWorld, kArcticCoarse},
    {"a southern one", kWorld, {kSouthPole, -3e6, 2e6, 2e6, -3e6, 30, 30}},
    {"one with the pole near its edge", kWorld, {kNorthPole, -4e6, 1e6, 4e6, -4e6, 50, 30}},
    {"one beside the pole", kWorld, {kNorthPole, 2e5, 3e6, 4e6, -3e6, 50, 60}},
    {"a global image on a polar one", kArctic, {kGeographic, -180.0, 90.0, 180.0, -90.0, 36, 18}},
    {"one counted from 0", kArctic, {kGeographic, 0.0, 90.0, 360.0, -90.0, 36, 18}},
    {"a cap on a polar image", kArctic, {kGeographic, -180.0, 90.0, 180.0, 65.0, 72, 10}},
    {"a ring around the pole", kArctic, {kGeographic, -180.0, 80.0, 180.0, 65.0, 72, 10}},
    {"half a ring", kArctic, {kGeographic, -90.0, 80.0, 90.0, 65.0, 72, 10}},
    {"zone 60 from 178 to 182", {kGeographic, 178.0, 9.5, 182.0, 4.5, 80, 100}, kZone60},
    {"zone 60 from -182 to -178", {kGeographic, -182.0, 9.5, -178.0, 4.5, 80, 100}, kZone60},
    {"zone 60 on the whole world", {kGeographic, -180.0, 90.0, 180.0, -90.0, 720, 360}, kZone60},
    {"zone 60 on a world counted from 0", {kGeographic, 0.0, 90.0, 360.0, -90.0, 720, 360}, kZone60},
    {"degrees across 180 on zone 60", kZone60, {kGeographic, 178.0, 9.0, 182.0, 5.0, 40, 40}},
    {"zone 20 on a world counted from 0",
     {kGeographic, 0.0, 90.0, 360.0, -90.0, 720, 360},
     {32620, 300000.0, 4900000.0, 700000.0, 4500000.0, 40, 40}},
    {"a neighbouring zone",
     {32630, 700000.0, 4500000.0, 760000.0, 4440000.0, 200, 200},
     {32631, 180000.0, 4500000.0, 250000.0, 4430000.0, 60, 60}},
};

class CommonGround : public testing::TestWithParam<Pair> {
 protected:
  CommonGround() {
    m_pan.path = Write(GetParam().pan, 1, 50.0);
    m_ms.path = Write(GetParam().ms, 2, 100.0);
    EXPECT_TRUE(m_pan.source.OpenSimple(m_pan.path));
    EXPECT_TRUE(m_ms.source.OpenSimple(m_ms.path));
    OGRSpatialReference pan;
    OGRSpatialReference ms;
    pan.importFromEPSG(GetParam().pan.epsg);
    ms.importFromEPSG(GetParam().ms.epsg);
    pan.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    ms.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    m_toMs.reset(OGRCreateCoordinateTransformation(&pan, &ms));
  }
  ~CommonGround() override {
    for (Image* image : {&m_pan, &m_ms}) {
      image->source.Close();
      CRasterSource::DeleteFileW(image->path);
    }
  }

  /// Bands of 1, 2, ... times the value.
  static std::wstring Write(const Grid& grid, int bands, double value) {
    test_support::TestRaster raster =
        test_support::MakeRaster(grid.width, grid.height, [=](int, int) { return value; });
    for (int b = 1; b < bands; ++b) {
      raster.bands.push_back(raster.bands[0]);
      for (double& v : raster.bands.back()) v *= b + 1;
    }
    raster.geoTransform = grid.GeoTransform();
    raster.wkt = test_support::WktOfEpsg(grid.epsg);
    std::wstring path = test_support::MemoryPath();
    test_support::WriteRaster(raster, path);
    return path;
  }

  /// Corner-based position in the multispectral image of a place in the pan image; far off where there is none.
  std::pair<double, double> PositionOf(double column, double row) const {
    const Grid& pan = GetParam().pan;
    const Grid& ms = GetParam().ms;
    double x = pan.left + column * pan.PixelWidth();
    double y = pan.top + row * pan.PixelHeight();
    CPLPushErrorHandler(CPLQuietErrorHandler);
    const bool ok = m_toMs->Transform(1, &x, &y);
    CPLPopErrorHandler();
    if (!ok || !std::isfinite(x) || !std::isfinite(y)) return {-1e9, -1e9};
    if (ms.epsg == kGeographic) {
      while (x < ms.left) x += 360.0;
      while (x > ms.right && x - 360.0 >= ms.left) x -= 360.0;
    }
    return {(x - ms.left) / ms.PixelWidth(), (y - ms.top) / ms.PixelHeight()};
  }
  bool IsOnMs(double column, double row, double inset = 0.0) const {
    const auto [x, y] = PositionOf(column, row);
    return x >= inset && y >= inset && x <= GetParam().ms.width - inset && y <= GetParam().ms.height - inset;
  }
  CRect OutRect() {
    CRect rect;
    bool reproject = false;
    EXPECT_TRUE(CBroveyFusion(nullptr).GetOutRect(&m_pan.source, &m_ms.source, rect, reproject, false));
    EXPECT_TRUE(reproject);
    return rect;
  }

  struct Image {
    std::wstring path;
    CRasterSource source;
  };
  Image m_pan;
  Image m_ms;
  std::unique_ptr<OGRCoordinateTransformation> m_toMs;
};

TEST_P(CommonGround, IsAllThatBothCoverAndNoMore) {
  const Grid& pan = GetParam().pan;
  CRect expected(pan.width, pan.height, 0, 0);
  for (int row = 0; row < pan.height; ++row) {
    for (int column = 0; column < pan.width; ++column) {
      if (!IsOnMs(column + 0.5, row + 0.5)) continue;
      expected = CRect(std::min(expected.left, column), std::min(expected.top, row),
                       std::max(expected.right, column + 1), std::max(expected.bottom, row + 1));
    }
  }
  const CRect rect = OutRect();
  EXPECT_LE(rect.left, expected.left);
  EXPECT_LE(rect.top, expected.top);
  EXPECT_GE(rect.right, expected.right);
  EXPECT_GE(rect.bottom, expected.bottom);
  // A pixel whose centre lies outside may be touched.
  EXPECT_GE(rect.left, expected.left - 1);
  EXPECT_GE(rect.top, expected.top - 1);
  EXPECT_LE(rect.right, expected.right + 1);
  EXPECT_LE(rect.bottom, expected.bottom + 1);
}

TEST_P(CommonGround, WhatIsReadForABlockHoldsAllItsPositions) {
  const Grid& pan = GetParam().pan;
  const std::unique_ptr<CReproject> reproject(
      CReproject::Create(&m_ms.source, test_support::WideWktOfEpsg(pan.epsg), nullptr, nullptr));
  ASSERT_TRUE(reproject);
  for (const int rows : {1, 16, pan.height}) {
    for (int top = 0; top < pan.height; top += rows) {
      const CRect block(0, top, pan.width, std::min(top + rows, pan.height));
      CRect read;
      const bool any = reproject->GetInImgEnveFromGeoOut(m_pan.source.ImageToGround(block), read, 0.0, 0.0);
      for (int row = block.top; row < block.bottom; ++row) {
        for (int column = 0; column < pan.width; ++column) {
          if (!IsOnMs(column + 0.5, row + 0.5)) continue;
          const auto [x, y] = PositionOf(column + 0.5, row + 0.5);
          ASSERT_TRUE(any && x >= read.left && x <= read.right && y >= read.top && y <= read.bottom)
              << "row " << row << ", column " << column << " of a block of " << rows << " rows";
        }
      }
    }
  }
}

TEST_P(CommonGround, IsFusedEverywhere) {
  FusionParam param;
  param.m_strPanFile = m_pan.path;
  param.m_strMSFile = m_ms.path;
  param.m_strOutFile = test_support::MemoryPath();
  param.m_eOutDataType = PDT_FLOAT64;
  param.m_bNeedReproject = true;
  const CRect rect = OutRect();
  CBroveyFusion fusion(&param);
  fusion.Process();
  ASSERT_EQ(fusion.GetLastErrorType(), 0);
  const reference::Image out = test_support::ReadImage(param.m_strOutFile);
  CRasterSource::DeleteFileW(param.m_strOutFile);
  ASSERT_EQ(out.width, rect.Width());
  ASSERT_EQ(out.height, rect.Height());
  int seen = 0;
  for (int row = 0; row < out.height; ++row) {
    for (int column = 0; column < out.width; ++column) {
      // Positions start from a pixel's corner here; bicubic needs its two neighbours on each side.
      const double inset = 3.0;
      if (!IsOnMs(rect.left + column, rect.top + row, inset)) continue;
      ++seen;
      const auto i =
          static_cast<std::size_t>(row) * static_cast<std::size_t>(out.width) + static_cast<std::size_t>(column);
      // Both bands are even: 100 and 200 share a pan of 50 by 1 to 2.
      ASSERT_NEAR(out.bands[0][i], 50.0 / 3.0, 1e-9) << column << ' ' << row;
      ASSERT_NEAR(out.bands[1][i], 100.0 / 3.0, 1e-9) << column << ' ' << row;
    }
  }
  EXPECT_GT(seen, 20);
}

INSTANTIATE_TEST_SUITE_P(Pairs, CommonGround, testing::ValuesIn(kPairs));

}  // namespace
