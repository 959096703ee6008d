// The picture of a fusion, against what it is drawn from.
#include "runs/quicklook.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <optional>

#include "platform/utility/common_fun.h"
#include "runs/picture.h"
#include "runs/reduced_image.h"
#include "tests/support/numbers.h"
#include "tests/support/run_scene.h"
#include "tests/support/seen_scene.h"

namespace {

using fusion::FuseRequest;
using fusion::NaturalColours;
using fusion::RunFailure;
using reference::Image;
using testing::ElementsAre;
using testing::HasSubstr;

using test_support::kNaN;
/// Panels begin 8 pixels from the edges, under 22 of title.
constexpr int kLeft = 8;
constexpr int kTop = 30;

/// From the 2nd to the 98th percentile.
struct Limits {
  explicit Limits(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const auto last = static_cast<double>(values.size() - 1);
    low = values[static_cast<std::size_t>(0.02 * last)];
    high = values[static_cast<std::size_t>(0.98 * last)];
  }
  double Shown(double v) const {
    return std::round(255.0 * std::pow(std::clamp((v - low) / (high - low), 0.0, 1.0), 0.7));
  }
  double low;
  double high;
};

double At(const Image& picture, std::size_t band, int x, int y) {
  return picture
      .bands[band][static_cast<std::size_t>(y) * static_cast<std::size_t>(picture.width) + static_cast<std::size_t>(x)];
}

class QuicklookTest : public test_support::RunScene {
 protected:
  FuseRequest Pictured(const std::string& method, const std::string& picture = "look.png") const {
    FuseRequest request = Request(method);
    request.quicklook = m_folder.Path(picture);
    return request;
  }
  /// A multispectral band under each pan pixel, bilinear, by hand: ratio 2, edges repeated.
  std::vector<double> Upsampled(std::size_t band) const {
    const Image ms = Read("ms.tif");
    const auto at = [&](int x, int y) {
      return ms.bands[band][static_cast<std::size_t>(std::clamp(y, 0, 19) * 20 + std::clamp(x, 0, 19))];
    };
    std::vector<double> values;
    for (int y = 0; y < 40; ++y) {
      for (int x = 0; x < 40; ++x) {
        // A quarter of a pixel before or behind a centre.
        const int besideX = x / 2 + (x % 2 == 0 ? -1 : 1);
        const int besideY = y / 2 + (y % 2 == 0 ? -1 : 1);
        values.push_back(0.75 * (0.75 * at(x / 2, y / 2) + 0.25 * at(besideX, y / 2)) +
                         0.25 * (0.75 * at(x / 2, besideY) + 0.25 * at(besideX, besideY)));
      }
    }
    return values;
  }
};

TEST_F(QuicklookTest, ShowsThreeImagesInTheStretchOfTheBands) {
  const fusion::FuseReport report = fusion::Fuse(Pictured("brovey"));
  const Image picture = Read("look.png");
  ASSERT_EQ(picture.bands.size(), 3U);
  // Each pixel of 40 as 12 x 12.
  ASSERT_EQ(picture.width, 3 * (480 + 8) + 8);
  ASSERT_EQ(picture.height, kTop + 480 + 8);
  const std::vector<double> pan = Read("pan.tif").bands[0];
  const Image fused = Read("out.tif");
  const Limits grey(pan);
  for (std::size_t colour = 0; colour < 3; ++colour) {
    // Of four bands, which begin with blue.
    const std::size_t band = 2 - colour;
    const std::vector<double> upsampled = Upsampled(band);
    const Limits limits(upsampled);
    for (int y = 0; y < 40; ++y) {
      for (int x = 0; x < 40; ++x) {
        const auto i = static_cast<std::size_t>(40 * y + x);
        const int atX = kLeft + 12 * x + 5;
        const int atY = kTop + 12 * y + 11;
        ASSERT_EQ(At(picture, colour, atX, atY), grey.Shown(pan[i]));
        ASSERT_NEAR(At(picture, colour, atX + 488, atY), limits.Shown(upsampled[i]), 1.0);
        ASSERT_NEAR(At(picture, colour, atX + 2 * 488, atY), limits.Shown(fused.bands[band][i]), 1.0);
      }
    }
  }
  // Titles are ink on paper.
  for (int i = 0; i < 3; ++i) {
    int ink = 0;
    for (int y = 8; y < 22; ++y) {
      for (int x = 0; x < 400; ++x) ink += At(picture, 1, kLeft + 488 * i + x, y) == 0.0;
    }
    EXPECT_GT(ink, 50);
  }
  EXPECT_THAT(m_folder.Names(), ElementsAre("look.png", "ms.tif", "out.tif", "pan.tif"));
}

TEST_F(QuicklookTest, AResultOnAnotherScaleHasAStretchOfItsOwn) {
  FuseRequest request = Pictured("brovey");
  request.spectralMatch = "off";
  request.stretch = true;
  fusion::Fuse(request);
  const Image picture = Read("look.png");
  const Image fused = Read("out.tif");
  const Limits limits(fused.bands[2]);
  for (int x = 0; x < 40; ++x) {
    EXPECT_EQ(At(picture, 0, kLeft + 2 * 488 + 12 * x, kTop),
              limits.Shown(fused.bands[2][static_cast<std::size_t>(x)]));
  }
}

TEST_F(QuicklookTest, TheDetailIsWherePanShowsMost) {
  // Flat ground with texture in one place, and more than 480 pixels.
  Image pan;
  Image ms;
  pan.width = 600;
  pan.height = 520;
  ms.width = 300;
  ms.height = 260;
  pan.geoTransform[1] = 1.0;
  ms.geoTransform[1] = 2.0;
  ms.geoTransform[5] = -2.0;
  pan.bands.assign(1, std::vector<double>(600 * 520, 500.0));
  ms.bands.assign(3, std::vector<double>(300 * 260, 400.0));
  unsigned state = 7;
  for (int y = 100; y < 340; ++y) {
    for (int x = 200; x < 440; ++x) {
      state = state * 1664525U + 1013904223U;
      pan.bands[0][static_cast<std::size_t>(600 * y + x)] = 300.0 + (state >> 16) % 400;
    }
  }
  for (std::size_t i = 0; i < ms.bands[0].size(); ++i) {
    for (auto& band : ms.bands) band[i] += static_cast<double>(i % 7);
  }
  test_support::WriteImage(pan, m_folder.WidePath("pan.tif"), PDT_UINT16);
  test_support::WriteImage(ms, m_folder.WidePath("ms.tif"), PDT_UINT16);
  fusion::Fuse(Pictured("brovey"));
  const Image picture = Read("look.png");
  // 480 x 416, and below it, under a title, 240 x 240 as 2 x 2.
  ASSERT_EQ(picture.width, 3 * (480 + 8) + 8);
  const int below = kTop + 416 + 8 + 22;
  ASSERT_EQ(picture.height, below + 480 + 8);
  std::vector<double> window;
  for (int y = 100; y < 340; ++y) {
    for (int x = 200; x < 440; ++x) window.push_back(pan.bands[0][static_cast<std::size_t>(600 * y + x)]);
  }
  const Limits limits(window);
  for (std::size_t i = 0; i < window.size(); i += 77) {
    const int x = static_cast<int>(i) % 240;
    const int y = static_cast<int>(i) / 240;
    ASSERT_EQ(At(picture, 1, kLeft + 2 * x + 1, below + 2 * y), limits.Shown(window[i])) << x << ' ' << y;
  }
  // Its frame in the whole image: 200 and 100 of 600 and 520 pixels, in 480 and 416.
  for (int panel = 0; panel < 3; ++panel) {
    EXPECT_EQ(At(picture, 0, kLeft + 488 * panel + 160, kTop + 80 + 50), 255.0);
    EXPECT_EQ(At(picture, 1, kLeft + 488 * panel + 160, kTop + 80 + 50), 220.0);
    EXPECT_EQ(At(picture, 2, kLeft + 488 * panel + 160, kTop + 80 + 50), 0.0);
  }
}

TEST_F(QuicklookTest, WhatHasNoDataIsPaper) {
  Image pan = Read("pan.tif");
  for (int y = 0; y < 40; ++y) {
    for (int x = 0; x < 10; ++x) pan.bands[0][static_cast<std::size_t>(40 * y + x)] = 0.0;
  }
  test_support::WriteImage(pan, m_folder.WidePath("pan.tif"), PDT_UINT16, "", 0.0);
  fusion::Fuse(Pictured("brovey"));
  const Image picture = Read("look.png");
  for (std::size_t band = 0; band < 3; ++band) {
    EXPECT_EQ(At(picture, band, kLeft + 12 * 4, kTop + 100), 255.0);
    EXPECT_EQ(At(picture, band, kLeft + 2 * 488 + 12 * 4, kTop + 100), 255.0);
  }
}

TEST_F(QuicklookTest, ShowsImagesOfOtherSystemsOnOneGround) {
  const test_support::SeenScene scene(5, {.degrees = true});
  FuseRequest request = Pictured("bayesian");
  request.pan = CommonFun::U2Utf8(scene.panFile);
  request.ms = CommonFun::U2Utf8(scene.msFile);
  fusion::Fuse(request);
  const Image picture = Read("look.png");
  // Upsampled and fused bands go together, on one ground and nowhere else.
  const int step = (picture.width - 8) / 3;
  const auto apart = [&](int move) {
    double sum = 0.0;
    for (int y = kTop + 40; y < kTop + 200; ++y) {
      for (int x = 40; x < 200; ++x) {
        sum += std::fabs(At(picture, 0, kLeft + step + x, y) - At(picture, 0, kLeft + 2 * step + x + move, y));
      }
    }
    return sum;
  };
  EXPECT_LT(apart(0), apart(3));
  EXPECT_LT(apart(0), apart(-3));
}

TEST_F(QuicklookTest, ReplacesNothingUnasked) {
  const auto refusal = [](const FuseRequest& request) {
    try {
      fusion::Fuse(request);
    } catch (const RunFailure& failure) {
      EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kWrongUsage) << failure.what();
      return failure.Sentence();
    }
    ADD_FAILURE() << "no refusal";
    return std::string();
  };
  EXPECT_THAT(refusal(Pictured("brovey", "look.tif")), HasSubstr("--quicklook writes a PNG"));
  FuseRequest same = Pictured("brovey", "out.png");
  same.out = m_folder.Path("out.png");
  same.bands = {1, 2, 3};
  EXPECT_THAT(refusal(same), HasSubstr("is a file of this run's images"));
  EXPECT_THAT(m_folder.Names(), ElementsAre("ms.tif", "pan.tif"));
  fusion::Fuse(Pictured("brovey"));
  const std::string before = test_support::FileBytes(m_folder.Path("look.png"));
  FuseRequest again = Pictured("hpf");
  again.out = m_folder.Path("other.tif");
  EXPECT_THAT(refusal(again), HasSubstr("look.png exists; add --overwrite"));
  EXPECT_FALSE(m_folder.Has("other.tif"));
  EXPECT_EQ(test_support::FileBytes(m_folder.Path("look.png")), before);
  again.overwrite = true;
  fusion::Fuse(again);
  EXPECT_NE(test_support::FileBytes(m_folder.Path("look.png")), before);
}

