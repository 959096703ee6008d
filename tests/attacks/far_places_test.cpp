// Images across the date line and at the poles: what a run makes of them is what the ground shows there, by formulas of
// the map projections that are none of the library's.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <iostream>

#include "runs/fuse.h"
#include "tests/support/command.h"
#include "tests/support/scene.h"
#include "tests/support/test_raster.h"

namespace {

using reference::Image;
using test_support::WktOfEpsg;

constexpr double kDegree = 3.14159265358979323846 / 180.0;
// WGS 84.
constexpr double kAxis = 6378137.0;
constexpr double kFlattening = 1.0 / 298.257223563;
const double kEccentricity = std::sqrt(kFlattening * (2.0 - kFlattening));

struct Place {
  double longitude;  ///< degrees, of any turn
  double latitude;
};

/// The latitude of which t is tan(pi / 4 - latitude / 2) with the ellipsoid's correction (Snyder 1987, 7-9).
double LatitudeOf(double t) {
  double latitude = 90.0 * kDegree - 2.0 * std::atan(t);
  for (int i = 0; i < 20; ++i) {
    const double s = kEccentricity * std::sin(latitude);
    latitude = 90.0 * kDegree - 2.0 * std::atan(t * std::pow((1.0 - s) / (1.0 + s), kEccentricity / 2.0));
  }
  return latitude / kDegree;
}

Place Degrees(double x, double y) { return {x, y}; }

/// EPSG:3832, a Mercator map of the Pacific around 150 degrees east (Snyder 1987, 7-9 to 7-12).
Place OfPacific(double x, double y) { return {150.0 + x / kAxis / kDegree, LatitudeOf(std::exp(-y / kAxis))}; }

/// A polar stereographic map, true at a latitude, with a meridian downwards (north) or upwards (south) (Snyder 1987,
/// 20-16 to 20-18, 21-38 to 21-40).
Place OfPole(double x, double y, double sign, double standard, double meridian) {
  const double s = std::sin(standard * kDegree);
  const double e = kEccentricity;
  const double tc = std::tan((45.0 - standard / 2.0) * kDegree) / std::pow((1.0 - e * s) / (1.0 + e * s), e / 2.0);
  const double mc = std::cos(standard * kDegree) / std::sqrt(1.0 - e * e * s * s);
  const double t = std::hypot(x, y) * tc / (kAxis * mc);
  return {meridian + std::atan2(x, -sign * y) / kDegree, sign * LatitudeOf(t)};
}
Place OfNorth(double x, double y) { return OfPole(x, y, 1.0, 70.0, -45.0); }  // EPSG:3413
Place OfArctic(double x, double y) { return OfPole(x, y, 1.0, 71.0, 0.0); }   // EPSG:3995
Place OfSouth(double x, double y) { return OfPole(x, y, -1.0, 71.0, 0.0); }   // EPSG:3031

/// Universal transverse Mercator (Krueger 1912 to the third order, as Karney 2011 writes it).
Place OfZone(double easting, double northing, double meridian) {
  const double n = kFlattening / (2.0 - kFlattening);
  const double radius = kAxis / (1.0 + n) * (1.0 + n * n / 4.0 + n * n * n * n / 64.0);
  const double beta[] = {n / 2.0 - 2.0 * n * n / 3.0 + 37.0 * n * n * n / 96.0, n * n / 48.0 + n * n * n / 15.0,
                         17.0 * n * n * n / 480.0};
  const double xi = northing / (0.9996 * radius);
  const double eta = (easting - 500000.0) / (0.9996 * radius);
  double xiPrime = xi;
  double etaPrime = eta;
  for (int j = 1; j <= 3; ++j) {
    xiPrime -= beta[j - 1] * std::sin(2.0 * j * xi) * std::cosh(2.0 * j * eta);
    etaPrime -= beta[j - 1] * std::cos(2.0 * j * xi) * std::sinh(2.0 * j * eta);
  }
  // Of the conformal latitude.
  const double chi = std::asin(std::sin(xiPrime) / std::cosh(etaPrime));
  const double turned = std::atan2(std::sinh(etaPrime), std::cos(xiPrime));
  return {meridian + turned / kDegree, LatitudeOf(std::tan(45.0 * kDegree - chi / 2.0))};
}
Place OfZone60(double x, double y) { return OfZone(x, y, 177.0); }
Place OfZone1(double x, double y) { return OfZone(x, y, -177.0); }

struct Map {
  int epsg;
  Place (*placeOf)(double, double);
};
constexpr Map kDegrees{4326, Degrees};
constexpr Map kPacific{3832, OfPacific};
constexpr Map kNorthern{3413, OfNorth};
constexpr Map kArctic{3995, OfArctic};
constexpr Map kSouthern{3031, OfSouth};
constexpr Map kZone60{32660, OfZone60};
constexpr Map kZone1{32601, OfZone1};

struct Grid {
  Map map;
  int width;
  int height;
  double left;
  double top;
  double pixel;
  double pixelHeight = 0.0;  ///< 0: as wide
};

/// What the ground shows, band by band.
using Ground = std::function<double(int band, const Place& place)>;

/// Around a place on the date line: even slopes.
Ground SlopesAround(double latitude) {
  return [latitude](int band, const Place& place) {
    double east = std::fmod(place.longitude - 180.0, 360.0);
    if (east > 180.0) east -= 360.0;
    if (east < -180.0) east += 360.0;
    return band == 0 ? 1000.0 + 4000.0 * east : 1000.0 + 4000.0 * (place.latitude - latitude);
  };
}

/// Around a pole: even slopes on a map that has it in the middle.
double AroundPole(int band, const Place& place) {
  const double far = 4000.0 * (90.0 - std::fabs(place.latitude));
  return 1000.0 + far * (band == 0 ? std::cos(place.longitude * kDegree) : std::sin(place.longitude * kDegree));
}

class FarPlaces : public testing::Test {
 protected:
  /// @param at where in a pixel
  static Image Show(const Grid& grid, int bands, const Ground& ground, double at = 0.5) {
    Image image;
    image.width = grid.width;
    image.height = grid.height;
    const double height = grid.pixelHeight > 0.0 ? grid.pixelHeight : grid.pixel;
    const double geo[] = {grid.left, grid.pixel, 0.0, grid.top, 0.0, -height};
    std::copy(std::begin(geo), std::end(geo), image.geoTransform);
    for (int b = 0; b < bands; ++b) {
      image.bands.emplace_back();
      for (int y = 0; y < grid.height; ++y) {
        for (int x = 0; x < grid.width; ++x) {
          image.bands.back().push_back(
              ground(b, grid.map.placeOf(grid.left + (x + at) * grid.pixel, grid.top - (y + at) * height)));
        }
      }
    }
    return image;
  }

