// The `fuse` run in this process: its figures by independent formulas, and failures injected at every turn.
#include "apps/fuse_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <functional>

#include "apps/exit_status.h"
#include "platform/raster/raster_fault.h"
#include "tests/support/command.h"
#include "tests/support/scene.h"

namespace {

using platform::RasterOperation;
using reference::Image;

class FuseRunTest : public testing::Test {
 protected:
  void SetUp() override {
    Image pan;
    Image ms;
    pan.width = pan.height = 40;
    ms.width = ms.height = 20;
    pan.geoTransform[1] = 1.0;
    ms.geoTransform[1] = 2.0;
    ms.geoTransform[5] = -2.0;
    unsigned state = 12345;
    const auto next = [&state] {
      state = state * 1664525U + 1013904223U;
      return static_cast<double>(100 + (state >> 16) % 900);
    };
    pan.bands.assign(1, std::vector<double>(1600));
    ms.bands.assign(4, std::vector<double>(400));
    for (auto& band : ms.bands) {
      for (auto& v : band) v = next();
    }
    // Correlated with every band, as a pan image is.
    for (std::size_t i = 0; i < 1600; ++i) {
      const std::size_t k = i / 80 * 20 + i % 40 / 2;
      for (const auto& band : ms.bands) pan.bands[0][i] += std::floor(band[k] / 5.0);
      pan.bands[0][i] += std::floor(next() / 10.0);
    }
    test_support::WriteImage(pan, m_folder.WidePath("pan.tif"), PDT_UINT16);
    test_support::WriteImage(ms, m_folder.WidePath("ms.tif"), PDT_UINT16);
  }
  void TearDown() override { platform::SetRasterFault({}); }

  app::FuseOptions Options(const std::string& method, const std::string& out = "out.tif") const {
    app::FuseOptions options;
    options.pan = m_folder.Path("pan.tif");
    options.ms = m_folder.Path("ms.tif");
    options.out = m_folder.Path(out);
    options.method = method;
    options.quiet = true;
    return options;
  }
  Image Fused(const app::FuseOptions& options, const std::string& out = "out.tif") const {
    EXPECT_EQ(app::RunFuse(options), app::kSuccess);
    return test_support::ReadImage(m_folder.WidePath(out));
  }
  Image Read(const std::string& name) const { return test_support::ReadImage(m_folder.WidePath(name)); }

