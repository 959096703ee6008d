#include "estimation/low_pass_fill.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "platform/raster/raster_source.h"
#include "tests/support/scene.h"

namespace {

using fusion::LowPassFill;
using fusion::PanGrid;
using fusion::Registration;
using fusion::RegistrationTile;

/// A tile of pan and bands with pan, low-passed by a box of one pixel, just a mix of the bands.
class Mixed : public testing::Test {
 protected:
  Mixed() {
    reference::Image image;
    image.width = 30;
    image.height = 20;
    image.bands.assign(1, std::vector<double>(600, 1.0));
    test_support::WriteImage(image, L"/vsimem/fill.tif", PDT_FLOAT64);
    m_source.OpenSimple(L"/vsimem/fill.tif");
    m_grid.emplace(m_source, m_source);
    std::mt19937 random(3);
    std::uniform_real_distribution<double> any(0.0, 100.0);
    m_tile = {m_grid->Positions({0, 0, 30, 20}), {{}, {}}, {0, 0, 30, 20}, {}};
    for (int i = 0; i < 600; ++i) {
      for (auto& band : m_tile.bands) band.push_back(any(random));
      m_tile.pan.push_back(40.0 + 0.5 * m_tile.bands[0].back() + 2.0 * m_tile.bands[1].back());
    }
    m_tile.pan[17] = NAN;
    m_tile.bands[1][44] = NAN;
    m_found.blur = {true, 1.0};
  }
  LowPassFill Fill() const { return {Registration({m_tile}, *m_grid, nullptr), m_found}; }

  CRasterSource m_source;
  std::optional<PanGrid> m_grid;
  RegistrationTile m_tile;
  fusion::RegistrationResult m_found;
};

TEST_F(Mixed, GapsOfPanAreItsRegressionOnTheBands) {
  const double first[] = {10.0, 20.0, NAN, NAN, NAN};
  const double second[] = {30.0, 5.0, 10.0, NAN, NAN};
  const double* bands[] = {first, second};
  std::vector<double> values = {NAN, 7.0, NAN, NAN, 8.0};
  Fill().Fill(bands, true, values);
  EXPECT_NEAR(values[0], 40.0 + 5.0 + 60.0, 1e-9);
  EXPECT_EQ(values[1], 7.0);
  // A band without data counts with its mean.
  double mean = 0.0;
  int count = 0;
  for (std::size_t i = 0; i < 600; ++i) {
    if (i == 17 || i == 44) continue;
    mean += m_tile.bands[0][i];
    ++count;
  }
  EXPECT_NEAR(values[2], 40.0 + 0.5 * mean / count + 20.0, 1e-9);
  EXPECT_TRUE(std::isnan(values[3]));
  EXPECT_TRUE(std::isnan(values[4]));
  std::vector<double> kept = {NAN, NAN, NAN, NAN, 8.0};
  Fill().Fill(bands, false, kept);
  EXPECT_TRUE(std::isfinite(kept[3]));
  EXPECT_EQ(kept[4], 8.0);
}

TEST_F(Mixed, ABandThatSaysNothingIsLeftOut) {
  for (double& v : m_tile.bands[1]) v = 5.0;
  for (std::size_t i = 0; i < 600; ++i) m_tile.pan[i] = 3.0 * m_tile.bands[0][i];
  const double first[] = {11.0};
  const double second[] = {9000.0};
  const double* bands[] = {first, second};
  std::vector<double> values = {NAN};
  Fill().Fill(bands, true, values);
  EXPECT_NEAR(values[0], 33.0, 1e-9);
}

TEST(LowPassFill, OfNothingIsNothing) {
  reference::Image image;
  image.width = image.height = 3;
  image.bands.assign(1, std::vector<double>(9, 1.0));
  test_support::WriteImage(image, L"/vsimem/fill.tif", PDT_FLOAT64);
  CRasterSource source;
  ASSERT_TRUE(source.OpenSimple(L"/vsimem/fill.tif"));
  const PanGrid grid(source, source);
  const LowPassFill fill(Registration({}, grid, nullptr), {});
  std::vector<double> values = {NAN, 2.0};
  fill.Fill(nullptr, false, values);
  EXPECT_EQ(values, (std::vector<double>{0.0, 2.0}));
}

}  // namespace