  /// A raw product with a pan image of ones: the bands, resampled onto it.
  void Expect(const char* what, const Grid& pan, const Grid& ms, const Ground& ground, double tolerance) {
    SCOPED_TRACE(what);
    const Image ones = Show(pan, 1, [](int, const Place&) { return 1.0; });
    test_support::WriteImage(ones, m_folder.WidePath("pan.tif"), PDT_FLOAT64, WktOfEpsg(pan.map.epsg));
    test_support::WriteImage(Show(ms, 2, ground), m_folder.WidePath("ms.tif"), PDT_FLOAT64, WktOfEpsg(ms.map.epsg));
    const std::string before = test_support::FileBytes(m_folder.Path("ms.tif"));
    fusion::FuseRequest request;
    request.pan = m_folder.Path("pan.tif");
    request.ms = m_folder.Path("ms.tif");
    request.out = m_folder.Path("out.tif");
    request.method = "multiplicative";
    request.spectralMatch = "off";
    request.resample = "bilinear";
    request.type = "float64";
    request.noDataMask = "off";
    request.overwrite = true;
    try {
      fusion::Fuse(request);
    } catch (const fusion::RunFailure& failure) {
      ADD_FAILURE() << failure.what();
      return;
    }
    EXPECT_TRUE(test_support::FileBytes(m_folder.Path("ms.tif")) == before);
    const Image out = test_support::ReadImage(m_folder.WidePath("out.tif"));
    ASSERT_EQ(out.width, pan.width);
    ASSERT_EQ(out.height, pan.height);
    // As the methods are published: in another system positions are those of the pixels' upper left corners.
    const Image expected = Show(pan, 2, ground, pan.map.epsg == ms.map.epsg ? 0.5 : 0.0);
    for (std::size_t b = 0; b < 2; ++b) {
      double worst = 0.0;
      double least = expected.bands[b][0];
      double most = least;
      for (std::size_t i = 0; i < out.bands[b].size(); ++i) {
        worst = std::max(worst, std::fabs(out.bands[b][i] - expected.bands[b][i]));
        least = std::min(least, expected.bands[b][i]);
        most = std::max(most, expected.bands[b][i]);
      }
      EXPECT_LE(worst, tolerance) << "band " << b;
      // What does not vary tells nothing.
      EXPECT_GT(most - least, 20.0 * tolerance) << "band " << b;
      std::cout << what << ", band " << b << ": " << least << " to " << most << ", at most " << worst << " beside it\n";
    }
  }