  test_support::TemporaryFolder m_folder;
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
  auto options = Options("brovey");
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
    auto raw = Options(method, "raw.tif");
    raw.spectralMatch = "off";
    raw.type = "float32";
    raw.overwrite = true;
    const Image unmatched = Fused(raw, "raw.tif");
    for (const std::string type : {"uint16", "float32"}) {
      auto matched = Options(method);
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
    auto options = Options(method, "some.tif");
    options.bands = {4, 2};
    options.overwrite = true;
    const Image some = Fused(options, "some.tif");
    // The same choice made beforehand, in a file of its own.
    Image chosen = Read("ms.tif");
    chosen.bands = {chosen.bands[3], chosen.bands[1]};
    test_support::WriteImage(chosen, m_folder.WidePath("chosen.tif"), PDT_UINT16);
    auto all = Options(method, "all.tif");
    all.ms = m_folder.Path("chosen.tif");
    all.overwrite = true;
    EXPECT_TRUE(some.bands == Fused(all, "all.tif").bands) << method;
  }
}

TEST_F(FuseRunTest, TheGreenMixGoesByTheOrderOfTheChosenBands) {
  for (const std::string method : {"brovey", "hpf", "sharpen"}) {
    auto options = Options(method, "some.tif");
    options.bands = {4, 3, 2, 1};
    options.makeGreen = true;
    options.overwrite = true;
    const Image some = Fused(options, "some.tif");
    Image chosen = Read("ms.tif");
    std::reverse(chosen.bands.begin(), chosen.bands.end());
    test_support::WriteImage(chosen, m_folder.WidePath("chosen.tif"), PDT_UINT16);
    auto all = Options(method, "all.tif");
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
    auto options = Options(method);
    options.overwrite = true;
    const auto expected = Fused(options).bands;
    options.pan = m_folder.Path("two.tif");
    options.panBand = 2;
    EXPECT_TRUE(Fused(options).bands == expected) << method;
  }
}

TEST_F(FuseRunTest, OptionsOfTheMethodsArrive) {
  const auto bands = [&](const std::function<void(app::FuseOptions&)>& give, const std::string& method) {
    auto options = Options(method);
    options.overwrite = true;
    give(options);
    return Fused(options).bands;
  };
  const auto differ = [&](const std::string& method, const std::function<void(app::FuseOptions&)>& give) {
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
    auto options = Options(method);
    options.overwrite = true;
    if (raw) options.spectralMatch = "off";
    EXPECT_EQ(app::RunFuse(options), app::kSuccess);
    CRasterSource source;
    EXPECT_TRUE(source.OpenSimple(m_folder.WidePath("out.tif")));
    return source.GetRasterDataType();
  };
  EXPECT_EQ(type("brovey", true), PDT_UINT16);
  EXPECT_EQ(type("multiplicative", false), PDT_UINT16);
  EXPECT_EQ(type("multiplicative", true), PDT_FLOAT32);
  EXPECT_EQ(type("hpf", false), PDT_UINT16);
}

/// Runs with a failing operation, wherever it comes; the old output must stay as it was, with nothing beside it.
TEST_F(FuseRunTest, AFailureAnywhereLeavesTheOldOutputAndNothingElse) {
  for (const auto& method : app::Methods()) {
    auto options = Options(method.name);
    options.overwrite = true;
    ASSERT_EQ(app::RunFuse(options), app::kSuccess);
    std::string before = test_support::FileBytes(options.out);
    const auto names = m_folder.Names();
    for (const auto operation : {RasterOperation::kOpen, RasterOperation::kCreate, RasterOperation::kRead,
                                 RasterOperation::kWrite, RasterOperation::kClose, RasterOperation::kStore}) {
      for (int failing = 0; failing < 200; ++failing) {
        int count = 0;
        bool hit = false;
        platform::SetRasterFault([&](RasterOperation asked, const std::wstring&, int, const CRect&) {
          if (asked != operation || count++ != failing) return false;
          hit = true;
          return true;
        });
        testing::internal::CaptureStderr();
        const int status = app::RunFuse(options);
        const std::string said = testing::internal::GetCapturedStderr();
        platform::SetRasterFault({});
        if (!hit) {
          before = test_support::FileBytes(options.out);
          break;
        }
        // Not every failure ends a run: IHS goes on where a minimum cannot be had, overviews are left out.
        if (status == app::kSuccess) {
          before = test_support::FileBytes(options.out);
          continue;
        }
        EXPECT_EQ(status, app::kRunFailed) << method.name << " operation " << static_cast<int>(operation);
        EXPECT_THAT(said, testing::StartsWith("fusion: error ")) << method.name;
        EXPECT_TRUE(test_support::FileBytes(options.out) == before) << method.name;
        EXPECT_EQ(m_folder.Names(), names)
            << method.name << " operation " << static_cast<int>(operation) << ' ' << failing;
      }
    }
  }
}

TEST_F(FuseRunTest, CtrlCAnywhereLeavesTheOldOutputAndNothingElse) {
  for (const auto& method : app::Methods()) {
    auto options = Options(method.name);
    options.overwrite = true;
    ASSERT_EQ(app::RunFuse(options), app::kSuccess);
    std::string before = test_support::FileBytes(options.out);
    const auto names = m_folder.Names();
    for (int at = 0; at < 200; ++at) {
      int count = 0;
      platform::SetRasterFault([&](RasterOperation, const std::wstring&, int, const CRect&) {
        if (count++ == at) std::raise(SIGINT);
        return false;
      });
      testing::internal::CaptureStderr();
      const int status = app::RunFuse(options);
      const std::string said = testing::internal::GetCapturedStderr();
      platform::SetRasterFault({});
      if (count <= at) break;
      // An interrupt after the last question comes too late to cancel anything.
      if (status == app::kSuccess) {
        before = test_support::FileBytes(options.out);
        continue;
      }
      EXPECT_EQ(status, app::kCancelled) << method.name << ' ' << at;
      EXPECT_THAT(said, testing::HasSubstr("cancelled"));
      EXPECT_TRUE(test_support::FileBytes(options.out) == before) << method.name << ' ' << at;
      EXPECT_EQ(m_folder.Names(), names) << method.name << ' ' << at;
    }
  }
}

}  // namespace
