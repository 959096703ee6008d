// Runs in this process: their figures by independent formulas.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

#include "platform/raster/raster_source.h"
#include "tests/support/run_scene.h"

namespace {

using reference::Image;

class FuseRunTest : public test_support::RunScene {
 protected:
  Image Fused(const fusion::FuseRequest& request, const std::string& out = "out.tif") const {
    EXPECT_NO_THROW(fusion::Fuse(request));
    return Read(out);
  }
};

struct Moments {
  double mean;
  double deviation;
};

Moments MomentsOf(const std::vector<double>& values) {
  double sum = 0.0;
  for (const double v : values) sum += v;
  const double mean = sum / static_cast<double>(values.size());
  double squares = 0.0;
  for (const double v : values) squares += (v - mean) * (v - mean);
  return {mean, std::sqrt(squares / static_cast<double>(values.size()))};
}

TEST_F(FuseRunTest, RawBroveyIsTheBandsShareOfPan) {
  auto options = Request("brovey");
  options.spectralMatch = "off";
  options.resample = "nearest";
  options.type = "float64";
  const Image fused = Fused(options);
  const Image pan = Read("pan.tif");
  const Image ms = Read("ms.tif");
  // With a ratio of 2 a pan pixel's centre stands a quarter pixel from the centre of the one it lies in.
  for (std::size_t y = 0; y < 40; ++y) {
    for (std::size_t x = 0; x < 40; ++x) {
      const std::size_t k = y / 2 * 20 + x / 2;
      const double sum = ms.bands[0][k] + ms.bands[1][k] + ms.bands[2][k] + ms.bands[3][k];
      for (std::size_t b = 0; b < 4; ++b) {
        ASSERT_NEAR(fused.bands[b][y * 40 + x], ms.bands[b][k] * pan.bands[0][y * 40 + x] / sum, 1e-9);
      }
    }
  }
}

TEST_F(FuseRunTest, MatchingStretchesTheRawFloatResultToTheBandsFigures) {
  const Image ms = Read("ms.tif");
  for (const std::string method : {"brovey", "multiplicative", "weighted", "ihs", "sharpen"}) {
    auto raw = Request(method, "raw.tif");
    raw.spectralMatch = "off";
    raw.type = "float32";
    raw.overwrite = true;
    const Image unmatched = Fused(raw, "raw.tif");
    for (const std::string type : {"uint16", "float32"}) {
      auto matched = Request(method);
      if (method == "multiplicative") matched.productRoot = "off";
      matched.type = type;
      matched.overwrite = true;
      const Image fused = Fused(matched);
      for (std::size_t b = 0; b < 4; ++b) {
        const Moments from = MomentsOf(unmatched.bands[b]);
        const Moments to = MomentsOf(ms.bands[b]);
        for (std::size_t i = 0; i < fused.bands[b].size(); ++i) {
          const double v = (unmatched.bands[b][i] - from.mean) / from.deviation * to.deviation + to.mean;
          const double tolerance = type == "uint16" ? 0.5 + 1e-6 : 1e-3;
          ASSERT_NEAR(fused.bands[b][i], std::max(v, type == "uint16" ? 0.0 : v), tolerance) << method << type << b;
        }
      }
    }
  }
}

TEST_F(FuseRunTest, ChosenBandsAreTheirPlacesInTheOutput) {
  for (const std::string method : {"bayesian", "brovey", "pca", "hpf", "sharpen"}) {
    auto options = Request(method, "some.tif");
    options.bands = {4, 2};
    options.overwrite = true;
    const Image some = Fused(options, "some.tif");
    // The same choice made beforehand, in a file of its own.
    Image chosen = Read("ms.tif");
    chosen.bands = {chosen.bands[3], chosen.bands[1]};
    test_support::WriteImage(chosen, m_folder.WidePath("chosen.tif"), PDT_UINT16);
    auto all = Request(method, "all.tif");
    all.ms = m_folder.Path("chosen.tif");
    all.overwrite = true;
    EXPECT_TRUE(some.bands == Fused(all, "all.tif").bands) << method;
  }
}

TEST_F(FuseRunTest, TheGreenMixGoesByTheOrderOfTheChosenBands) {
  for (const std::string method : {"brovey", "hpf", "sharpen"}) {
    auto options = Request(method, "some.tif");
    options.bands = {4, 3, 2, 1};
    options.makeGreen = true;
    options.overwrite = true;
    const Image some = Fused(options, "some.tif");
    Image chosen = Read("ms.tif");
    std::reverse(chosen.bands.begin(), chosen.bands.end());
    test_support::WriteImage(chosen, m_folder.WidePath("chosen.tif"), PDT_UINT16);
    auto all = Request(method, "all.tif");
    all.ms = m_folder.Path("chosen.tif");
    all.makeGreen = true;
    all.overwrite = true;
    EXPECT_TRUE(some.bands == Fused(all, "all.tif").bands) << method;
  }
}

TEST_F(FuseRunTest, AnotherPanBandIsTheSameAsAFileOfItsOwn) {
  Image two = Read("pan.tif");
  two.bands.insert(two.bands.begin(), std::vector<double>(1600, 5.0));
  test_support::WriteImage(two, m_folder.WidePath("two.tif"), PDT_UINT16);
  for (const std::string method : {"bayesian", "brovey", "hpf", "sharpen"}) {
    auto options = Request(method);
    options.overwrite = true;
    const auto expected = Fused(options).bands;
    options.pan = m_folder.Path("two.tif");
    options.panBand = 2;
    EXPECT_TRUE(Fused(options).bands == expected) << method;
  }
}

TEST_F(FuseRunTest, OptionsOfTheMethodsArrive) {
  const auto bands = [&](const std::function<void(fusion::FuseRequest&)>& give, const std::string& method) {
    auto options = Request(method);
    options.overwrite = true;
    give(options);
    return Fused(options).bands;
  };
  const auto differ = [&](const std::string& method, const std::function<void(fusion::FuseRequest&)>& give) {
    return bands([](auto&) {}, method) != bands(give, method);
  };
  EXPECT_TRUE(differ("hpf", [](auto& o) { o.kernelSize = 11; }));
  EXPECT_FALSE(differ("hpf", [](auto& o) { o.kernelSize = 5; })) << "a ratio of 2 gives 5";
  EXPECT_TRUE(differ("hpf", [](auto& o) { o.secondKernelSize = 3; }));
  EXPECT_TRUE(differ("hpf", [](auto& o) { o.secondDetailWeight = 0.5; }));
  EXPECT_TRUE(differ("hpf", [](auto& o) { o.detailWeight = 0.1; }));
  EXPECT_TRUE(differ("hpf", [](auto& o) { o.makeGreen = true; }));
  EXPECT_TRUE(differ("hpf", [](auto& o) { o.autoLevel = true; }));
  EXPECT_TRUE(differ("sharpen", [](auto& o) { o.autoLevel = true; }));
  EXPECT_TRUE(differ("bayesian", [](auto& o) { o.bayesWeight = 0.9; }));
  EXPECT_FALSE(differ("bayesian", [](auto& o) { o.bayesWeight = 0.5; }));
  EXPECT_TRUE(differ("ihs", [](auto& o) { o.rgb = {1, 2, 4}; }));
  EXPECT_FALSE(differ("ihs", [](auto& o) { o.rgb = {3, 2, 1}; })) << "the default for four bands";
  EXPECT_TRUE(differ("brovey", [](auto& o) { o.makeGreen = true; }));
  EXPECT_TRUE(differ("pca", [](auto& o) { o.stretch = true; }));
}

TEST_F(FuseRunTest, DefaultTypes) {
  const auto type = [&](const std::string& method, bool raw) {
    auto options = Request(method);
    options.overwrite = true;
    if (raw) options.spectralMatch = "off";
    EXPECT_NO_THROW(fusion::Fuse(options));
    CRasterSource source;
    EXPECT_TRUE(source.OpenSimple(m_folder.WidePath("out.tif")));
    return source.GetRasterDataType();
  };
  EXPECT_EQ(type("brovey", true), PDT_UINT16);
  EXPECT_EQ(type("multiplicative", false), PDT_UINT16);
  EXPECT_EQ(type("multiplicative", true), PDT_FLOAT32);
  EXPECT_EQ(type("hpf", false), PDT_UINT16);
}

}  // namespace
