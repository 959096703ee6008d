// Positions in a raster of another coordinate system, held against OGR's transformation point by point.
#include <gtest/gtest.h>
#include <ogr_spatialref.h>

#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <thread>

#include "platform/raster/gis_data_source.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/reproject.h"
#include "tests/support/test_raster.h"

namespace {

using test_support::MakeRaster;
using test_support::MemoryPath;

constexpr int kUtm = 32630;
constexpr int kGeographic = 4326;
// 3000 x 2000 pixels of 30 m around Madrid.
const std::vector<double> kUtmTransform = {400000.0, 30.0, 0.0, 4500000.0, 0.0, -30.0};
constexpr int kWidth = 3000;
constexpr int kHeight = 2000;

/// OGR's transformation between two systems, x before y.
class Exact {
 public:
  Exact(int from, int to) {
    OGRSpatialReference a;
    OGRSpatialReference b;
    a.importFromEPSG(from);
    b.importFromEPSG(to);
    a.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    b.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    m_transformation.reset(OGRCreateCoordinateTransformation(&a, &b));
  }
  std::pair<double, double> operator()(double x, double y) const {
    EXPECT_TRUE(m_transformation->Transform(1, &x, &y));
    return {x, y};
  }

 private:
  std::unique_ptr<OGRCoordinateTransformation> m_transformation;
};

class Reproject : public testing::Test {
 protected:
  ~Reproject() override {
    m_source.Close();
    CRasterSource::DeleteFileW(m_path);
  }
  CRasterSource& Open(int epsg, const std::vector<double>& transform, int width = kWidth, int height = kHeight) {
    return Open(epsg ? test_support::WktOfEpsg(epsg) : "", transform, width, height);
  }
  CRasterSource& Open(const std::string& wkt, const std::vector<double>& transform, int width, int height) {
    m_source.Close();
    auto raster = MakeRaster(1, 1, [](int, int) { return 0.0; });
    raster.width = width;
    raster.height = height;
    raster.bands = {std::vector<double>(static_cast<std::size_t>(width) * static_cast<std::size_t>(height))};
    raster.type = PDT_UINT8;
    raster.geoTransform = transform;
    raster.wkt = wkt;
    m_path = MemoryPath();
    test_support::WriteRaster(raster, m_path);
    EXPECT_TRUE(m_source.OpenSimple(m_path));
    return m_source;
  }
  static std::unique_ptr<CReproject> Make(CRasterSource& source, int epsg) {
    return std::unique_ptr<CReproject>(
        CReproject::Create(&source, test_support::WideWktOfEpsg(epsg), nullptr, nullptr));
  }
  static std::pair<double, double> PositionOf(const CReproject& reproject, double gx, double gy) {
    EXPECT_TRUE(reproject.GetSrcPos(&gx, &gy, &gx, &gy, 1));
    return {gx, gy};
  }
  /// The UTM raster's sample position of a geographic point.
  static std::pair<double, double> ExpectedInUtm(double lon, double lat) {
    static const Exact toUtm(kGeographic, kUtm);
    const auto [x, y] = toUtm(lon, lat);
    return {(x - 400000.0) / 30.0 - 0.5, (4500000.0 - y) / 30.0 - 0.5};
  }

