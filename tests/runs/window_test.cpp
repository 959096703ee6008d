// A window's result is a crop of the whole result, byte for byte.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "runs/fuse.h"
#include "tests/support/part_scene.h"

namespace {

using reference::Image;
using test_support::Case;
using test_support::Cases;
using test_support::SceneOptions;

class Window : public test_support::PartScene {
 protected:
  Image Fuse(fusion::FuseRequest options, const std::string& out) const {
    options.out = m_folder.Path(out);
    EXPECT_NO_THROW(fusion::Fuse(options));
    return test_support::ReadImage(m_folder.WidePath(out));
  }

  /// Fuses the whole and three windows of it with every method.
  void ExpectCrops(unsigned seed, const std::vector<Case>& cases = Cases()) const {
    std::mt19937 random(seed);
    for (const Case& c : cases) {
      SCOPED_TRACE(c.name);
      fusion::FuseRequest options = m_options;
      c.choose(options);
      const Image whole = Fuse(options, "whole.tif");
      for (int i = 0; i < 3; ++i) {
        const auto between = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
        const int width = between(1, whole.width);
        const int height = between(1, whole.height);
        const int left = between(0, whole.width - width);
        const int top = between(0, whole.height - height);
        SCOPED_TRACE(testing::Message() << left << "," << top << "," << width << "," << height);
        options.window = {left + PanOffset(whole, 0), top + PanOffset(whole, 1), width, height};
        const Image part = Fuse(options, "part.tif");
        ASSERT_EQ(part.width, width);
        ASSERT_EQ(part.height, height);
        ASSERT_EQ(part.bands.size(), whole.bands.size());
        EXPECT_NEAR(part.geoTransform[0], whole.geoTransform[0] + left * whole.geoTransform[1], 1e-6);
        EXPECT_NEAR(part.geoTransform[3], whole.geoTransform[3] + top * whole.geoTransform[5], 1e-6);
        ExpectCrop(part, whole, left, top);
        if (HasFailure()) return;
      }
    }
  }

  static void ExpectCrop(const Image& part, const Image& whole, int left, int top) {
    for (std::size_t b = 0; b < part.bands.size(); ++b) {
      for (int y = 0; y < part.height; ++y) {
        for (int x = 0; x < part.width; ++x) {
          const double actual = part.bands[b][static_cast<std::size_t>(y * part.width + x)];
          const double expected = whole.bands[b][static_cast<std::size_t>((y + top) * whole.width + x + left)];
          ASSERT_TRUE(actual == expected || (std::isnan(actual) && std::isnan(expected)))
              << "band " << b << " at " << x << "," << y << ": " << actual << " instead of " << expected;
        }
      }
    }
  }

  /// Columns (axis 0) or rows (axis 1) of the pan image before an output.
  int PanOffset(const Image& output, int axis) const {
    const double* out = output.geoTransform + 3 * axis;
    const double* pan = m_scene->pan.geoTransform + 3 * axis;
    return static_cast<int>(std::lround((out[0] - pan[0]) / pan[1 + axis]));
  }
};

TEST_F(Window, IsACropOfTheWholeResultWithEveryMethod) {
  SceneOptions options;
  options.panWidth = 48;
  options.panHeight = 600;  // two blocks
  options.ratio = 2.37;
  Write(options);
  ExpectCrops(1);
}

TEST_F(Window, IsACropWhereTheImagesOverlapInPart) {
  SceneOptions options;
  options.panWidth = 60;
  options.panHeight = 50;
  options.msShiftX = 9.0;
  options.msShiftY = -7.0;
  options.msWidth = 20;
  options.msHeight = 18;
  Write(options);
  ExpectCrops(2);
}

TEST_F(Window, IsACropBetweenCoordinateSystems) {
  WriteInTwoSystems();
  ExpectCrops(3);
}

TEST_F(Window, IsACropBetweenCoordinateSystemsInsideAnAreaOfInterest) {
  WriteInTwoSystems();
  ChooseArea({20, 12}, {48, 17}, {26, 39});
  std::vector<Case> cases = Cases();
  std::erase_if(cases, [](const Case& c) { return c.name != "brovey, raw"; });
  ASSERT_EQ(cases.size(), 1U);
  ExpectCrops(5, cases);
}

TEST_F(Window, IsACropWithGapsAndAnAreaOfInterest) {
  SceneOptions options;
  options.panWidth = 60;
  options.panHeight = 50;
  options.panNoData = 0.0;
  options.msNoData = 0.0;
  Write(options);
  Image pan = m_scene->pan;
  for (std::size_t i = 0; i < pan.bands[0].size(); i += 7) pan.bands[0][i] = 0.0;
  test_support::WriteImage(pan, m_scene->panFile, PDT_UINT16, "", 0.0);
  ChooseArea({3, 2}, {55, 8}, {10, 47});
  ExpectCrops(4);
}

TEST_F(Window, HasStatisticsOfItsOwnOnRequest) {
  SceneOptions options;
  options.panWidth = 60;
  options.panHeight = 50;
  Write(options);
  fusion::FuseRequest fuse = m_options;
  fuse.method = "brovey";
  fuse.type = "float64";
  fuse.window = {5, 5, 20, 20};
  fuse.statistics = "window";
  const Image part = Fuse(fuse, "part.tif");
  // The moments of the window itself are the multispectral ones then.
  for (std::size_t b = 0; b < part.bands.size(); ++b) {
    const auto mean = [](const std::vector<double>& v) {
      double sum = 0.0;
      for (const double x : v) sum += x;
      return sum / static_cast<double>(v.size());
    };
    EXPECT_NEAR(mean(part.bands[b]), mean(m_scene->ms.bands[b]), 1e-6);
  }
}

TEST_F(Window, RefusesStatisticsOfAnythingElse) {
  Write({});
  fusion::FuseRequest fuse = m_options;
  fuse.method = "brovey";
  fuse.out = m_folder.Path("out.tif");
  fuse.statistics = "image";
  try {
    fusion::Fuse(fuse);
    FAIL() << "not refused";
  } catch (const fusion::RunFailure& failure) {
    EXPECT_EQ(failure.GetKind(), fusion::RunFailure::Kind::kWrongUsage);
  }
}

}  // namespace
