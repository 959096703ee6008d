// Images that rational polynomials place, as satellites' images are delivered: what comes out shows the ground where it
// says that it lies.
#include "tests/attacks/rational.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>

#include "platform/utility/common_fun.h"
#include "runs/fuse.h"
#include "tests/support/scene.h"

namespace {

using attacks::Carrier;
using reference::Image;

constexpr double kWest = -3.7;
constexpr double kNorth = 40.4;
constexpr double kPixel = 4e-5;  // of the bands, in degrees
constexpr int kSize = 40;        // likewise, in pixels
constexpr int kRatio = 4;

/// Even slopes eastwards and southwards: a hundred to a pixel of the bands.
double East(double longitude) { return 1000.0 + 100.0 * (longitude - kWest) / kPixel; }
double South(double latitude) { return 1000.0 + 100.0 * (kNorth - latitude) / kPixel; }

class RationalPlaces : public testing::TestWithParam<Carrier> {
 protected:
  static Image Show(int size, double pixel, int bands, const std::function<double(int, double, double)>& ground) {
    Image image;
    image.width = image.height = size;
    for (int b = 0; b < bands; ++b) {
      image.bands.emplace_back();
      for (int y = 0; y < size; ++y) {
        for (int x = 0; x < size; ++x) {
          image.bands.back().push_back(ground(b, kWest + (x + 0.5) * pixel, kNorth - (y + 0.5) * pixel));
        }
      }
    }
    return image;
  }
  void Write(const std::string& name, const Image& image, double pixel) {
    attacks::MakeUnplaced(m_folder, name, image);
    attacks::Give(m_folder, name, attacks::RationalOf(image.width, image.height, kWest, kNorth, pixel), GetParam());
  }
  /// A raw product of the two images.
  Image Product() {
    fusion::FuseRequest request;
    request.pan = m_folder.Path("pan.tif");
    request.ms = m_folder.Path("ms.tif");
    request.out = m_folder.Path("out.tif");
    request.method = "multiplicative";
    request.spectralMatch = "off";
    request.resample = "bilinear";
    request.type = "float64";
    fusion::Fuse(request);
    return test_support::ReadImage(m_folder.WidePath("out.tif"));
  }
  /// What was warped to the north by nearest samples lies half a pixel beside its place at the most.
  static void ExpectGround(const Image& out, double tolerance) {
    ASSERT_EQ(out.bands.size(), 2U);
    EXPECT_NEAR(out.geoTransform[0], kWest, kPixel);
    EXPECT_NEAR(out.geoTransform[3], kNorth, kPixel);
    int seen = 0;
    double worst = 0.0;
    for (int y = 0; y < out.height; ++y) {
      for (int x = 0; x < out.width; ++x) {
        const auto i = static_cast<std::size_t>(y) * static_cast<std::size_t>(out.width) + static_cast<std::size_t>(x);
        if (out.bands[0][i] == 0.0) continue;
        ++seen;
        const double longitude = out.geoTransform[0] + (x + 0.5) * out.geoTransform[1];
        const double latitude = out.geoTransform[3] + (y + 0.5) * out.geoTransform[5];
        worst = std::max(
            {worst, std::fabs(out.bands[0][i] - East(longitude)), std::fabs(out.bands[1][i] - South(latitude))});
      }
    }
    EXPECT_LE(worst, tolerance);
    EXPECT_GE(seen, 0.9 * kSize * kSize * kRatio * kRatio);
  }

  test_support::TemporaryFolder m_folder;
};

TEST_P(RationalPlaces, AreThoseOfBothImages) {
  const auto ground = [](int b, double longitude, double latitude) {
    return b == 0 ? East(longitude) : South(latitude);
  };
  Write("pan.tif", Show(kSize * kRatio, kPixel / kRatio, 1, [](int, double, double) { return 1.0; }), kPixel / kRatio);
  Write("ms.tif", Show(kSize, kPixel, 2, ground), kPixel);
  const std::string before = test_support::FileBytes(m_folder.Path("ms.tif"));
  const auto names = m_folder.Names();
  ExpectGround(Product(), 100.0);
  EXPECT_TRUE(test_support::FileBytes(m_folder.Path("ms.tif")) == before);
  EXPECT_EQ(m_folder.Names().size(), names.size() + 1);
}

TEST_P(RationalPlaces, AreThoseOfPan) {
  // A product of a slope in one direction with bands that do not change, the directions in turn.
  Image both;
  for (const bool east : {true, false}) {
    const auto ground = [east](int, double longitude, double latitude) {
      return east ? East(longitude) : South(latitude);
    };
    Write("pan.tif", Show(kSize * kRatio, kPixel / kRatio, 1, ground), kPixel / kRatio);
    Write("ms.tif", Show(kSize, kPixel, 2, [](int, double, double) { return 1.0; }), kPixel);
    Image out = Product();
    if (east) {
      both = out;
      both.bands.resize(1);
    } else {
      both.bands.push_back(out.bands[0]);
    }
    std::filesystem::remove(CommonFun::ToPath(m_folder.WidePath("out.tif")));
  }
  ExpectGround(both, 100.0 / kRatio);
}

std::string NameOfCarrier(const testing::TestParamInfo<Carrier>& carrier) {
  if (carrier.param == Carrier::kTag) return "tag";
  return carrier.param == Carrier::kRpb ? "rpb" : "text";
}

INSTANTIATE_TEST_SUITE_P(Carriers, RationalPlaces, testing::ValuesIn(attacks::kCarriers), NameOfCarrier);

}  // namespace