  std::wstring m_path;
  CRasterSource m_source;
};

/// Longitudes and latitudes well inside the raster.
std::vector<std::pair<double, double>> InnerPoints() {
  const Exact toGeographic(kUtm, kGeographic);
  std::vector<std::pair<double, double>> points;
  for (const double column : {5.0, 700.3, 1500.0, 2990.7}) {
    for (const double row : {4.2, 999.9, 1995.0}) {
      points.push_back(toGeographic(400000.0 + 30.0 * column, 4500000.0 - 30.0 * row));
    }
  }
  return points;
}

TEST_F(Reproject, PositionsAreSampleCoordinates) {
  const auto reproject = Make(Open(kUtm, kUtmTransform), kGeographic);
  ASSERT_TRUE(reproject);
  m_source.Close();  // nothing of the source is needed any more
  const auto points = InnerPoints();
  for (const auto& [lon, lat] : points) {
    const auto [x, y] = PositionOf(*reproject, lon, lat);
    const auto [expectedX, expectedY] = ExpectedInUtm(lon, lat);
    EXPECT_NEAR(x, expectedX, 1e-6);
    EXPECT_NEAR(y, expectedY, 1e-6);
  }
}

TEST_F(Reproject, PointsAtTheEdgeAreClampedAndFarOnesAreNot) {
  const auto reproject = Make(Open(kUtm, kUtmTransform), kGeographic);
  const Exact toGeographic(kUtm, kGeographic);
  const auto at = [&](double column, double row) {
    const auto [lon, lat] = toGeographic(400000.0 + 30.0 * column, 4500000.0 - 30.0 * row);
    return PositionOf(*reproject, lon, lat);
  };
  EXPECT_EQ(at(-0.9, -0.9), std::pair(0.0, 0.0));
  EXPECT_EQ(at(kWidth + 0.9, kHeight + 0.9), std::pair(kWidth - 1.0, kHeight - 1.0));
  EXPECT_NEAR(at(-40.0, 10.0).first, -40.5, 1e-6);
}

TEST_F(Reproject, PointsOfNowhereAreFarAway) {
  const auto reproject = Make(Open(kUtm, kUtmTransform), kGeographic);
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(PositionOf(*reproject, kNaN, 40.0), std::pair(-1e9, -1e9));
  EXPECT_EQ(PositionOf(*reproject, 3.0, INFINITY), std::pair(-1e9, -1e9));
  EXPECT_EQ(PositionOf(*reproject, 1e300, 1e300), std::pair(-1e9, -1e9));
}

/// The grid's positions against the exact ones at random points of the box.
void ExpectGridIsClose(const CReproject& reproject, const CBoundingBox& box,
                       const std::function<std::pair<double, double>(double, double)>& expected) {
  std::mt19937 random(4);
  std::uniform_real_distribution<double> x(box.MinX(), box.MaxX());
  std::uniform_real_distribution<double> y(box.MinY(), box.MaxY());
  constexpr int kPoints = 4000;
  std::vector<double> gx;
  std::vector<double> gy;
  for (int i = 0; i < kPoints; ++i) {
    gx.push_back(x(random));
    gy.push_back(y(random));
  }
  std::vector<double> sx(kPoints);
  std::vector<double> sy(kPoints);
  ASSERT_TRUE(reproject.GetSrcPos(gx.data(), gy.data(), sx.data(), sy.data(), kPoints));
  double largest = 0.0;
  for (std::size_t i = 0; i < kPoints; ++i) {
    const auto [ex, ey] = expected(gx[i], gy[i]);
    largest = std::max({largest, std::abs(sx[i] - ex), std::abs(sy[i] - ey)});
  }
  EXPECT_LT(largest, 0.01);
  EXPECT_GT(largest, 1e-9) << "the grid was not used";
}

/// A geographic box inside the UTM raster.
CBoundingBox InnerBox() {
  const Exact toGeographic(kUtm, kGeographic);
  const auto [west, south] = toGeographic(403000.0, 4443000.0);
  const auto [east, north] = toGeographic(487000.0, 4497000.0);
  return {west + 0.02, north - 0.02, east - 0.02, south + 0.02};
}

TEST_F(Reproject, TheGridStaysWithinAHundredthOfAPixel) {
  const auto reproject = Make(Open(kUtm, kUtmTransform), kGeographic);
  const CBoundingBox box = InnerBox();
  ASSERT_TRUE(reproject->CreateGrid(box, 0.0, 0.0, 3));
  ExpectGridIsClose(*reproject, box, ExpectedInUtm);
}

TEST_F(Reproject, TheGridIsRefinedFromTheCellsAskedFor) {
  const auto reproject = Make(Open(kUtm, kUtmTransform), kGeographic);
  const CBoundingBox box = InnerBox();
  // One cell over the whole box is far too coarse; halving it often enough is not.
  ASSERT_FALSE(reproject->CreateGrid(box, 10.0, 10.0, 0));
  ASSERT_TRUE(reproject->CreateGrid(box, 0.01, 0.01, 0)) << "fine enough without a refinement";
  ASSERT_FALSE(reproject->CreateGrid(box, 10.0, 10.0, 0));
  const double x = (box.m_dLeft + box.m_dRight) / 2;
  const double y = (box.m_dTop + box.m_dBottom) / 2;
  const auto [sx, sy] = PositionOf(*reproject, x, y);
  EXPECT_NEAR(sx, ExpectedInUtm(x, y).first, 1e-6) << "without a grid positions are exact";
  EXPECT_NEAR(sy, ExpectedInUtm(x, y).second, 1e-6);
  ASSERT_TRUE(reproject->CreateGrid(box, 10.0, 10.0, 9));
  ExpectGridIsClose(*reproject, box, ExpectedInUtm);
}

TEST_F(Reproject, TheGridWorksInTheOtherDirectionToo) {
  const std::vector<double> transform = {-4.2, 0.0003, 0.0, 40.7, 0.0, -0.0003};
  const auto reproject = Make(Open(kGeographic, transform), kUtm);
  ASSERT_TRUE(reproject);
  const CBoundingBox box(405000.0, 4495000.0, 450000.0, 4470000.0);
  ASSERT_TRUE(reproject->CreateGrid(box, 0.0, 0.0, 3));
  const Exact toGeographic(kUtm, kGeographic);
  ExpectGridIsClose(*reproject, box, [&](double x, double y) {
    const auto [lon, lat] = toGeographic(x, y);
    return std::pair((lon + 4.2) / 0.0003 - 0.5, (40.7 - lat) / 0.0003 - 0.5);
  });
}

TEST_F(Reproject, OutsideTheGridPositionsAreExact) {
  const auto reproject = Make(Open(kUtm, kUtmTransform), kGeographic);
  CBoundingBox box = InnerBox();
  box.m_dRight = (box.m_dLeft + box.m_dRight) / 2;
  ASSERT_TRUE(reproject->CreateGrid(box, 0.0, 0.0, 3));
  const double x = box.m_dRight + 0.1;
  const double y = (box.m_dTop + box.m_dBottom) / 2;
  const auto [sx, sy] = PositionOf(*reproject, x, y);
  EXPECT_NEAR(sx, ExpectedInUtm(x, y).first, 1e-6);
  EXPECT_NEAR(sy, ExpectedInUtm(x, y).second, 1e-6);
}

TEST_F(Reproject, AGridOfAnEmptyBoxIsRefused) {
  const auto reproject = Make(Open(kUtm, kUtmTransform), kGeographic);
  EXPECT_FALSE(reproject->CreateGrid(CBoundingBox(1.0, 1.0, 1.0, 0.0), 0.0, 0.0, 3));
  EXPECT_FALSE(reproject->CreateGrid(CBoundingBox(NAN, 1.0, 2.0, 0.0), 0.0, 0.0, 3));
  EXPECT_FALSE(reproject->CreateGrid(CBoundingBox(-INFINITY, 1.0, 2.0, 0.0), 0.0, 0.0, 3));
}

TEST_F(Reproject, ThreadsMayAskAtOnce) {
  const auto reproject = Make(Open(kUtm, kUtmTransform), kGeographic);
  CBoundingBox box = InnerBox();
  box.m_dRight = (box.m_dLeft + box.m_dRight) / 2;
  ASSERT_TRUE(reproject->CreateGrid(box, 0.0, 0.0, 3));
  // Half of the points lie on the grid, half are computed.
  constexpr int kPoints = 500;
  std::vector<double> gx;
  std::vector<double> gy;
  for (int i = 0; i < kPoints; ++i) {
    gx.push_back(box.m_dLeft + (box.m_dRight - box.m_dLeft) * i * 2.0 / kPoints);
    gy.push_back((box.m_dTop + box.m_dBottom) / 2);
  }
  const auto positions = [&] {
    std::vector<double> x(gx);
    std::vector<double> y(gy);
    reproject->GetSrcPos(x.data(), y.data(), x.data(), y.data(), kPoints);
    return x;
  };
  const std::vector<double> expected = positions();
  std::vector<std::vector<double>> results(4);
  std::vector<std::thread> threads;
  for (auto& result : results) threads.emplace_back([&] { result = positions(); });
  for (auto& thread : threads) thread.join();
  for (const auto& result : results) EXPECT_EQ(result, expected);
}

TEST_F(Reproject, TheSourceRectangleCoversTheBoxWithTenPixelsMore) {
  const auto reproject = Make(Open(kUtm, kUtmTransform), kGeographic);
  const Exact toGeographic(kUtm, kGeographic);
  // A small box in the middle, whose sides are all but straight in UTM.
  const auto [lon, lat] = toGeographic(400000.0 + 30.0 * 1500, 4500000.0 - 30.0 * 1000);
  const double d = 0.002;
  CRect rect;
  ASSERT_TRUE(reproject->GetInImgEnveFromGeoOut(CBoundingBox(lon - d, lat + d, lon + d, lat - d), rect, 0.0, 0.0));
  double minX = 1e9;
  double maxX = -1e9;
  double minY = 1e9;
  double maxY = -1e9;
  for (const double sx : {-d, d}) {
    for (const double sy : {-d, d}) {
      const auto [x, y] = ExpectedInUtm(lon + sx, lat + sy);
      minX = std::min(minX, x + 0.5);
      maxX = std::max(maxX, x + 0.5);
      minY = std::min(minY, y + 0.5);
      maxY = std::max(maxY, y + 0.5);
    }
  }
  EXPECT_EQ(rect, CRect(static_cast<int>(std::floor(minX)) - 10, static_cast<int>(std::floor(minY)) - 10,
                        static_cast<int>(std::ceil(maxX)) + 10, static_cast<int>(std::ceil(maxY)) + 10));
}

TEST_F(Reproject, TheSourceRectangleIsCutToTheSource) {
  const auto reproject = Make(Open(kUtm, kUtmTransform), kGeographic);
  CRect rect(1, 2, 3, 4);
  ASSERT_TRUE(reproject->GetInImgEnveFromGeoOut(CBoundingBox(-8.0, 45.0, 1.0, 36.0), rect, 0.0, 0.0));
  EXPECT_EQ(rect, CRect(0, 0, kWidth, kHeight));
  EXPECT_FALSE(reproject->GetInImgEnveFromGeoOut(CBoundingBox(-1.0, 45.0, 0.0, 44.0), rect, 0.0, 0.0));
  EXPECT_EQ(rect, CRect(0, 0, kWidth, kHeight)) << "untouched where nothing of the source is left";
}

TEST_F(Reproject, ASourceBetweenThePointsOfAFarLargerBoxIsFound) {
  // Seen from 24 km, the Earth ends five degrees away: no point of a net over all of it, 18 by 9 degrees, is in sight.
  OGRSpatialReference nearView;
  ASSERT_EQ(nearView.importFromProj4("+proj=nsper +h=24000 +lat_0=4.5 +lon_0=9 +datum=WGS84 +units=m"), OGRERR_NONE);
  char* wkt = nullptr;
  ASSERT_EQ(nearView.exportToWkt(&wkt), OGRERR_NONE);
  const auto reproject = Make(Open(wkt, {-1e4, 200.0, 0.0, 1e4, 0.0, -200.0}, 100, 100), kGeographic);
  CPLFree(wkt);
  CRect rect;
  ASSERT_TRUE(reproject->GetInImgEnveFromGeoOut(CBoundingBox(-180.0, 90.0, 180.0, -90.0), rect, 0.0, 0.0));
  EXPECT_EQ(rect, CRect(0, 0, 100, 100));
}

TEST_F(Reproject, TheSourceRectangleCoversEdgesThatBendOutBetweenTheirPoints) {
  // North of 60 degrees: a circle whose outermost points lie nine degrees beside those of 21 an edge, 20 pixels inside.
  const auto reproject = Make(Open(3413, {-4e6, 2000.0, 0.0, 4e6, 0.0, -2000.0}, 4000, 4000), kGeographic);
  CRect rect;
  ASSERT_TRUE(reproject->GetInImgEnveFromGeoOut(CBoundingBox(-180.0, 90.0, 180.0, 60.0), rect, 0.0, 0.0));
  const double radius = -Exact(kGeographic, 3413)(-45.0, 60.0).second / 2000.0;
  EXPECT_LE(rect.left, 2000.0 - radius);
  EXPECT_LE(rect.top, 2000.0 - radius);
  EXPECT_GE(rect.right, 2000.0 + radius);
  EXPECT_GE(rect.bottom, 2000.0 + radius);
  EXPECT_GT(rect.left, 0);
  EXPECT_LT(rect.bottom, 4000);
}

TEST_F(Reproject, ABoxIsCarriedByItsOutline) {
  CRasterSource& source = Open(kUtm, kUtmTransform);
  const auto reproject = Make(source, kGeographic);
  CBoundingBox box;
  ASSERT_TRUE(reproject->Src2DestBox(CGISDataSource::GetExtent(&source), box, 0.0, 0.0));
  // 21 points an edge, by OGR.
  const Exact toGeographic(kUtm, kGeographic);
  double west = 1e9;
  double east = -1e9;
  double south = 1e9;
  double north = -1e9;
  for (int i = 0; i <= 20; ++i) {
    const double x = 400000.0 + 30.0 * kWidth * i / 20.0;
    const double y = 4500000.0 - 30.0 * kHeight * i / 20.0;
    for (const auto& [px, py] : {std::pair(x, 4500000.0), {x, 4440000.0}, {400000.0, y}, {490000.0, y}}) {
      const auto [lon, lat] = toGeographic(px, py);
      west = std::min(west, lon);
      east = std::max(east, lon);
      south = std::min(south, lat);
      north = std::max(north, lat);
    }
  }
  EXPECT_NEAR(box.m_dLeft, west, 1e-12);
  EXPECT_NEAR(box.m_dRight, east, 1e-12);
  EXPECT_NEAR(box.m_dTop, north, 1e-12);
  EXPECT_NEAR(box.m_dBottom, south, 1e-12);
  CBoundingBox extent;
  ASSERT_TRUE(CReproject::GetExtent(&source, test_support::WideWktOfEpsg(kGeographic), extent));
  EXPECT_EQ(extent.m_dLeft, box.m_dLeft);
  EXPECT_EQ(extent.m_dBottom, box.m_dBottom);
}

TEST_F(Reproject, ABoxAroundAPoleReachesToIt) {
  // 8000 km of polar stereographic coordinates around the north pole.
  CRasterSource& source = Open(3413, {-4e6, 1e5, 0.0, 4e6, 0.0, -1e5}, 80, 80);
  CBoundingBox extent;
  ASSERT_TRUE(CReproject::GetExtent(&source, test_support::WideWktOfEpsg(kGeographic), extent));
  EXPECT_EQ(extent.m_dTop, 90.0);
  EXPECT_EQ(extent.m_dLeft, -180.0);
  EXPECT_EQ(extent.m_dRight, 180.0);
  EXPECT_NEAR(extent.m_dBottom, Exact(3413, kGeographic)(4e6, 4e6).second, 1e-9);
}

TEST_F(Reproject, ABoxIsCarriedByAsManyPointsAsItsOutlineNeeds) {
  // North of 60 degrees: a circle, whose outermost points lie between those of 21 an edge.
  CRasterSource& source = Open(kGeographic, {-180.0, 0.1, 0.0, 90.0, 0.0, -0.1}, 3600, 300);
  CBoundingBox extent;
  ASSERT_TRUE(CReproject::GetExtent(&source, test_support::WideWktOfEpsg(3413), extent));
  const double radius = -Exact(kGeographic, 3413)(-45.0, 60.0).second;
  const double tolerance = 0.25 * 2.0 * radius / 3600.0;
  EXPECT_NEAR(extent.m_dLeft, -radius, tolerance);
  EXPECT_NEAR(extent.m_dRight, radius, tolerance);
  EXPECT_NEAR(extent.m_dTop, radius, tolerance);
  EXPECT_NEAR(extent.m_dBottom, -radius, tolerance);
}

TEST_F(Reproject, LongitudesOfABoxGoOnAcross180Degrees) {
  CRasterSource& source = Open(32660, {700000.0, 1000.0, 0.0, 500000.0, 0.0, -1000.0}, 300, 300);
  CBoundingBox extent;
  ASSERT_TRUE(CReproject::GetExtent(&source, test_support::WideWktOfEpsg(kGeographic), extent));
  const Exact toGeographic(32660, kGeographic);
  // From 178.8 degrees east to 178.5 west, however they are counted.
  const double west = toGeographic(700000.0, 200000.0).first;
  const double east = toGeographic(1000000.0, 500000.0).first;
  EXPECT_NEAR(std::remainder(extent.m_dLeft - west, 360.0), 0.0, 0.05);
  EXPECT_NEAR(extent.m_dRight - extent.m_dLeft, east + 360.0 - west, 0.05);
}

TEST_F(Reproject, ASouthUpSourceIsMappedByItsOwnGeotransform) {
  const auto reproject = Make(Open(kUtm, {400000.0, 30.0, 0.0, 4440000.0, 0.0, 30.0}), kGeographic);
  for (const auto& [lon, lat] : InnerPoints()) {
    const auto [x, y] = PositionOf(*reproject, lon, lat);
    EXPECT_NEAR(x, ExpectedInUtm(lon, lat).first, 1e-6);
    EXPECT_NEAR(y, kHeight - 1.0 - ExpectedInUtm(lon, lat).second, 1e-6);
  }
}

TEST_F(Reproject, LongitudesAreTakenNearestToTheSource) {
  // An image across the date line, in UTM zone 1: columns count from 179 degrees east to 181.
  const auto reproject = Make(Open(kGeographic, {179.0, 0.01, 0.0, 1.0, 0.0, -0.01}, 200, 200), 32601);
  ASSERT_TRUE(reproject);
  const Exact toUtm(kGeographic, 32601);
  for (const double lon : {179.505, 180.505, 180.995}) {
    const auto [gx, gy] = toUtm(lon, 0.505);
    EXPECT_NEAR(PositionOf(*reproject, gx, gy).first, (lon - 179.0) / 0.01 - 0.5, 1e-4) << lon;
  }
}

TEST_F(Reproject, CannotBeMadeWithoutTwoKnownSystems) {
  CRasterSource& source = Open(kUtm, kUtmTransform, 10, 10);
  EXPECT_EQ(CReproject::Create(&source, L"", nullptr, nullptr), nullptr);
  EXPECT_EQ(CReproject::Create(&source, L"nonsense", nullptr, nullptr), nullptr);
  EXPECT_EQ(CReproject::Create(&source, L"LOCAL_CS[\"site\",UNIT[\"metre\",1]]", nullptr, nullptr), nullptr);
  EXPECT_EQ(CReproject::Create(nullptr, test_support::WideWktOfEpsg(kUtm), nullptr, nullptr), nullptr);
  EXPECT_EQ(
      CReproject::Create(&Open(0, kUtmTransform, 10, 10), test_support::WideWktOfEpsg(kGeographic), nullptr, nullptr),
      nullptr);
  CRasterSource closed;
  EXPECT_EQ(CReproject::Create(&closed, test_support::WideWktOfEpsg(kUtm), nullptr, nullptr), nullptr);
  CBoundingBox extent;
  EXPECT_FALSE(CReproject::GetExtent(&closed, test_support::WideWktOfEpsg(kUtm), extent));
}

TEST_F(Reproject, ARealScenesPanImageFindsItsMultispectralPixels) {
  const std::wstring folder = test_support::RealSceneFolder("l8_ms_epsg4326");
  if (folder.empty()) GTEST_SKIP() << "the scenes are not installed beside the checkout";
  CRasterSource pan;
  ASSERT_TRUE(pan.Open(folder + L"pan.tif", GDA_READ, true));
  ASSERT_TRUE(m_source.Open(folder + L"ms.tif", GDA_READ, true));
  const std::unique_ptr<CReproject> reproject(
      CReproject::Create(&m_source, pan.GetSpatialReferenceWKT(), nullptr, nullptr));
  ASSERT_TRUE(reproject);
  const CBoundingBox box = CGISDataSource::GetExtent(&pan);
  ASSERT_TRUE(reproject->CreateGrid(box, 0.0, 0.0, 3));
  const Exact toGeographic(kUtm, kGeographic);
  double t[6];
  m_source.GetGeoTransform(t);
  for (const auto& [column, row] : {std::pair(0.5, 0.5), {250.0, 250.0}, {499.5, 499.5}, {20.25, 480.75}}) {
    double gx = 0.0;
    double gy = 0.0;
    pan.ImageToGround(column, row, gx, gy);
    const auto [lon, lat] = toGeographic(gx, gy);
    const auto [x, y] = PositionOf(*reproject, gx, gy);
    EXPECT_NEAR(x, (lon - t[0]) / t[1] - 0.5, 0.01);
    EXPECT_NEAR(y, (lat - t[3]) / t[5] - 0.5, 0.01);
  }
}

}  // namespace
