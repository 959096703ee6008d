// Views of a raster file: a choice of bands, another georeference, north up.
#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <stdexcept>

#include "platform/raster/coordinate_algorithm.h"
#include "platform/raster/gis_data_source.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/virtual_raster.h"
#include "platform/utility/common_fun.h"
#include "tests/support/scene.h"
#include "tests/support/test_raster.h"

namespace {

using platform::VirtualRaster;
using test_support::MakeRaster;
using test_support::MemoryPath;
using test_support::TestRaster;

std::vector<double> ReadAll(CRasterSource& source, int band) {
  const int width = source.GetWidth();
  const int height = source.GetHeight();
  std::vector<double> values(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
  EXPECT_EQ(source.GetRasterBand(band)->ReadBlock(0, 0, width, height, values.data(), width, height, PDT_FLOAT64), 0);
  return values;
}

class RasterViews : public testing::Test {
 protected:
  ~RasterViews() override {
    for (const auto& path : m_files) CRasterSource::DeleteFileW(path);
  }
  std::wstring Write(const TestRaster& raster) {
    m_files.push_back(MemoryPath());
    test_support::WriteRaster(raster, m_files.back());
    return m_files.back();
  }
  /// Three bands of 16-bit samples: x + 10 y, and 100 and 200 more.
  static TestRaster ThreeBands() {
    TestRaster raster = MakeRaster(5, 4, [](int x, int y) { return x + 10 * y; });
    for (const double offset : {100.0, 200.0}) {
      raster.bands.push_back(raster.bands[0]);
      for (double& v : raster.bands.back()) v += offset;
    }
    raster.type = PDT_INT16;
    raster.noData = -5.0;
    raster.geoTransform = std::vector<double>{440000, 10, 0, 4470000, 0, -10};
    raster.wkt = test_support::WktOfEpsg(32630);
    return raster;
  }

  std::vector<std::wstring> m_files;
};

TEST_F(RasterViews, AVirtualRasterHoldsTheChosenBandsInTheirOrder) {
  const TestRaster raster = ThreeBands();
  const std::wstring file = Write(raster);
  const VirtualRaster view(file, {2, 0}, nullptr, nullptr);
  CRasterSource source;
  ASSERT_TRUE(source.Open(view.Path(), GDA_READ, true));
  EXPECT_EQ(source.GetBandCount(), 2);
  EXPECT_EQ(source.GetRasterDataType(), PDT_INT16);
  EXPECT_EQ(ReadAll(source, 0), raster.bands[2]);
  EXPECT_EQ(ReadAll(source, 1), raster.bands[0]);
  EXPECT_TRUE(source.GetRasterBand(1)->IsNoData(-5.0));
  double t[6];
  ASSERT_TRUE(source.GetGeoTransform(t));
  EXPECT_EQ(std::vector<double>(t, t + 6), *raster.geoTransform);
  EXPECT_TRUE(CCoordinateAlgorithm::IsSameCoordinate(source.GetSpatialReferenceWKT(), CommonFun::Utf82U(raster.wkt)));
}

TEST_F(RasterViews, AVirtualRasterOfNoChoiceHasAllBands) {
  const VirtualRaster view(Write(ThreeBands()), {}, nullptr, nullptr);
  CRasterSource source;
  ASSERT_TRUE(source.OpenSimple(view.Path()));
  EXPECT_EQ(source.GetBandCount(), 3);
}

TEST_F(RasterViews, AVirtualRasterTakesAnotherGeoreference) {
  const std::wstring file = Write(ThreeBands());
  const double wanted[6] = {1, 2, 0, 3, 0, -4};
  const std::wstring none;
  const std::wstring geographic = test_support::WideWktOfEpsg(4326);
  for (const std::wstring* wkt : {&none, &geographic}) {
    const VirtualRaster view(file, {}, wanted, wkt);
    CRasterSource source;
    ASSERT_TRUE(source.OpenSimple(view.Path()));
    double t[6];
    ASSERT_TRUE(source.GetGeoTransform(t));
    EXPECT_EQ(std::vector<double>(t, t + 6), std::vector<double>(wanted, wanted + 6));
    EXPECT_EQ(CCoordinateAlgorithm::IsSameCoordinate(source.GetSpatialReferenceWKT(), geographic), wkt == &geographic);
    EXPECT_EQ(source.GetSpatialReferenceWKT().empty(), wkt == &none);
  }
  CRasterSource untouched;
  ASSERT_TRUE(untouched.OpenSimple(file));
  double t[6];
  untouched.GetGeoTransform(t);
  EXPECT_EQ(t[0], 440000.0);
}

TEST_F(RasterViews, VirtualRastersDisappearWithTheirObjects) {
  const std::wstring file = Write(ThreeBands());
  std::wstring path;
  {
    const VirtualRaster first(file, {0}, nullptr, nullptr);
    const VirtualRaster second(file, {0}, nullptr, nullptr);
    EXPECT_NE(first.Path(), second.Path());
    path = first.Path();
    EXPECT_TRUE(CommonFun::IsExistingFile(path));
  }
  EXPECT_FALSE(CommonFun::IsExistingFile(path));
  EXPECT_TRUE(CommonFun::IsExistingFile(file));
}

TEST_F(RasterViews, VirtualRastersOfWhatIsNotThereThrow) {
  const std::wstring file = Write(ThreeBands());
  EXPECT_THROW(VirtualRaster(L"/vsimem/missing.tif", {}, nullptr, nullptr), std::runtime_error);
  EXPECT_THROW(VirtualRaster(file, {3}, nullptr, nullptr), std::runtime_error);
  EXPECT_THROW(VirtualRaster(file, {-1}, nullptr, nullptr), std::runtime_error);
}

/// A raster turned by 30 degrees, its sample at each pixel naming the pixel.
TestRaster Rotated() {
  TestRaster raster = MakeRaster(40, 30, [](int x, int y) { return 1000.0 + 40 * y + x; });
  raster.bands.push_back(raster.bands[0]);
  for (double& v : raster.bands[1]) v += 5000.0;
  raster.type = PDT_UINT16;
  const double c = std::cos(0.5235987755982988) * 10.0;
  const double s = std::sin(0.5235987755982988) * 10.0;
  raster.geoTransform = std::vector<double>{500000.0, c, s, 4500000.0, s, -c};
  raster.wkt = test_support::WktOfEpsg(32630);
  return raster;
}

/// Every pixel of the view holds the sample of the source pixel under its centre; outside the source the given value.
void ExpectNearestOfRotated(CRasterSource& view, const TestRaster& raster, double outside) {
  const auto& t = *raster.geoTransform;
  const double determinant = t[1] * t[5] - t[2] * t[4];
  int inside = 0;
  for (int b = 0; b < 2; ++b) {
    const std::vector<double> values = ReadAll(view, b);
    for (int y = 0; y < view.GetHeight(); ++y) {
      for (int x = 0; x < view.GetWidth(); ++x) {
        double gx = 0.0;
        double gy = 0.0;
        view.ImageToGround(x + 0.5, y + 0.5, gx, gy);
        const double column = (t[5] * (gx - t[0]) - t[2] * (gy - t[3])) / determinant;
        const double row = (-t[4] * (gx - t[0]) + t[1] * (gy - t[3])) / determinant;
        const auto nearEdge = [](double v) { return std::abs(v - std::round(v)) < 1e-3; };
        if (nearEdge(column) || nearEdge(row)) continue;
        const bool in = column > 0 && column < raster.width && row > 0 && row < raster.height;
        inside += in;
        const auto at = static_cast<std::size_t>(std::floor(row) * raster.width + std::floor(column));
        const double expected = in ? raster.bands[static_cast<std::size_t>(b)][at] : outside;
        ASSERT_EQ(values[static_cast<std::size_t>(y * view.GetWidth() + x)], expected) << x << ' ' << y;
      }
    }
  }
  EXPECT_GT(inside, 2000);
}

TEST_F(RasterViews, ARotatedRasterIsPresentedNorthUp) {
  TestRaster raster = Rotated();
  raster.noData = 7.0;
  const std::wstring file = Write(raster);
  CRasterSource view;
  ASSERT_TRUE(view.Open(file, GDA_READ, true));
  EXPECT_TRUE(view.PixelToGround().IsAxisAligned());
  EXPECT_LT(view.PixelToGround().t[5], 0.0);
  EXPECT_EQ(view.GetBandCount(), 2);
  EXPECT_EQ(view.GetRasterDataType(), PDT_UINT16);
  EXPECT_EQ(view.GetPath(), file);
  EXPECT_TRUE(CCoordinateAlgorithm::IsSameCoordinate(view.GetSpatialReferenceWKT(), CommonFun::Utf82U(raster.wkt)));
  EXPECT_TRUE(view.GetRasterBand(1)->IsNoData(7.0));
  ExpectNearestOfRotated(view, raster, 7.0);
  const double value = 1.0;
  EXPECT_NE(view.GetRasterBand(0)->WriteBlock(0, 0, 1, 1, &value, 1, 1, PDT_FLOAT64), 0);

  CRasterSource asItLies;
  ASSERT_TRUE(asItLies.Open(file, GDA_READ, false));
  EXPECT_FALSE(asItLies.PixelToGround().IsAxisAligned());
  EXPECT_EQ(ReadAll(asItLies, 0), raster.bands[0]);
}

TEST_F(RasterViews, EitherRotationTermMakesARasterRotated) {
  TestRaster raster = ThreeBands();
  for (const auto& transform :
       {std::vector<double>{440000, 10, 3, 4470000, 0, -10}, {440000, 10, 0, 4470000, 3, -10}}) {
    raster.geoTransform = transform;
    CRasterSource view;
    ASSERT_TRUE(view.Open(Write(raster), GDA_READ, true));
    EXPECT_TRUE(view.PixelToGround().IsAxisAligned());
  }
}

TEST_F(RasterViews, PixelsOutsideARotatedRasterCountNowhere) {
  const TestRaster raster = Rotated();
  CRasterSource view;
  ASSERT_TRUE(view.Open(Write(raster), GDA_READ, true));
  ExpectNearestOfRotated(view, raster, 0.0);
  EXPECT_TRUE(view.GetRasterBand(0)->IsNoData(0.0));
  double minimum = 0.0;
  double maximum = 0.0;
  EXPECT_TRUE(view.GetRasterBand(0)->ComputeMinMax(&minimum, &maximum, false));
  EXPECT_GE(minimum, 1000.0);
}

TEST_F(RasterViews, SouthUpAndMirroredRastersAreTakenAsTheyLie) {
  TestRaster raster = ThreeBands();
  for (const auto& transform :
       {std::vector<double>{440000, 10, 0, 4470000, 0, 10}, {440000, -10, 0, 4470000, 0, -10}}) {
    raster.geoTransform = transform;
    CRasterSource source;
    ASSERT_TRUE(source.Open(Write(raster), GDA_READ, true));
    double t[6];
    source.GetGeoTransform(t);
    EXPECT_EQ(std::vector<double>(t, t + 6), transform);
    EXPECT_EQ(ReadAll(source, 0), raster.bands[0]);
  }
}

TEST_F(RasterViews, GroundControlPointsAreMadeIntoAGrid) {
  TestRaster raster = ThreeBands();
  raster.geoTransform.reset();
  raster.wkt.clear();
  raster.noData.reset();
  const std::wstring file = Write(raster);
  {
    // The corners of a north-up grid of 10 m pixels.
    const std::unique_ptr<GDALDataset> dataset(
        GDALDataset::Open(CommonFun::U2Utf8(file).c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
    std::vector<GDAL_GCP> points(4);
    GDALInitGCPs(4, points.data());
    for (std::size_t i = 0; i < 4; ++i) {
      points[i].dfGCPPixel = i % 2 ? 5.0 : 0.0;
      points[i].dfGCPLine = i / 2 ? 4.0 : 0.0;
      points[i].dfGCPX = 440000.0 + 10.0 * points[i].dfGCPPixel;
      points[i].dfGCPY = 4470000.0 - 10.0 * points[i].dfGCPLine;
    }
    OGRSpatialReference crs;
    crs.importFromEPSG(32630);
    ASSERT_EQ(dataset->SetGCPs(4, points.data(), &crs), CE_None);
    GDALDeinitGCPs(4, points.data());
  }
  CRasterSource view;
  ASSERT_TRUE(view.Open(file, GDA_READ, true));
  EXPECT_TRUE(view.HasGeoTransform());
  const CBoundingBox box = CGISDataSource::GetExtent(&view);
  EXPECT_NEAR(box.m_dLeft, 440000.0, 0.5);
  EXPECT_NEAR(box.m_dTop, 4470000.0, 0.5);
  EXPECT_NEAR(box.m_dRight, 440050.0, 10.0);
  EXPECT_NEAR(box.m_dBottom, 4469960.0, 10.0);
  EXPECT_TRUE(CCoordinateAlgorithm::IsValidCoordinate(view.GetSpatialReferenceWKT()));
  EXPECT_EQ(ReadAll(view, 0).front(), 0.0);
  EXPECT_EQ(ReadAll(view, 0)[1], 1.0);
  CRasterSource asItLies;
  ASSERT_TRUE(asItLies.Open(file, GDA_READ, false));
  EXPECT_FALSE(asItLies.HasGeoTransform());
}

TEST_F(RasterViews, ChosenBandsOfARotatedRasterAreStillTurned) {
  const VirtualRaster view(Write(Rotated()), {1}, nullptr, nullptr);
  CRasterSource source;
  ASSERT_TRUE(source.Open(view.Path(), GDA_READ, true));
  EXPECT_TRUE(source.PixelToGround().IsAxisAligned());
  EXPECT_EQ(source.GetBandCount(), 1);
}

TEST_F(RasterViews, AVirtualRasterTakesABandOfAnotherFileBehindItsOwn) {
  const TestRaster raster = ThreeBands();
  TestRaster other = ThreeBands();
  other.type = PDT_FLOAT32;
  other.noData.reset();
  for (double& v : other.bands[1]) v += 0.5;
  VirtualRaster view(Write(raster), {2, 0}, nullptr, nullptr);
  view.AddBand(Write(other), 1);
  CRasterSource source;
  ASSERT_TRUE(source.Open(view.Path(), GDA_READ, true));
  ASSERT_EQ(source.GetBandCount(), 3);
  EXPECT_EQ(source.GetRasterDataType(), PDT_INT16);
  EXPECT_EQ(source.GetRasterBand(2)->GetRasterDataType(), PDT_FLOAT32);
  EXPECT_EQ(ReadAll(source, 0), raster.bands[2]);
  EXPECT_EQ(ReadAll(source, 1), raster.bands[0]);
  EXPECT_EQ(ReadAll(source, 2), other.bands[1]);
  EXPECT_TRUE(source.GetRasterBand(0)->IsNoData(-5.0));
  EXPECT_FALSE(source.GetRasterBand(2)->IsHaveNoData());
}

TEST_F(RasterViews, ABandThatDoesNotFitIsRefused) {
  VirtualRaster view(Write(ThreeBands()), {}, nullptr, nullptr);
  const std::wstring file = Write(Rotated());
  EXPECT_THROW(view.AddBand(file, 0), std::runtime_error);  // another size
  EXPECT_THROW(view.AddBand(view.Path(), 3), std::runtime_error);
  EXPECT_THROW(view.AddBand(view.Path(), -1), std::runtime_error);
  EXPECT_THROW(view.AddBand(L"/vsimem/missing.tif", 0), std::runtime_error);
}

TEST_F(RasterViews, AVirtualRasterOfWhatIsSeenNorthUp) {
  const TestRaster raster = Rotated();
  const std::wstring file = Write(raster);
  CRasterSource seen;
  ASSERT_TRUE(seen.Open(file, GDA_READ, true));
  std::wstring path;
  {
    VirtualRaster view(file, {0, 1}, nullptr, nullptr, std::nullopt, true);
    path = view.Path();
    // A warp itself takes no band of another file.
    VirtualRaster again(view.Path(), {1}, nullptr, nullptr, std::nullopt, true);
    again.AddBand(view.Path(), 0);
    CRasterSource source;
    ASSERT_TRUE(source.Open(again.Path(), GDA_READ, false));
    EXPECT_TRUE(source.PixelToGround().IsAxisAligned());
    ASSERT_EQ(source.GetBandCount(), 2);
    EXPECT_EQ(source.GetWidth(), seen.GetWidth());
    EXPECT_EQ(ReadAll(source, 0), ReadAll(seen, 1));
    EXPECT_EQ(ReadAll(source, 1), ReadAll(seen, 0));
    EXPECT_TRUE(source.GetRasterBand(0)->IsNoData(0.0));
  }
  EXPECT_FALSE(CommonFun::IsExistingFile(path));
  EXPECT_TRUE(test_support::FilesNamedLike(L"fusion_view").empty());
  EXPECT_FALSE(VirtualRaster(Write(ThreeBands()), {0}, nullptr, nullptr, std::nullopt, true).Path().empty());
}

}  // namespace
