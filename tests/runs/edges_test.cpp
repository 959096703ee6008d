// The edges of a run's result.
#include <gtest/gtest.h>

#include <cmath>

#include "runs/methods.h"
#include "tests/support/run_scene.h"

namespace {

/// A scene whose lower half is the same everywhere, in colours of its own.
class Edges : public test_support::RunScene {
 protected:
  void SetUp() override {
    RunScene::SetUp();
    reference::Image pan = Read("pan.tif");
    reference::Image ms = Read("ms.tif");
    std::fill(pan.bands[0].begin() + 40 * 20, pan.bands[0].end(), 480.0);
    for (std::size_t b = 0; b < 4; ++b) {
      std::fill(ms.bands[b].begin() + 20 * 10, ms.bands[b].end(), 300.0 + 200.0 * static_cast<double>(b));
    }
    test_support::WriteImage(pan, m_folder.WidePath("pan.tif"), PDT_UINT16);
    test_support::WriteImage(ms, m_folder.WidePath("ms.tif"), PDT_UINT16);
  }
  /// By how much the rows of the lower end differ from one farther up, as a share of it.
  double Unevenness(const fusion::FuseRequest& request) const {
    EXPECT_NO_THROW(fusion::Fuse(request)) << request.method;
    const reference::Image out = Read("out.tif");
    double most = 0.0;
    for (const auto& band : out.bands) {
      const double inside = band[40 * 31 + 20];
      for (std::size_t i = 40 * 32; i < 1600; ++i) most = std::max(most, std::fabs(band[i] / inside - 1.0));
    }
    return most;
  }
};

TEST_F(Edges, NoMethodDrawsALineAlongTheBottom) {
  for (const auto& method : fusion::Methods()) {
    auto request = Request(method.name);
    request.overwrite = true;
    EXPECT_LT(Unevenness(request), 0.002) << method.name << ", which is a rounded sample";
    request.edges = "off";
    // Which would cut some of it.
    if (method.isRatio) request.resample = "bicubic";
    const double without = Unevenness(request);
    // What dims all bands alike leaves the share of each as it is.
    const bool takesShares = std::string(method.name) == "brovey";
    EXPECT_EQ(without > 0.01, !takesShares) << method.name << ": the scene cannot tell";
  }
}

}  // namespace
