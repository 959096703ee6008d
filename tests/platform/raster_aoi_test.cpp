// Areas of interest: which pixel centres lie inside the polygons of a vector file.
#include "platform/validity/raster_aoi.h"

#include <gdal_priv.h>
#include <gtest/gtest.h>
#include <ogrsf_frmts.h>

#include <cmath>
#include <memory>
#include <random>
#include <sstream>
#include <thread>

#include "platform/utility/common_fun.h"
#include "tests/support/test_raster.h"

namespace {

using test_support::MakeRaster;
using test_support::MemoryPath;

struct Layer {
  int epsg;  ///< 0: none
  std::vector<std::string> geometries;
};

/// A vector file of any number of layers.
void WriteLayers(const std::wstring& path, const std::vector<Layer>& layers) {
  GDALAllRegister();
  const std::unique_ptr<GDALDataset> file(GetGDALDriverManager()->GetDriverByName("GPKG")->Create(
      CommonFun::U2Utf8(path).c_str(), 0, 0, 0, GDT_Unknown, nullptr));
  ASSERT_TRUE(file);
  int number = 0;
  for (const Layer& wanted : layers) {
    OGRSpatialReference crs;
    crs.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    if (wanted.epsg) crs.importFromEPSG(wanted.epsg);
    OGRLayer* layer = file->CreateLayer(("layer" + std::to_string(++number)).c_str(), wanted.epsg ? &crs : nullptr);
    ASSERT_TRUE(layer);
    for (const std::string& wkt : wanted.geometries) {
      OGRFeature feature(layer->GetLayerDefn());
      OGRGeometry* geometry = nullptr;
      ASSERT_EQ(OGRGeometryFactory::createFromWkt(wkt.c_str(), nullptr, &geometry), OGRERR_NONE) << wkt;
      feature.SetGeometryDirectly(geometry);
      ASSERT_EQ(layer->CreateFeature(&feature), OGRERR_NONE);
    }
  }
}

class RasterArea : public testing::Test {
 protected:
  ~RasterArea() override {
    m_raster.Close();
    for (const auto& path : m_files) CRasterSource::DeleteFileW(path);
  }
  /// The raster that the area is laid on: 1 m pixels whose row numbers grow with y, so that ground and pixel
  /// coordinates are the same, unless told otherwise.
  void OpenRaster(const std::vector<double>& transform = {0, 1, 0, 0, 0, 1.0}, int epsg = 0, int width = 12,
                  int height = 10) {
    auto raster = MakeRaster(width, height, [](int, int) { return 0.0; });
    raster.geoTransform = transform;
    if (epsg) raster.wkt = test_support::WktOfEpsg(epsg);
    m_files.push_back(MemoryPath());
    test_support::WriteRaster(raster, m_files.back());
    ASSERT_TRUE(m_raster.OpenSimple(m_files.back()));
  }
  bool Load(const std::vector<Layer>& layers) {
    if (!m_raster.IsOpen()) OpenRaster();
    m_files.push_back(MemoryPath(L"gpkg"));
    WriteLayers(m_files.back(), layers);
    return m_aoi.Load(m_files.back(), m_raster);
  }
  /// The mask of a rectangle, a line of text for each row.
  std::string Mask(const CRect& rect, int expectedAnswer) {
    EXPECT_EQ(m_aoi.ReadCacheAoiBuffer(rect.left, rect.top, rect.Width(), rect.Height()), expectedAnswer);
    std::string text;
    for (int row = rect.top; row < rect.bottom; ++row) {
      for (int column = rect.left; column < rect.right; ++column) text += m_aoi.IsInAOI(column, row) ? '#' : '.';
      text += '\n';
    }
    return text;
  }

