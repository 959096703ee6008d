// A window's result is a crop of the whole result, byte for byte.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <random>

#include "runs/fuse.h"
#include "tests/support/command.h"
#include "tests/support/scene.h"

namespace {

using reference::Image;
using test_support::Scene;
using test_support::SceneOptions;

/// A method with what it is run with.
struct Case {
  std::string name;
  std::function<void(fusion::FuseRequest&)> choose;
};

std::vector<Case> Cases() {
  const auto method = [](const char* name, const std::function<void(fusion::FuseRequest&)>& more = {}) {
    return [=](fusion::FuseRequest& o) {
      o.method = name;
      if (more) more(o);
    };
  };
  const auto raw = [](fusion::FuseRequest& o) { o.spectralMatch = "off"; };
  const auto floats = [](fusion::FuseRequest& o) { o.type = "float32"; };
  const auto level = [](fusion::FuseRequest& o) { o.autoLevel = true; };
  return {
      {"bayesian", method("bayesian", floats)},
      {"brovey", method("brovey")},
      {"brovey, float", method("brovey", floats)},
      {"brovey, raw", method("brovey",
                             [](fusion::FuseRequest& o) {
                               o.spectralMatch = "off";
                               o.type = "float64";
                             })},
      {"multiplicative", method("multiplicative")},
      {"multiplicative, double", method("multiplicative", [](fusion::FuseRequest& o) { o.type = "float64"; })},
      {"multiplicative, raw", method("multiplicative", raw)},
      {"weighted", method("weighted")},
      {"weighted, raw", method("weighted",
                               [](fusion::FuseRequest& o) {
                                 o.spectralMatch = "off";
                                 o.type = "float64";
                               })},
      {"brovey, raw and stretched", method("brovey",
                                           [](fusion::FuseRequest& o) {
                                             o.spectralMatch = "off";
                                             o.stretch = true;
                                           })},
      {"ihs", method("ihs")},
      {"ihs, raw", method("ihs", raw)},
      {"pca", method("pca", floats)},
      {"hpf", method("hpf")},
      {"hpf, levelled", method("hpf", level)},
      {"hpf, green mix and second kernel", method("hpf",
                                                  [](fusion::FuseRequest& o) {
                                                    o.makeGreen = true;
                                                    o.secondKernelSize = 5;
                                                  })},
      {"sharpen", method("sharpen")},
      {"sharpen, raw", method("sharpen", raw)},
      {"sharpen, levelled", method("sharpen", level)},
  };
}

class Window : public testing::Test {
 protected:
  void Write(const SceneOptions& given) {
    SceneOptions options = given;
    options.msBands = 4;
    m_scene = std::make_unique<Scene>(7, options);
    m_options.pan = Narrow(m_scene->panFile);
    m_options.ms = Narrow(m_scene->msFile);
    m_options.noOverviews = true;
    m_options.overwrite = true;
  }
  /// The pan image in metres, the multispectral one over the same ground in degrees.
  void WriteInTwoSystems() {
    SceneOptions options;
    options.panWidth = 60;
    options.panHeight = 50;
    options.panWkt = test_support::UtmWkt();
    Write(options);
    Image ms = m_scene->ms;
    ms.geoTransform[0] = -3.70810;
    ms.geoTransform[1] = 2.4e-4;
    ms.geoTransform[3] = 40.37860;
    ms.geoTransform[5] = -1.9e-4;
    test_support::WriteImage(ms, m_scene->msFile, PDT_UINT16, test_support::Wgs84Wkt());
  }
  /// An area of interest with corners in pixels of the pan image.
  void ChooseArea(reference::Position a, reference::Position b, reference::Position c) {
    const auto ground = [&](reference::Position pixel) {
      const auto& t = m_scene->pan.geoTransform;
      return reference::Position{t[0] + pixel.x * t[1], t[3] + pixel.y * t[5]};
    };
    const std::wstring area = L"/vsimem/window_area.csv";
    test_support::WriteTriangle(area, ground(a), ground(b), ground(c));
    m_options.aoi = Narrow(area);
  }
  static std::string Narrow(const std::wstring& path) { return {path.begin(), path.end()}; }

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

  test_support::TemporaryFolder m_folder;
  std::unique_ptr<Scene> m_scene;
  fusion::FuseRequest m_options;
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
