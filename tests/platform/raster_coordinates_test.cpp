// Pixel, sample and ground coordinates, boxes, and questions about coordinate systems.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "platform/raster/coordinate_algorithm.h"
#include "platform/raster/gis_data_source.h"
#include "platform/raster/raster_source.h"
#include "platform/utility/common_fun.h"
#include "tests/support/numbers.h"
#include "tests/support/test_raster.h"

namespace {

using test_support::MakeRaster;
using test_support::MemoryPath;
using test_support::WideWktOfEpsg;
using test_support::WktOfEpsg;

using test_support::kNaN;

/// An open raster of the given size and geotransform.
class Georeferenced {
 public:
  Georeferenced(int width, int height, const std::vector<double>& geoTransform, bool option = false)
      : m_path(MemoryPath()) {
    auto raster = MakeRaster(width, height, [](int, int) { return 1.0; });
    raster.geoTransform = geoTransform;
    test_support::WriteRaster(raster, m_path);
    EXPECT_TRUE(source.Open(m_path, GDA_READ, option));
  }
  ~Georeferenced() {
    source.Close();
    CRasterSource::DeleteFileW(m_path);
  }
  /// Sample coordinates of the ground point at a corner-based pixel position.
  std::pair<double, double> SampleAt(double column, double row) const {
    double gx = 0.0;
    double gy = 0.0;
    source.ImageToGround(column, row, gx, gy);
    double x = 0.0;
    double y = 0.0;
    source.GroundToImage(gx, gy, x, y);
    return {x, y};
  }

  CRasterSource source;

