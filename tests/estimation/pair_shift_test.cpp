// Blur and shift of pairs that were made with known ones.
#include "estimation/pair_shift.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <optional>

#include "platform/raster/raster_source.h"
#include "tests/support/seen_scene.h"

namespace {

using fusion::MeasureShift;
using fusion::PairShift;
using fusion::PanGrid;
using fusion::PanPositions;
using fusion::Registration;
using fusion::RegistrationTile;
using test_support::SeenOptions;
using test_support::SeenScene;

std::vector<double> Part(const std::vector<double>& image, int width, const CRect& rect) {
  std::vector<double> part;
  for (int y = rect.top; y < rect.bottom; ++y) {
    for (int x = rect.left; x < rect.right; ++x) part.push_back(image[static_cast<std::size_t>(y * width + x)]);
  }
  return part;
}

PairShift Measured(const SeenScene& scene, platform::Workers* workers = nullptr,
                   const std::function<void()>& watch = {}) {
  CRasterSource pan;
  CRasterSource ms;
  pan.OpenSimple(scene.panFile);
  ms.OpenSimple(scene.msFile);
  PanGrid grid(pan, ms);
  if (pan.GetSpatialReferenceWKT() != ms.GetSpatialReferenceWKT()) {
    EXPECT_TRUE(grid.Reproject(pan, ms));
  }
  const auto read = [&](const CRect& rect, const PanPositions& positions) {
    RegistrationTile tile{positions, {}, Registration::Reads(positions, grid), {}};
    for (const auto& band : scene.ms.bands) tile.bands.push_back(Part(band, scene.ms.width, rect));
    tile.pan = Part(scene.pan.bands[0], scene.pan.width, tile.panRect);
    return tile;
  };
  const CRect all(0, 0, scene.ms.width, scene.ms.height);
  return MeasureShift(fusion::ChooseTiles(all, grid), grid, read, workers, watch);
}

TEST(PairShift, IsThatOfTheSceneAsItWasMade) {
  struct Case {
    double ratio, x, y;
  };
  unsigned seed = 100;
  for (const auto& [ratio, x, y] :
       {Case{4.0, 0.0, 0.0}, Case{4.0, 0.25, 0.0}, Case{4.0, -0.25, 0.0}, Case{4.0, 0.0, 0.25}, Case{4.0, 0.0, -0.25},
        Case{4.0, 1.0, -3.0}, Case{4.0, -1.0, 3.0}, Case{2.0, 3.0, 1.0}, Case{2.0, -3.0, -1.0},
        Case{2.0, 0.25, 0.25}}) {
    const SeenScene scene(
        ++seed,
        {.ratioX = ratio, .ratioY = ratio, .msWidth = 110, .msHeight = 100, .blur = 0.9, .moveX = x, .moveY = y});
    const PairShift found = Measured(scene);
    SCOPED_TRACE("ratio " + std::to_string(ratio) + ", " + std::to_string(x) + ", " + std::to_string(y));
    EXPECT_NEAR(found.x, x, 0.02);
    EXPECT_NEAR(found.y, y, 0.02);
    EXPECT_LT(found.spreadX, 0.02);
    EXPECT_LT(found.spreadY, 0.02);
    EXPECT_EQ(found.windows, 4);
    EXPECT_NEAR(found.blur.width, 0.9, 0.02);
    EXPECT_FALSE(found.isFar);
    EXPECT_GT(found.score, found.inPlace - 0.001);
  }
}

TEST(PairShift, TheBlurIsThatOfTheSceneAsItWasMade) {
  unsigned seed = 200;
  for (const double ratio : {2.0, 4.0}) {
    for (const double blur : {0.55, 0.7, 0.85, 1.0, 1.25, 1.5, 1.8}) {
      const SeenScene scene(++seed, {.ratioX = ratio, .ratioY = ratio, .msWidth = 110, .msHeight = 100, .blur = blur});
      const PairShift found = Measured(scene);
      // The widths that are looked at end at 0.5 and 1.9.
      EXPECT_NEAR(found.blur.width, blur, blur < 0.6 || blur > 1.7 ? 0.11 : 0.02) << ratio;
      EXPECT_FALSE(found.blur.isBox);
    }
  }
}

TEST(PairShift, FarMovesAreFoundToo) {
  unsigned seed = 300;
  for (const auto& [x, y] : {std::pair(20.25, -13.5), {-9.0, 0.0}, {0.0, 30.75}}) {
    const SeenScene scene(++seed, {.msWidth = 110, .msHeight = 100, .moveX = x, .moveY = y});
    const PairShift found = Measured(scene);
    EXPECT_NEAR(found.x, x, 0.1);
    EXPECT_NEAR(found.y, y, 0.1);
    EXPECT_TRUE(found.isFar);
    EXPECT_GT(found.score, 0.9);
    EXPECT_LT(found.inPlace, 0.3);
  }
}

TEST(PairShift, IsMeasuredOnImagesThatLieAskewAndInOtherSystems) {
  const SeenScene turned(401, {.msWidth = 110, .msHeight = 100, .moveX = 1.5, .moveY = -0.75, .turn = 0.2});
  const PairShift found = Measured(turned);
  EXPECT_NEAR(found.x, 1.5, 0.1);
  EXPECT_NEAR(found.y, -0.75, 0.1);
  const SeenScene degrees(402, {.msWidth = 110, .msHeight = 100, .moveX = -1.0, .moveY = 0.5, .degrees = true});
  const PairShift other = Measured(degrees);
  EXPECT_NEAR(other.x, -1.0, 0.1);
  EXPECT_NEAR(other.y, 0.5, 0.1);
}

TEST(PairShift, WindowsThatSayOtherwiseShowInTheSpread) {
  // Half of the windows lie one pixel beside the others.
  const SeenOptions options{.msWidth = 110, .msHeight = 100, .moveX = 1.0};
  SeenScene scene(501, options);
  SeenOptions other = options;
  other.moveX = -1.0;
  const SeenScene moved(501, other);
  for (std::size_t b = 0; b < scene.ms.bands.size(); ++b) {
    std::copy_n(moved.ms.bands[b].begin(), scene.ms.bands[b].size() / 2, scene.ms.bands[b].begin());
  }
  const PairShift found = Measured(scene);
  EXPECT_NEAR(found.x, 0.0, 0.1);
  // The median distance from 0 is 1, less what a window of one half sees of the other.
  EXPECT_NEAR(found.spreadX, 1.4826, 0.3);
  EXPECT_LT(found.spreadY, 0.1);
}

TEST(PairShift, ImagesOfOtherGroundTellNothing) {
  SeenScene scene(601, {.msWidth = 110, .msHeight = 100});
  const SeenScene other(602, {.msWidth = 110, .msHeight = 100});
  scene.ms.bands = other.ms.bands;
  const PairShift found = Measured(scene);
  EXPECT_EQ(found.windows, 0);
  EXPECT_LT(found.score, 0.1);
  EXPECT_FALSE(found.isFar);
  // What has no data has nothing to say either.
  for (auto& band : scene.ms.bands) std::fill(band.begin(), band.end(), NAN);
  EXPECT_EQ(Measured(scene).windows, 0);
}

TEST(PairShift, ThreadsFindTheSame) {
  const SeenScene scene(701, {.msWidth = 110, .msHeight = 100, .moveX = 14.0, .moveY = 0.5});
  platform::Workers workers(3);
  const PairShift one = Measured(scene);
  const PairShift many = Measured(scene, &workers);
  EXPECT_EQ(one.x, many.x);
  EXPECT_EQ(one.y, many.y);
  EXPECT_EQ(one.spreadX, many.spreadX);
  EXPECT_EQ(one.score, many.score);
}

TEST(PairShift, EndsWhenItIsWatchedByWhoHasEnough) {
  const SeenScene scene(701, {.msWidth = 110, .msHeight = 100, .moveX = 1.0});
  int places = 0;
  Measured(scene, nullptr, [&] { ++places; });
  // Twelve blurs and a box, and eight neighbours of where it starts at the least.
  EXPECT_GE(places, 13 + 8);
  for (const int end : {1, 10, 20}) {
    int seen = 0;
    const auto watch = [&] {
      if (++seen == end) throw end;
    };
    EXPECT_THROW(Measured(scene, nullptr, watch), int);
    EXPECT_EQ(seen, end);
  }
}

}  // namespace