TEST_F(QuicklookTest, APictureThatFailsCostsNoResult) {
  const fusion::FuseReport report = fusion::Fuse(Pictured("brovey", "nowhere/look.png"));
  EXPECT_TRUE(m_folder.Has("out.tif"));
  ASSERT_EQ(report.notices.size(), 1U);
  EXPECT_THAT(report.notices[0], HasSubstr("The fusion has succeeded, but there is no picture of it"));
  EXPECT_THAT(report.notices[0], HasSubstr("nowhere/look.png cannot be written"));
}

TEST_F(QuicklookTest, AnEndWhileItIsDrawnLeavesNothing) {
  class Impatient : public fusion::RunObserver {
   public:
    void StageBegins(const fusion::RunStage& stage) override { m_drawing = stage.identity.name == "quicklook"; }
    bool WantsCancel() override { return m_drawing; }

   private:
    bool m_drawing = false;
  };
  Impatient watcher;
  try {
    fusion::Fuse(Pictured("brovey"), &watcher);
    ADD_FAILURE() << "went on";
  } catch (const RunFailure& failure) {
    EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kCancelled);
  }
  EXPECT_THAT(m_folder.Names(), ElementsAre("ms.tif", "pan.tif"));
}

TEST_F(QuicklookTest, OfTheBestMethodIsOne) {
  FuseRequest request = Pictured(fusion::kBestMethod);
  fusion::Fuse(request);
  EXPECT_TRUE(m_folder.Has("look.png"));
}