 private:
  std::wstring m_path;
};

const std::vector<double> kNorthUp = {1000.0, 2.0, 0.0, 5000.0, 0.0, -4.0};
const std::vector<double> kSouthUp = {1000.0, 2.0, 0.0, 5000.0, 0.0, 4.0};
// A quarter turn and a stretch: columns run north, rows run east.
const std::vector<double> kTurned = {1000.0, 0.0, 2.0, 5000.0, 4.0, 0.0};

void ExpectBox(const CBoundingBox& box, double left, double top, double right, double bottom) {
  EXPECT_DOUBLE_EQ(box.m_dLeft, left);
  EXPECT_DOUBLE_EQ(box.m_dTop, top);
  EXPECT_DOUBLE_EQ(box.m_dRight, right);
  EXPECT_DOUBLE_EQ(box.m_dBottom, bottom);
}

TEST(SampleCoordinate, IsHalfAPixelBelowTheCornerBasedOne) {
  EXPECT_EQ(platform::SampleCoordinate(0.5, 10), 0.0);
  EXPECT_EQ(platform::SampleCoordinate(3.25, 10), 2.75);
  EXPECT_EQ(platform::SampleCoordinate(9.5, 10), 9.0);
}

TEST(SampleCoordinate, IsClampedOnTheImageAndUpToOnePixelOutside) {
  EXPECT_EQ(platform::SampleCoordinate(0.0, 10), 0.0);
  EXPECT_EQ(platform::SampleCoordinate(-1.0, 10), 0.0);
  EXPECT_EQ(platform::SampleCoordinate(10.0, 10), 9.0);
  EXPECT_EQ(platform::SampleCoordinate(11.0, 10), 9.0);
  EXPECT_EQ(platform::SampleCoordinate(0.7, 1), 0.0);
}

TEST(SampleCoordinate, IsLeftAloneFartherOutside) {
  EXPECT_EQ(platform::SampleCoordinate(-1.25, 10), -1.75);
  EXPECT_EQ(platform::SampleCoordinate(11.25, 10), 10.75);
  EXPECT_EQ(platform::SampleCoordinate(1073741824.5, 10), 1073741824.0);
  EXPECT_EQ(platform::SampleCoordinate(-1073741823.5, 10), -1073741824.0);
}

TEST(SampleCoordinate, OfNowhereIsFarAway) {
  for (const double v : {kNaN, double{INFINITY}, double{-INFINITY}, 1073741826.0, -1073741826.0, 1e300}) {
    EXPECT_EQ(platform::SampleCoordinate(v, 10), -1e9) << v;
  }
}

TEST(RasterCoordinates, ImageToGroundMapsPixelCorners) {
  const Georeferenced raster(10, 20, kNorthUp);
  double x = 0.0;
  double y = 0.0;
  raster.source.ImageToGround(3, 5, x, y);
  EXPECT_EQ(x, 1006.0);
  EXPECT_EQ(y, 4980.0);
  raster.source.ImageToGround(3.5, 5.25, x, y);
  EXPECT_EQ(x, 1007.0);
  EXPECT_EQ(y, 4979.0);
}

TEST(RasterCoordinates, GroundToImageAnswersSampleCoordinatesAxisByAxis) {
  const Georeferenced raster(10, 20, kNorthUp);
  EXPECT_EQ(raster.SampleAt(0.5, 0.5), std::pair(0.0, 0.0));
  EXPECT_EQ(raster.SampleAt(4.5, 7.5), std::pair(4.0, 7.0));
  EXPECT_EQ(raster.SampleAt(4.25, 20.5), std::pair(3.75, 19.0));
  EXPECT_EQ(raster.SampleAt(-0.5, -30.0), std::pair(0.0, -30.5)) << "each axis is clamped on its own";
  double x = 0.0;
  double y = 0.0;
  raster.source.GroundToImage(kNaN, 4998.0, x, y);
  EXPECT_EQ(x, -1e9);
  EXPECT_EQ(y, -1e9) << "a point of nowhere has no row either";
  raster.source.GroundToImage(1e30, -1e30, x, y);
  EXPECT_EQ(x, -1e9);
  EXPECT_EQ(y, -1e9);
}

TEST(RasterCoordinates, PointsGoThereAndBackWhateverTheDirection) {
  for (const auto& transform : {kNorthUp, kSouthUp, kTurned, std::vector<double>{500, 0.8, 0.6, 900, 0.6, -0.8}}) {
    const Georeferenced raster(10, 20, transform);
    for (const auto& [column, row] : {std::pair(0.5, 0.5), {9.5, 19.5}, {2.75, 13.125}}) {
      const auto [x, y] = raster.SampleAt(column, row);
      EXPECT_NEAR(x, column - 0.5, 1e-9);
      EXPECT_NEAR(y, row - 0.5, 1e-9);
    }
  }
}

TEST(RasterCoordinates, ARectanglesBoxKeepsItsDirection) {
  const CRect rect(1, 2, 4, 7);
  ExpectBox(Georeferenced(10, 20, kNorthUp).source.ImageToGround(rect), 1002.0, 4992.0, 1008.0, 4972.0);
  ExpectBox(Georeferenced(10, 20, kSouthUp).source.ImageToGround(rect), 1002.0, 5008.0, 1008.0, 5028.0);
  ExpectBox(Georeferenced(10, 20, {1000.0, -2.0, 0.0, 5000.0, 0.0, -4.0}).source.ImageToGround(rect), 998.0, 4992.0,
            992.0, 4972.0);
}

TEST(RasterCoordinates, ARotatedRastersBoxCoversItsFourCorners) {
  // Corners of columns 1..4, rows 2..7: x = 1000 + 2 row, y = 5000 + 4 column.
  ExpectBox(Georeferenced(10, 20, kTurned).source.ImageToGround(CRect(1, 2, 4, 7)), 1004.0, 5016.0, 1014.0, 5004.0);
}

TEST(RasterCoordinates, TheExtentIsTheWholeRastersBox) {
  const Georeferenced raster(10, 20, kSouthUp);
  ExpectBox(CGISDataSource::GetExtent(&raster.source), 1000.0, 5000.0, 1020.0, 5080.0);
}

TEST(RasterCoordinates, ABoxIsCoveredByWholePixels) {
  const Georeferenced raster(10, 20, kNorthUp);
  const auto cover = [&](double left, double top, double right, double bottom) {
    return raster.source.GroundToImage(CBoundingBox(left, top, right, bottom));
  };
  EXPECT_EQ(cover(1002.0, 4992.0, 1008.0, 4972.0), CRect(1, 2, 4, 7));
  EXPECT_EQ(cover(1003.0, 4991.0, 1008.5, 4971.0), CRect(1, 2, 5, 8));
  EXPECT_EQ(cover(1008.5, 4971.0, 1003.0, 4991.0), CRect(1, 2, 5, 8)) << "whatever the box's direction";
  EXPECT_EQ(cover(990.0, 5010.0, 1004.0, 4996.0), CRect(-5, -3, 2, 1)) << "not cut to the raster";
}

TEST(RasterCoordinates, ABoxThatEndsOnAPixelEdgeTakesNoFurtherPixel) {
  const Georeferenced raster(10, 20, kNorthUp);
  const auto cover = [&](double outward) {
    return raster.source.GroundToImage(
        CBoundingBox(1002.0 - 2 * outward, 4992.0 + 4 * outward, 1008.0 + 2 * outward, 4972.0 - 4 * outward));
  };
  EXPECT_EQ(cover(0.9e-6), CRect(1, 2, 4, 7));
  EXPECT_EQ(cover(-0.9e-6), CRect(1, 2, 4, 7));
  EXPECT_EQ(cover(1.5e-6), CRect(0, 1, 5, 8));
}

TEST(RasterCoordinates, ABoxOfNowhereIsEmptyAndAHugeOneDoesNotOverflow) {
  const Georeferenced raster(10, 20, kNorthUp);
  EXPECT_EQ(raster.source.GroundToImage(CBoundingBox(kNaN, kNaN, kNaN, kNaN)).Area(), 0);
  const CRect huge = raster.source.GroundToImage(CBoundingBox(-1e300, 1e300, 1e300, -1e300));
  EXPECT_LT(huge.left, -1000000000);
  EXPECT_GT(huge.bottom, 1000000000);
  EXPECT_GT(huge.Width(), 0);
}

TEST(RasterCoordinates, WithoutGeoreferencePixelsAreTheGround) {
  const std::wstring path = MemoryPath();
  test_support::WriteRaster(MakeRaster(4, 3, [](int, int) { return 1.0; }), path);
  CRasterSource source;
  ASSERT_TRUE(source.Open(path, GDA_READ, true));
  EXPECT_FALSE(source.HasGeoTransform());
  double transform[6] = {9, 9, 9, 9, 9, 9};
  EXPECT_TRUE(source.GetGeoTransform(transform));
  EXPECT_EQ(std::vector<double>(transform, transform + 6), (std::vector<double>{0, 1, 0, 0, 0, 1}));
  EXPECT_TRUE(source.GetSpatialReferenceWKT().empty());
  ExpectBox(CGISDataSource::GetExtent(&source), 0.0, 0.0, 4.0, 3.0);
  source.Close();
  EXPECT_FALSE(source.GetGeoTransform(transform)) << "closed";
  CRasterSource::DeleteFileW(path);
}

TEST(RasterCoordinates, AGeotransformThatCannotBeInvertedIsNone) {
  const Georeferenced raster(4, 3, {1000.0, 0.0, 0.0, 5000.0, 0.0, 0.0});
  EXPECT_FALSE(raster.source.HasGeoTransform());
}

TEST(BoundingBox, IntersectsInTheFirstBoxsDirection) {
  const CBoundingBox northUp(0.0, 10.0, 10.0, 0.0);
  const CBoundingBox other(5.0, 20.0, 20.0, 4.0);
  CBoundingBox result;
  ASSERT_TRUE(northUp.Intersect(other, result));
  ExpectBox(result, 5.0, 10.0, 10.0, 4.0);
  const CBoundingBox southUp(0.0, 0.0, 10.0, 10.0);
  ASSERT_TRUE(southUp.Intersect(other, result));
  ExpectBox(result, 5.0, 4.0, 10.0, 10.0);
  const CBoundingBox mirrored(10.0, 10.0, 0.0, 0.0);
  ASSERT_TRUE(mirrored.Intersect(other, result));
  ExpectBox(result, 10.0, 10.0, 5.0, 4.0);
}

TEST(BoundingBox, BoxesThatOnlyTouchDoNotOverlap) {
  const CBoundingBox box(0.0, 10.0, 10.0, 0.0);
  for (const auto& other : {CBoundingBox(10.0, 10.0, 20.0, 0.0), CBoundingBox(0.0, 0.0, 10.0, -5.0),
                            CBoundingBox(30.0, 10.0, 40.0, 0.0), CBoundingBox(kNaN, 10.0, 20.0, 0.0)}) {
    CBoundingBox result(1.0, 2.0, 3.0, 4.0);
    EXPECT_FALSE(box.Intersect(other, result));
    EXPECT_FALSE(other.Intersect(box, result));
    ExpectBox(result, 1.0, 2.0, 3.0, 4.0);
  }
}

TEST(BoundingBox, SortsItsSides) {
  const CBoundingBox box(10.0, 1.0, 2.0, 7.0);
  EXPECT_EQ(box.MinX(), 2.0);
  EXPECT_EQ(box.MaxX(), 10.0);
  EXPECT_EQ(box.MinY(), 1.0);
  EXPECT_EQ(box.MaxY(), 7.0);
}

TEST(CoordinateAlgorithm, ProjectedAndGeographicSystemsAreValid) {
  EXPECT_TRUE(CCoordinateAlgorithm::IsValidCoordinate(WideWktOfEpsg(32630)));
  EXPECT_TRUE(CCoordinateAlgorithm::IsValidCoordinate(WideWktOfEpsg(4326)));
  EXPECT_FALSE(CCoordinateAlgorithm::IsValidCoordinate(L""));
  EXPECT_FALSE(CCoordinateAlgorithm::IsValidCoordinate(L"nonsense"));
  EXPECT_FALSE(CCoordinateAlgorithm::IsValidCoordinate(L"PROJCS[\"broken\""));
  EXPECT_FALSE(CCoordinateAlgorithm::IsValidCoordinate(L"LOCAL_CS[\"site\",UNIT[\"metre\",1]]"));
}

TEST(CoordinateAlgorithm, ATextNeverNamesAFile) {
  const test_support::TempFolder folder;
  const std::wstring path = folder.Path(L"system.wkt");
  {
    std::FILE* file = std::fopen(CommonFun::U2Utf8(path).c_str(), "wb");
    ASSERT_TRUE(file);
    std::fputs(WktOfEpsg(4326).c_str(), file);
    std::fclose(file);
  }
  EXPECT_FALSE(CCoordinateAlgorithm::IsValidCoordinate(path));
}

TEST(CoordinateAlgorithm, SystemsAreTheSameByMeaning) {
  EXPECT_TRUE(CCoordinateAlgorithm::IsSameCoordinate(WideWktOfEpsg(32630), WideWktOfEpsg(32630)));
  EXPECT_FALSE(CCoordinateAlgorithm::IsSameCoordinate(WideWktOfEpsg(32630), WideWktOfEpsg(32631)));
  EXPECT_FALSE(CCoordinateAlgorithm::IsSameCoordinate(WideWktOfEpsg(32630), L""));
  EXPECT_FALSE(CCoordinateAlgorithm::IsSameCoordinate(L"", L""));
}

TEST(CoordinateAlgorithm, ProjectionIsNeededBetweenTwoKnownSystemsThatDiffer) {
  const auto write = [](const std::string& wkt) {
    auto raster = MakeRaster(4, 3, [](int, int) { return 1.0; });
    raster.geoTransform = kNorthUp;
    raster.wkt = wkt;
    std::wstring path = MemoryPath();
    test_support::WriteRaster(raster, path);
    return path;
  };
  const std::wstring utm = write(WktOfEpsg(32630));
  const std::wstring otherUtm = write(WktOfEpsg(32631));
  const std::wstring none = write("");
  const auto needed = [](const std::wstring& pan, const std::wstring& ms) {
    bool answer = true;
    EXPECT_TRUE(CCoordinateAlgorithm::IsNeededProject(pan, ms, answer));
    return answer;
  };
  EXPECT_TRUE(needed(utm, otherUtm));
  EXPECT_FALSE(needed(utm, utm));
  EXPECT_FALSE(needed(utm, none));
  EXPECT_FALSE(needed(none, none));
  bool answer = false;
  EXPECT_FALSE(CCoordinateAlgorithm::IsNeededProject(utm, L"/vsimem/missing.tif", answer));
  EXPECT_FALSE(CCoordinateAlgorithm::IsNeededProject(L"/vsimem/missing.tif", utm, answer));
  for (const auto& path : {utm, otherUtm, none}) CRasterSource::DeleteFileW(path);
}

}  // namespace
