// What keeps runs from pictures that nobody would use, and how it is switched off.
#include "runs/guards.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

#include "platform/utility/common_fun.h"
#include "runs/methods.h"
#include "runs/options.h"
#include "tests/support/all_methods.h"
#include "tests/support/run_scene.h"
#include "tests/support/test_raster.h"

namespace {

using fusion::FuseRequest;
using reference::Image;

double Quantile(std::vector<double> values, double share) {
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

/// How far the middle of the values reaches.
double Spread(const std::vector<double>& values) { return Quantile(values, 0.95) - Quantile(values, 0.05); }

double MeanOf(const std::vector<double>& values) {
  double sum = 0.0;
  for (const double v : values) sum += v;
  return sum / static_cast<double>(values.size());
}

class GuardsTest : public test_support::RunScene {
 protected:
  fusion::FuseReport Fuse(FuseRequest request, Image& out) const {
    request.overwrite = true;
    fusion::FuseReport report;
    EXPECT_NO_THROW(report = fusion::Fuse(request)) << request.method;
    out = Read("out.tif");
    return report;
  }
  /// A dark scene with single bright roofs, beside which bicubic swings below nothing.
  void WriteDarkScene() const {
    Image pan = Read("pan.tif");
    Image ms = Read("ms.tif");
    for (std::size_t k = 0; k < 400; ++k) {
      const bool isRoof = k / 20 % 5 == 2 && k % 20 % 5 == 2;
      for (std::size_t b = 0; b < 4; ++b) {
        const double dark = 20.0 + std::fmod(ms.bands[b][k], 41.0);
        ms.bands[b][k] = isRoof ? 700.0 + 60.0 * static_cast<double>((k * (b + 3)) % 7) : dark;
      }
    }
    for (std::size_t i = 0; i < 1600; ++i) {
      const std::size_t k = i / 80 * 20 + i % 40 / 2;
      pan.bands[0][i] = std::floor((ms.bands[0][k] + ms.bands[1][k] + ms.bands[2][k] + ms.bands[3][k]) / 4.0);
    }
    test_support::WriteImage(pan, m_folder.WidePath("pan.tif"), PDT_UINT16);
    test_support::WriteImage(ms, m_folder.WidePath("ms.tif"), PDT_UINT16);
  }
  /// The least of the bands' spreads over those of the multispectral bands.
  double Contrast(const FuseRequest& request, std::size_t bands = 4) const {
    Image out;
    Fuse(request, out);
    const Image ms = Read("ms.tif");
    double least = INFINITY;
    for (std::size_t b = 0; b < bands; ++b) least = std::min(least, Spread(out.bands[b]) / Spread(ms.bands[b]));
    return least;
  }
};

TEST_F(GuardsTest, AsPublishedEveryMethodGivesTheBytesOfItsClass) {
  for (const auto& method : test_support::AllMethods()) {
    // The others are the same classes in other runs.
    if (!fusion::FindMethod(method.name)) continue;
    SCOPED_TRACE(method.name);
    for (const bool windowed : {false, true}) {
      // A window's model is estimated on its ground, which the class leaves to its caller.
      if (windowed && method.name == "bayesian") continue;
      auto request = Request(method.name);
      request.asPublished = true;
      if (windowed) request.window = {4, 6, 30, 25};
      Image out;
      const auto report = Fuse(request, out);
      EXPECT_TRUE(report.guards.empty());
      FusionParam param;
      param.m_strAlgName = L"published";
      param.m_strPanFile = m_folder.WidePath("pan.tif");
      param.m_strMSFile = m_folder.WidePath("ms.tif");
      param.m_strOutFile = m_folder.WidePath("class.tif");
      param.m_eOutDataType = method.name == "multiplicative" ? PDT_FLOAT32 : PDT_UINT16;
      if (windowed) param.m_rcProcess = CRect(4, 6, 34, 31);
      method.run(param);
      EXPECT_EQ(out.bands, Read("class.tif").bands);
    }
  }
}

TEST_F(GuardsTest, AsPublishedWhatIsAskedForIsDoneAllTheSame) {
  auto request = Request("brovey");
  request.asPublished = true;
  request.edges = "repeat";
  request.resample = "auto";
  request.spectralMatch = "on";
  request.matchMoments = "robust";
  Image out;
  EXPECT_EQ(Fuse(request, out).guards, (std::vector<std::string>{"edges", "resample", "match-moments"}));
  EXPECT_EQ(Fuse(Request("brovey"), out).guards, (std::vector<std::string>{"edges", "resample", "match-moments"}));
  EXPECT_EQ(Fuse(Request("pca"), out).guards, (std::vector<std::string>{"edges", "pca-match"}));
  EXPECT_EQ(Fuse(Request("weighted"), out).guards, (std::vector<std::string>{"edges", "match-moments", "keep-bands"}));
}

TEST_F(GuardsTest, RatiosOfADarkSceneKeepItsContrast) {
  const std::wstring folder = test_support::RealSceneFolder("wv2_rotterdam_r4");
  if (folder.empty()) GTEST_SKIP() << "no scene beside the checkout";
  const Image ms = test_support::ReadImage(folder + L"ms.tif");
  for (const auto& [method, bands] : {std::pair<std::string, std::size_t>{"brovey", 4}, {"ihs", 3}}) {
    auto request = Request(method);
    request.pan = CommonFun::U2Utf8(folder + L"pan.tif");
    request.ms = CommonFun::U2Utf8(folder + L"ms.tif");
    const auto leastContrast = [&, &bands = bands] {
      Image out;
      Fuse(request, out);
      double least = INFINITY;
      for (std::size_t b = 0; b < bands; ++b) least = std::min(least, Spread(out.bands[b]) / Spread(ms.bands[b]));
      return least;
    };
    EXPECT_GT(leastContrast(), 0.8) << method;
    request.matchMoments = "plain";
    EXPECT_GT(leastContrast(), 0.8) << method << ": the range alone";
    request.matchMoments = "robust";
    request.resample = "bicubic";
    EXPECT_GT(leastContrast(), 0.8) << method << ": the moments alone";
    request.matchMoments = "plain";
    EXPECT_LT(leastContrast(), 0.5) << method << ": the scene cannot tell";
  }
}

TEST_F(GuardsTest, RatiosStayWithinTheRangeOfTheSamples) {
  WriteDarkScene();
  for (const std::string method : {"brovey", "ihs", "sharpen"}) {
    auto request = Request(method);
    request.type = "float32";
    request.spectralMatch = "off";
    Image kept;
    Fuse(request, kept);
    request.resample = "bicubic";
    Image swinging;
    Fuse(request, swinging);
    EXPECT_NE(kept.bands, swinging.bands) << method;
    // Of shares of pan none is negative, and no other value is either.
    const auto least = [](const Image& image) {
      return *std::min_element(image.bands[0].begin(), image.bands[0].end());
    };
    EXPECT_GE(least(kept), 0.0) << method;
    EXPECT_EQ(least(swinging) < 0.0, method != "sharpen") << method;
  }
}

TEST_F(GuardsTest, MatchingIsNotDecidedBySingleValues) {
  // One pixel of pan in 1600 is a glint.
  Image pan = Read("pan.tif");
  pan.bands[0][700] = 65535.0;
  test_support::WriteImage(pan, m_folder.WidePath("pan.tif"), PDT_UINT16);
  for (const std::string method : {"brovey", "multiplicative", "weighted", "sharpen"}) {
    for (const std::string type : {"uint16", "float32"}) {
      auto request = Request(method);
      request.type = type;
      const double robust = Contrast(request);
      EXPECT_GT(robust, 0.55) << method << type;
      Image out;
      const auto told = [&] {
        const auto notices = Fuse(request, out).notices;
        return std::any_of(notices.begin(), notices.end(), [](const std::string& notice) {
          return notice.find("--match-moments plain") != std::string::npos;
        });
      };
      EXPECT_TRUE(told()) << method;
      request.matchMoments = "plain";
      EXPECT_LT(Contrast(request), 0.7 * robust) << method << type << ": the scene cannot tell";
      EXPECT_FALSE(told()) << method;
    }
  }
}

TEST_F(GuardsTest, ProductsAreSpreadAsTheBandsAre) {
  // A bright fifth: its products lie farther from the rest than bands and pan do.
  Image pan = Read("pan.tif");
  Image ms = Read("ms.tif");
  for (auto& band : ms.bands) {
    for (std::size_t k = 0; k < 400; ++k) band[k] = std::fmod(band[k], 100.0) + (k < 80 ? 6000.0 : 1000.0);
  }
  for (std::size_t i = 0; i < 1600; ++i) pan.bands[0][i] = ms.bands[0][i / 80 * 20 + i % 40 / 2];
  test_support::WriteImage(pan, m_folder.WidePath("pan.tif"), PDT_UINT16);
  test_support::WriteImage(ms, m_folder.WidePath("ms.tif"), PDT_UINT16);
  const auto darkPart = [](const Image& image) {
    // Well inside the dark four fifths.
    const auto& band = image.bands[1];
    const auto first = band.begin() + static_cast<std::ptrdiff_t>(band.size() / 4);
    return Spread({first, band.end()});
  };
  for (const std::string type : {"uint16", "float32"}) {
    auto request = Request("multiplicative");
    request.type = type;
    Image rooted;
    EXPECT_EQ(Fuse(request, rooted).guards.back(), "product-root");
    request.productRoot = "off";
    Image plain;
    Fuse(request, plain);
    EXPECT_GT(darkPart(rooted), 1.5 * darkPart(plain)) << type;
  }
}

TEST_F(GuardsTest, BandsWithSingleValuesAreTargetsWithoutThem) {
  Image ms = Read("ms.tif");
  ms.bands[1][210] = 65535.0;
  ms.bands[1][7] = 64000.0;
  // A tall scene, so that two samples are no permille.
  Image tall = ms;
  Image pan = Read("pan.tif");
  Image tallPan = pan;
  for (int i = 1; i < 12; ++i) {
    for (std::size_t b = 0; b < 4; ++b) {
      auto rest = Read("ms.tif").bands[b];
      tall.bands[b].insert(tall.bands[b].end(), rest.begin(), rest.end());
    }
    tallPan.bands[0].insert(tallPan.bands[0].end(), pan.bands[0].begin(), pan.bands[0].end());
  }
  tall.height *= 12;
  tallPan.height *= 12;
  test_support::WriteImage(tallPan, m_folder.WidePath("pan.tif"), PDT_UINT16);
  test_support::WriteImage(tall, m_folder.WidePath("ms.tif"), PDT_UINT16);
  auto request = Request("brovey");
  Image out;
  Fuse(request, out);
  EXPECT_NEAR(Spread(out.bands[1]) / Spread(tall.bands[1]), Spread(out.bands[0]) / Spread(tall.bands[0]), 0.2);
  request.matchMoments = "plain";
  request.resample = "bicubic";
  Fuse(request, out);
  EXPECT_GT(Spread(out.bands[1]) / Spread(tall.bands[1]), 1.5 * Spread(out.bands[0]) / Spread(tall.bands[0]));
}

TEST_F(GuardsTest, HpfGivesDetailNoMoreThanItsShareOfPan) {
  // Large forms, and hardly any detail.
  Image pan = Read("pan.tif");
  for (std::size_t i = 0; i < 1600; ++i)
    pan.bands[0][i] = (i < 800 ? 5000.0 : 1000.0) + std::fmod(pan.bands[0][i], 50.0);
  test_support::WriteImage(pan, m_folder.WidePath("pan.tif"), PDT_UINT16);
  Image capped;
  const auto report = Fuse(Request("hpf"), capped);
  EXPECT_EQ(report.guards, (std::vector<std::string>{"edges", "detail-cap"}));
  ASSERT_EQ(report.notices.size(), 1U);
  EXPECT_NE(report.notices[0].find("--detail-cap off"), std::string::npos) << report.notices[0];
  auto request = Request("hpf");
  request.detailWeight = 0.5;
  Image given;
  EXPECT_EQ(Fuse(request, given).guards, std::vector<std::string>{"edges"});
  request = Request("hpf");
  request.detailCap = "off";
  Image off;
  EXPECT_TRUE(Fuse(request, off).notices.empty());
  EXPECT_EQ(given.bands, off.bands);
  EXPECT_NE(capped.bands, off.bands);
}

TEST_F(GuardsTest, PcaKeepsTheBandsMeansWhateverTheScaleOfPan) {
  Image pan = Read("pan.tif");
  for (double& v : pan.bands[0]) v = 3000.0 + 7.0 * v;
  test_support::WriteImage(pan, m_folder.WidePath("pan.tif"), PDT_UINT16);
  const Image ms = Read("ms.tif");
  auto request = Request("pca");
  request.type = "float32";
  Image out;
  const auto notices = Fuse(request, out).notices;
  for (std::size_t b = 0; b < 4; ++b) EXPECT_NEAR(MeanOf(out.bands[b]) / MeanOf(ms.bands[b]), 1.0, 0.01);
  ASSERT_EQ(notices.size(), 1U);
  EXPECT_NE(notices[0].find("--pca-match off"), std::string::npos);
  request.pcaMatch = "off";
  EXPECT_TRUE(Fuse(request, out).notices.empty());
  EXPECT_GT(MeanOf(out.bands[0]), 2.0 * MeanOf(ms.bands[0])) << "the scene cannot tell";
}

TEST_F(GuardsTest, WeightedKeepsABandThatGoesAgainstPan) {
  Image ms = Read("ms.tif");
  const Image pan = Read("pan.tif");
  for (std::size_t k = 0; k < 400; ++k) ms.bands[2][k] = 2000.0 - pan.bands[0][k / 20 * 80 + k % 20 * 2];
  test_support::WriteImage(ms, m_folder.WidePath("ms.tif"), PDT_UINT16);
  auto request = Request("weighted");
  request.resample = "nearest";
  request.type = "float32";
  Image out;
  const auto notices = Fuse(request, out).notices;
  // Every sample stands for four pixels, so matching finds the band's own moments.
  for (std::size_t i = 0; i < 1600; ++i) {
    ASSERT_NEAR(out.bands[2][i], ms.bands[2][i / 80 * 20 + i % 40 / 2], 1e-2);
  }
  ASSERT_EQ(notices.size(), 1U);
  EXPECT_NE(notices[0].find("band 3 is kept as resampled"), std::string::npos) << notices[0];
  const auto others = out.bands;
  request.keepBands = "off";
  EXPECT_NE(Fuse(request, out).notices[0].find("band 3 comes out empty"), std::string::npos);
  EXPECT_TRUE(std::all_of(out.bands[2].begin(), out.bands[2].end(), [](double v) { return !(v > 0.0); }));
  for (const std::size_t b : {0U, 1U, 3U}) EXPECT_EQ(out.bands[b], others[b]);
}

TEST_F(GuardsTest, RobustMomentsOfALargeSceneAreThoseOfEvenlyLyingRows) {
  // Twice what is looked at: of every 16 rows the first or the last 8, which are darker than the others.
  constexpr int kWidth = 4096;
  constexpr int kHeight = 8192;
  const double grid[6] = {0.0, 20.0 / kWidth, 0.0, 0.0, 0.0, -20.0 / kHeight};
  CRasterSource pan;
  ASSERT_TRUE(pan.CreateRaster(kFormatGeoTiff, m_folder.WidePath("pan.tif"), kWidth, kHeight, 1, PDT_UINT8, grid, L"",
                               std::vector<std::string>{"BLOCKYSIZE=1"}));
  const auto isLookedAt = [](int y) {
    return (y % 16 >= 8) == (std::fmod(y / 16 * 0.6180339887498949, 1.0) >= 0.5);  // NOLINT(bugprone-integer-division)
  };
  std::vector<unsigned char> row(kWidth);
  for (int y = 0; y < kHeight; ++y) {
    for (std::size_t x = 0; x < row.size(); ++x) {
      row[x] = static_cast<unsigned char>((isLookedAt(y) ? 100 : 200) + (x % 2 == 0 ? 6 : -6));
    }
    ASSERT_EQ(pan.GetRasterBand(0)->WriteBlock(0, y, kWidth, 1, row.data(), kWidth, 1, PDT_UINT8), 0);
  }
  ASSERT_TRUE(pan.Close());
  Image ms = Read("ms.tif");
  ms.bands.resize(2);
  ms.bands[1] = ms.bands[0];
  ms.geoTransform[1] = 1.0;
  ms.geoTransform[5] = -1.0;
  test_support::WriteImage(ms, m_folder.WidePath("ms.tif"), PDT_UINT16);
  const double mean = MeanOf(ms.bands[0]);
  double squares = 0.0;
  for (const double v : ms.bands[0]) squares += (v - mean) * (v - mean);
  const double deviation = std::sqrt(squares / static_cast<double>(ms.bands[0].size()));
  // Of two like bands each gets half of pan.
  auto request = Request("brovey");
  request.type = "float64";
  request.window = {0, 0, 64, 64};
  Image out;
  Fuse(request, out);
  EXPECT_NEAR(out.bands[0][0], mean + deviation, 1e-6);
  EXPECT_NEAR(out.bands[1][1], mean - deviation, 1e-6);
  request.matchMoments = "plain";
  Fuse(request, out);
  EXPECT_NEAR(out.bands[0][0], mean - deviation * 44.0 / std::hypot(50.0, 6.0), 1e-6);
}

TEST_F(GuardsTest, AreRefusedWhereTheyHaveNoEffect) {
  const auto refusal = [&](const std::string& method, const std::string& option, const std::string& word) {
    auto request = Request(method);
    fusion::SetOption(request, option, word);
    try {
      fusion::Fuse(request);
    } catch (const fusion::RunFailure& failure) {
      EXPECT_EQ(failure.GetKind(), fusion::RunFailure::Kind::kWrongUsage);
      return std::string(failure.what());
    }
    return std::string();
  };
  EXPECT_NE(refusal("brovey", "edges", "mirror").find("--edges is repeat or off"), std::string::npos);
  EXPECT_NE(refusal("brovey", "match-moments", "some").find("--match-moments is robust or plain"), std::string::npos);
  EXPECT_NE(refusal("pca", "pca-match", "on").find("--pca-match is auto or off"), std::string::npos);
  EXPECT_NE(refusal("weighted", "keep-bands", "all").find("--keep-bands is auto or off"), std::string::npos);
  EXPECT_NE(refusal("brovey", "pca-match", "auto").find("taken by pca"), std::string::npos);
  EXPECT_NE(refusal("ihs", "keep-bands", "off").find("taken by weighted"), std::string::npos);
  EXPECT_NE(refusal("brovey", "product-root", "auto").find("taken by multiplicative"), std::string::npos);
  EXPECT_NE(refusal("pca", "match-moments", "robust").find("without spectral matching"), std::string::npos);
  EXPECT_NE(refusal("hpf", "resample", "bicubic"), "");
  EXPECT_NE(refusal("sharpen", "resample", "bilinear"), "");
  EXPECT_EQ(refusal("sharpen", "resample", "bicubic"), "");
}

}  // namespace
