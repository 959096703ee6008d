#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "runs/fuse.h"
#include "tests/support/command.h"
#include "tests/support/scene.h"

namespace test_support {

using reference::Image;

/// A method with what it is run with.
struct Case {
  std::string name;
  std::function<void(fusion::FuseRequest&)> choose;
};

inline std::vector<Case> Cases() {
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

/// Scenes whose results are compared with parts of them that were made by themselves.
class PartScene : public testing::Test {
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
    options.panWkt = UtmWkt();
    Write(options);
    Image ms = m_scene->ms;
    ms.geoTransform[0] = -3.70810;
    ms.geoTransform[1] = 2.4e-4;
    ms.geoTransform[3] = 40.37860;
    ms.geoTransform[5] = -1.9e-4;
    WriteImage(ms, m_scene->msFile, PDT_UINT16, Wgs84Wkt());
  }
  /// An area of interest with corners in pixels of the pan image.
  void ChooseArea(reference::Position a, reference::Position b, reference::Position c) {
    const auto ground = [&](reference::Position pixel) {
      const auto& t = m_scene->pan.geoTransform;
      return reference::Position{t[0] + pixel.x * t[1], t[3] + pixel.y * t[5]};
    };
    const std::wstring area = L"/vsimem/part_area.csv";
    WriteTriangle(area, ground(a), ground(b), ground(c));
    m_options.aoi = Narrow(area);
  }
  static std::string Narrow(const std::wstring& path) { return {path.begin(), path.end()}; }

  TemporaryFolder m_folder;
  std::unique_ptr<Scene> m_scene;
  fusion::FuseRequest m_options;
};

}  // namespace test_support