  CRasterSource m_raster;
  CRasterAOI m_aoi;
  std::vector<std::wstring> m_files;
};

TEST_F(RasterArea, APixelIsInsideWhenItsCentreIs) {
  // From just right of the centre of column 1 to just right of the centre of column 4.
  ASSERT_TRUE(Load({{0, {"POLYGON((1.6 1.4,4.6 1.4,4.6 3.4,1.6 3.4,1.6 1.4))"}}}));
  EXPECT_EQ(Mask(CRect(0, 0, 6, 5), 1),
            "......\n"
            "..###.\n"
            "..###.\n"
            "......\n"
            "......\n");
}

TEST_F(RasterArea, AHoleIsOutsideAndAnIslandInItInside) {
  ASSERT_TRUE(Load({{0,
                     {"POLYGON((0 0,9 0,9 7,0 7,0 0),(2 2,7 2,7 5,2 5,2 2))",  //
                      "POLYGON((4 3,5 3,5 4,4 4,4 3))"}}}));
  EXPECT_EQ(Mask(CRect(0, 0, 10, 8), 1),
            "#########.\n"
            "#########.\n"
            "##.....##.\n"
            "##..#..##.\n"
            "##.....##.\n"
            "#########.\n"
            "#########.\n"
            "..........\n");
}

TEST_F(RasterArea, InsideOnePolygonRingsCountEvenOddAndPolygonsAreUnited) {
  // A ring that crosses itself covers its middle twice, which is not inside; two polygons that overlap are united.
  ASSERT_TRUE(Load({{0,
                     {"POLYGON((0 0,4 0,4 3,2 3,2 1,6 1,6 4,0 4,0 0))",  //
                      "POLYGON((8 0,10 0,10 3,8 3,8 0))", "POLYGON((9 1,12 1,12 4,9 4,9 1))"}}}));
  EXPECT_EQ(Mask(CRect(0, 0, 12, 5), 1),
            "####....##..\n"
            "##..##..####\n"
            "##..##..####\n"
            "######...###\n"
            "............\n");
}

TEST_F(RasterArea, PartsOfAMultipolygonAndAllLayersAreUnited) {
  ASSERT_TRUE(Load({{0, {"MULTIPOLYGON(((0 0,2 0,2 2,0 2,0 0)),((1 1,3 1,3 3,1 3,1 1)))"}},
                    {0, {"GEOMETRYCOLLECTION(POINT(9 9),POLYGON((4 0,5 0,5 1,4 1,4 0)))"}}}));
  EXPECT_EQ(Mask(CRect(0, 0, 5, 3), 1),
            "##..#\n"
            "###..\n"
            ".##..\n");
}

TEST_F(RasterArea, CurvesAreFollowed) {
  // A circle of radius 3 around (5, 5).
  ASSERT_TRUE(Load({{0, {"CURVEPOLYGON(CIRCULARSTRING(2 5,8 5,2 5))"}}}));
  EXPECT_EQ(m_aoi.ReadCacheAoiBuffer(0, 0, 10, 10), 1);
  for (int row = 0; row < 10; ++row) {
    for (int column = 0; column < 10; ++column) {
      const double distance = std::hypot(column + 0.5 - 5.0, row + 0.5 - 5.0);
      EXPECT_EQ(m_aoi.IsInAOI(column, row), distance < 3.0) << column << ' ' << row;
    }
  }
}

TEST_F(RasterArea, AnswersTellNothingPartAndWhole) {
  ASSERT_TRUE(Load({{0, {"POLYGON((2 2,8 2,8 8,2 8,2 2))"}}}));
  EXPECT_EQ(Mask(CRect(3, 3, 5, 4), 3), "##\n");
  EXPECT_EQ(Mask(CRect(8, 8, 10, 9), 0), "..\n");
  EXPECT_EQ(Mask(CRect(7, 7, 9, 8), 1), "#.\n");
  EXPECT_EQ(Mask(CRect(-3, -3, -1, -2), 0), "..\n");
  EXPECT_EQ(m_aoi.ReadCacheAoiBuffer(4, 4, 3, 2), 3);
  for (const auto& [column, row] : {std::pair(7, 4), {3, 5}, {4, 3}, {4, 6}}) {
    EXPECT_FALSE(m_aoi.IsInAOI(column, row)) << "beside the rectangle: " << column << ' ' << row;
  }
  EXPECT_EQ(m_aoi.ReadCacheAoiBuffer(0, 0, 0, 4), 0);
  EXPECT_EQ(m_aoi.ReadCacheAoiBuffer(0, 0, -2, 4), 0);
  EXPECT_EQ(m_aoi.ReadCacheAoiBuffer(2147483000, 0, 1000, 1), 0);
  EXPECT_FALSE(m_aoi.IsInAOI(4, 4)) << "outside the last rectangle nothing is inside";
}

TEST_F(RasterArea, TheCoveringRectangleTakesInEveryPixelTouched) {
  ASSERT_TRUE(Load({{0, {"POLYGON((1.6 1.4,4.6 1.4,4.6 3.4,1.6 3.4,1.6 1.4))", "POLYGON((-2 3,-1 3,-1 20,-2 3))"}}}));
  EXPECT_EQ(m_aoi.GetCoveringRect(), CRect(-2, 1, 5, 20)) << "not cut to the raster";
}

TEST_F(RasterArea, PolygonsThatShareAnEdgeShareNoPixelAndLeaveNone) {
  std::mt19937 random(2);
  std::uniform_real_distribution<double> in(0.5, 19.5);
  for (int round = 0; round < 20; ++round) {
    // A square cut into two by a random line from its top to its bottom.
    const double a = in(random);
    const double b = in(random);
    std::ostringstream left;
    std::ostringstream right;
    left.precision(17);
    right.precision(17);
    left << "POLYGON((0 0," << a << " 0," << b << " 20,0 20,0 0))";
    right << "POLYGON((" << a << " 0,20 0,20 20," << b << " 20," << a << " 0))";
    ASSERT_TRUE(Load({{0, {left.str()}}}));
    const std::string first = Mask(CRect(0, 0, 20, 20), 1);
    ASSERT_TRUE(Load({{0, {right.str()}}}));
    const std::string second = Mask(CRect(0, 0, 20, 20), 1);
    for (std::size_t i = 0; i < first.size(); ++i) {
      if (first[i] == '\n') continue;
      ASSERT_NE(first[i], second[i]) << "pixel " << i;
    }
  }
}

TEST_F(RasterArea, BlocksGiveTheSameMaskAsTheWhole) {
  ASSERT_TRUE(Load({{0, {"POLYGON((0.3 0.2,11 4,3 9.7,5 5,0.3 0.2),(4 4.5,6 4.5,5 5.5,4 4.5))"}}}));
  const std::string whole = Mask(CRect(0, 0, 12, 10), 1);
  std::string rows;
  for (int row = 0; row < 10; ++row) {
    m_aoi.ReadCacheAoiBuffer(0, row, 12, 1);
    for (int column = 0; column < 12; ++column) rows += m_aoi.IsInAOI(column, row) ? '#' : '.';
    rows += '\n';
  }
  EXPECT_EQ(rows, whole);
}

TEST_F(RasterArea, EdgesOfAnotherCoordinateSystemAreFollowedExactly) {
  // A rectangle of longitudes and latitudes that spans the whole of a 60 km image with 100 m pixels: its northern edge
  // bends by several pixels in UTM.
  OpenRaster({400000.0, 100.0, 0.0, 5600000.0, 0.0, -100.0}, 32630, 900, 300);
  ASSERT_TRUE(Load({{4326, {"POLYGON((-4.3 50.35,-3.3 50.35,-3.3 50.45,-4.3 50.45,-4.3 50.35))"}}}));
  EXPECT_EQ(m_aoi.ReadCacheAoiBuffer(0, 0, 900, 300), 1);
  OGRSpatialReference utm;
  utm.importFromEPSG(32630);
  OGRSpatialReference geographic;
  geographic.importFromEPSG(4326);
  geographic.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
  const std::unique_ptr<OGRCoordinateTransformation> carry(OGRCreateCoordinateTransformation(&utm, &geographic));
  int wrong = 0;
  int inside = 0;
  for (int row = 0; row < 300; ++row) {
    for (int column = 0; column < 900; ++column) {
      double x = 400000.0 + 100.0 * (column + 0.5);
      double y = 5600000.0 - 100.0 * (row + 0.5);
      ASSERT_TRUE(carry->Transform(1, &x, &y));
      // Distance to the nearest edge in degrees; a fiftieth of a pixel is left undecided.
      const double margin = std::min({x + 4.3, -3.3 - x, y - 50.35, 50.45 - y});
      if (std::abs(margin) < 100.0 / 50 / 70000.0) continue;
      inside += margin > 0;
      wrong += m_aoi.IsInAOI(column, row) != (margin > 0);
    }
  }
  EXPECT_GT(inside, 30000);
  EXPECT_EQ(wrong, 0);
}

TEST_F(RasterArea, ALayerOfTheSameSystemIsTakenAsItIs) {
  OpenRaster({400000.0, 10.0, 0.0, 4500000.0, 0.0, -10.0}, 32630);
  ASSERT_TRUE(
      Load({{32630, {"POLYGON((400020 4499990,400050 4499990,400050 4499970,400020 4499970,400020 4499990))"}}}));
  EXPECT_EQ(m_aoi.GetCoveringRect(), CRect(2, 1, 5, 3));
}

TEST_F(RasterArea, ALayerWithoutASystemIsTakenInTheRasters) {
  OpenRaster({400000.0, 10.0, 0.0, 4500000.0, 0.0, -10.0}, 32630);
  ASSERT_TRUE(Load({{0, {"POLYGON((400020 4499990,400050 4499990,400050 4499970,400020 4499970,400020 4499990))"}}}));
  EXPECT_EQ(m_aoi.GetCoveringRect(), CRect(2, 1, 5, 3));
}

TEST_F(RasterArea, ARotatedRasterIsAskedInItsOwnPixels) {
  // Columns run north, rows east.
  OpenRaster({0, 0, 1, 0, 1, 0});
  ASSERT_TRUE(Load({{0, {"POLYGON((0 0,2 0,2 3,0 3,0 0))"}}}));
  EXPECT_EQ(Mask(CRect(0, 0, 4, 3), 1),
            "###.\n"
            "###.\n"
            "....\n");
}

TEST_F(RasterArea, WhatHoldsNoPolygonDoesNotLoad) {
  OpenRaster();
  EXPECT_FALSE(m_aoi.Load(L"/vsimem/missing.gpkg", m_raster));
  EXPECT_FALSE(m_aoi.Load(L"", m_raster));
  EXPECT_FALSE(m_aoi.Load(m_files.front(), m_raster)) << "a raster";
  EXPECT_FALSE(Load({{0, {"POINT(3 3)", "LINESTRING(0 0,5 5)", "POLYGON EMPTY"}}}));
  EXPECT_EQ(m_aoi.GetCoveringRect().Area(), 0);
  EXPECT_EQ(m_aoi.ReadCacheAoiBuffer(0, 0, 4, 4), 0);
}

TEST_F(RasterArea, CoordinatesOfNowhereDoNoHarm) {
  OpenRaster();
  m_files.push_back(MemoryPath(L"csv"));
  VSILFILE* file = VSIFOpenL(CommonFun::U2Utf8(m_files.back()).c_str(), "wb");
  const std::string text =
      "WKT,id\n\"POLYGON((nan 1,4 inf,2 3,nan 1))\",1\n\"POLYGON((-1e300 0.1,1e300 0.1,0 1e300,-1e300 0.1))\",2\n"
      "\"POLYGON((0 0,2 0,2 2,0 2,0 0))\",3\n";
  VSIFWriteL(text.data(), 1, text.size(), file);
  VSIFCloseL(file);
  ASSERT_TRUE(m_aoi.Load(m_files.back(), m_raster));
  const int answer = m_aoi.ReadCacheAoiBuffer(0, 0, 12, 10);
  EXPECT_TRUE(answer == 1 || answer == 3);
  EXPECT_TRUE(m_aoi.IsInAOI(0, 0));
}

TEST_F(RasterArea, SeveralThreadsMayAsk) {
  ASSERT_TRUE(Load({{0, {"POLYGON((2 2,8 2,8 8,2 8,2 2))"}}}));
  m_aoi.ReadCacheAoiBuffer(0, 0, 10, 10);
  std::vector<int> counts(4, 0);
  std::vector<std::thread> threads;
  for (int& count : counts) {
    threads.emplace_back([&] {
      for (int i = 0; i < 100; ++i) count += m_aoi.IsInAOI(i % 10, i / 10);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(counts, std::vector<int>(4, 36));
}

}  // namespace