  test_support::TemporaryFolder m_folder;
};

TEST_F(FarPlaces, AcrossTheDateLineShowWhatIsThere) {
  const Ground ground = SlopesAround(-17.0);
  // A quarter of a degree around 180 degrees, 17 degrees south, in half a degree of the multispectral image.
  const Grid degrees{kDegrees, 100, 100, 179.875, -16.875, 0.0025};
  const Grid pacific{kPacific, 100, 100, 3325700.0, -1894000.0, 280.0};
  Expect("degrees, beyond 180", degrees, {kDegrees, 50, 50, 179.75, -16.75, 0.01}, ground, 1e-6);
  Expect("the Pacific over degrees", pacific, {kDegrees, 50, 50, 179.75, -16.75, 0.01}, ground, 0.5);
  Expect("the Pacific over another turn", pacific, {kDegrees, 50, 50, -180.25, -16.75, 0.01}, ground, 0.5);
  const Grid around{kPacific, 60, 60, 3306000.0, -1874000.0, 1120.0};
  Expect("degrees over the Pacific", degrees, around, ground, 0.5);
  Grid west = degrees;
  west.left -= 360.0;
  Expect("another turn over the Pacific", west, around, ground, 0.5);
}

TEST_F(FarPlaces, OfAnotherTurnOfTheSameDegreesHaveNoCommonGround) {
  const Ground ground = SlopesAround(-17.0);
  const Grid pan{kDegrees, 100, 100, 179.875, -16.875, 0.0025};
  const Grid ms{kDegrees, 50, 50, -180.25, -16.75, 0.01};
  const std::string wkt = WktOfEpsg(4326);
  test_support::WriteImage(Show(pan, 1, ground), m_folder.WidePath("pan.tif"), PDT_FLOAT64, wkt);
  test_support::WriteImage(Show(ms, 2, ground), m_folder.WidePath("ms.tif"), PDT_FLOAT64, wkt);
  fusion::FuseRequest request;
  request.pan = m_folder.Path("pan.tif");
  request.ms = m_folder.Path("ms.tif");
  request.out = m_folder.Path("out.tif");
  try {
    fusion::Fuse(request);
    ADD_FAILURE() << "fused";
  } catch (const fusion::RunFailure& failure) {
    EXPECT_EQ(failure.Sentence(),
              "The images have no common ground, or the window or the area of interest lies outside it.");
  }
  EXPECT_EQ(m_folder.Names(), (std::vector<std::string>{"ms.tif", "pan.tif"}));
}

TEST_F(FarPlaces, InZonesOnBothSidesOfTheDateLineShowWhatIsThere) {
  const Ground ground = SlopesAround(60.0);
  // The line runs through the middle of them, at 667300 m of zone 60 and 332700 m of zone 1.
  const Grid zone60{kZone60, 140, 100, 660000.0, 6655000.0, 100.0};
  Expect("zone 60 over zone 1", zone60, {kZone1, 60, 60, 322000.0, 6659000.0, 400.0}, ground, 0.5);
  Expect("zone 60 over degrees", zone60, {kDegrees, 60, 30, 179.8, 60.05, 0.01}, ground, 0.5);
  const Grid zone1{kZone1, 140, 100, 326000.0, 6655000.0, 100.0};
  Expect("zone 1 over zone 60", zone1, {kZone60, 60, 60, 654000.0, 6659000.0, 400.0}, ground, 0.5);
}

TEST_F(FarPlaces, AtAPoleShowWhatIsThere) {
  const Grid north{kNorthern, 64, 64, -3200.0, 3200.0, 100.0};
  Expect("north over another map", north, {kArctic, 40, 40, -8000.0, 8000.0, 400.0}, AroundPole, 0.1);
  // Half a row at the pole, and half a column at 180 degrees, have no neighbours beyond.
  Expect("north over degrees", north, {kDegrees, 360, 60, -180.0, 90.0, 1.0, 0.001}, AroundPole, 3.0);
  const Grid south{kSouthern, 64, 64, -3200.0, 3200.0, 100.0};
  Expect("south over degrees", south, {kDegrees, 360, 60, -180.0, -89.94, 1.0, 0.001}, AroundPole, 3.0);
  Expect("south over itself", south, {kSouthern, 40, 40, -8000.0, 8000.0, 400.0}, AroundPole, 0.1);
}

}  // namespace