TEST_F(QuicklookTest, ReducedImagesAreMeansOfWhatIsUnderThem) {
  Image image;
  image.width = 6;
  image.height = 4;
  image.geoTransform[1] = 1.0;
  image.bands.assign(1, {});
  for (int i = 0; i < 24; ++i) image.bands[0].push_back(i == 7 ? 200.0 : i);
  test_support::WriteImage(image, m_folder.WidePath("small.tif"), PDT_UINT8, "", 200.0);
  CRasterSource source;
  ASSERT_TRUE(source.Open(m_folder.WidePath("small.tif"), GDA_READ, true));
  source.SetMaskNoData(true);
  std::vector<int> rows;
  const quality::Image reduced = fusion::ReducedImage(source, {0}, {0, 0, 6, 4}, 3, 2,
                                                      [&](int y, const std::vector<double>&) { rows.push_back(y); });
  // 0, 1, 6 and a gap; 2, 3, 8, 9; ...
  EXPECT_THAT(reduced.bands[0], ElementsAre(7.0 / 3.0, 5.5, 7.5, 15.5, 17.5, 19.5));
  EXPECT_THAT(rows, ElementsAre(0, 1, 2, 3));
  EXPECT_EQ(fusion::Sampled(reduced, 0, 0.25, 0.5), (0.75 * (7.0 / 3.0 + 15.5) + 0.25 * (5.5 + 17.5)) / 2.0);
  EXPECT_EQ(fusion::Sampled(reduced, 0, 2.4, 1.4), 19.5);
  EXPECT_TRUE(std::isnan(fusion::Sampled(reduced, 0, 2.6, 1.0)));
  quality::Image gap = reduced;
  gap.bands[0][1] = kNaN;
  EXPECT_DOUBLE_EQ(fusion::Sampled(gap, 0, 0.25, 0.0), 7.0 / 3.0);
  EXPECT_TRUE(std::isnan(fusion::Sampled(gap, 0, 0.9, 0.0)));
}

TEST(NaturalColours, AreWhatTheFileSaysElseNamesElsePlaces) {
  const auto bands = [](const std::vector<std::pair<std::string, int>>& said) {
    std::vector<platform::BandDescription> described(said.size());
    for (std::size_t b = 0; b < said.size(); ++b) {
      described[b].name = said[b].first;
      described[b].colour = said[b].second;
    }
    return described;
  };
  // GDAL's 3, 4 and 5 are red, green and blue.
  EXPECT_THAT(NaturalColours(bands({{"Red", 5}, {"x", 4}, {"Blue", 3}})), ElementsAre(2, 1, 0));
  EXPECT_THAT(NaturalColours(bands({{"B2 (blue)", 0}, {"B3 Green", 0}, {"red-edge", 0}, {"B4: RED", 0}, {"nir", 0}})),
              ElementsAre(3, 1, 0));
  EXPECT_THAT(NaturalColours(bands({{"blue", 0}, {"green", 0}, {"infrared", 0}, {"", 0}})), ElementsAre(2, 1, 0));
  EXPECT_THAT(NaturalColours(bands({{"", 0}, {"", 0}, {"", 0}})), ElementsAre(0, 1, 2));
  EXPECT_THAT(NaturalColours(bands({{"", 0}, {"", 0}, {"", 0}, {"", 0}})), ElementsAre(2, 1, 0));
  EXPECT_THAT(NaturalColours(bands({{"", 0}, {"", 0}})), ElementsAre(0, 1, 1));
}

}  // namespace
