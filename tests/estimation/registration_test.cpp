#include "estimation/registration.h"

#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <cmath>

#include "platform/raster/raster_source.h"
#include "tests/support/seen_scene.h"

namespace {

using fusion::ChooseTiles;
using fusion::DetailOf;
using fusion::DetailScore;
using fusion::PanBlur;
using fusion::PanGrid;
using fusion::Registration;
using fusion::RegistrationResult;
using fusion::RegistrationTile;

using test_support::SeenScene;

/// A seen ground with its images opened, as the search looks at them.
class Pair {
 public:
  Pair(unsigned seed, int msWidth, int msHeight, double ratioX, double ratioY, double blur, double moveX, double moveY)
      : scene(seed, {.ratioX = ratioX,
                     .ratioY = ratioY,
                     .bands = 2,
                     .msWidth = msWidth,
                     .msHeight = msHeight,
                     .blur = blur,
                     .moveX = moveX,
                     .moveY = moveY}) {
    m_pan.OpenSimple(scene.panFile);
    m_ms.OpenSimple(scene.msFile);
    grid.emplace(m_pan, m_ms);
  }

  std::vector<RegistrationTile> Tiles() const {
    std::vector<RegistrationTile> tiles;
    for (const CRect& rect : ChooseTiles({0, 0, scene.ms.width, scene.ms.height}, *grid)) {
      RegistrationTile tile{grid->Positions(rect), {}, {}, {}};
      for (const auto& band : scene.ms.bands) tile.bands.push_back(Part(band, scene.ms.width, rect));
      tile.panRect = Registration::Reads(tile.positions, *grid);
      tile.pan = Part(scene.pan.bands[0], scene.pan.width, tile.panRect);
      tiles.push_back(std::move(tile));
    }
    return tiles;
  }
  Registration Search(platform::Workers* workers = nullptr) const { return {Tiles(), *grid, workers}; }

  static std::vector<double> Part(const std::vector<double>& image, int width, const CRect& rect) {
    std::vector<double> part;
    for (int y = rect.top; y < rect.bottom; ++y) {
      for (int x = rect.left; x < rect.right; ++x) part.push_back(image[static_cast<std::size_t>(y * width + x)]);
    }
    return part;
  }

  SeenScene scene;
  std::optional<PanGrid> grid;

 private:
  CRasterSource m_pan;
  CRasterSource m_ms;
};

/// The score of one tile that is the whole image, by the definition.
double ScoreOf(const Pair& pair, const PanBlur& blur, double shiftX, double shiftY) {
  const int width = pair.scene.ms.width;
  const int height = pair.scene.ms.height;
  std::vector<std::vector<double>> images = pair.scene.ms.bands;
  images.push_back(test_support::LowPassOf(pair.scene, blur.isBox, blur.width, shiftX, shiftY));
  const auto size = static_cast<Eigen::Index>(images.size());
  Eigen::MatrixXd g = Eigen::MatrixXd::Zero(size, size);
  for (int r = 1; r + 1 < height; ++r) {
    for (int c = 1; c + 1 < width; ++c) {
      Eigen::VectorXd d(size);
      for (Eigen::Index i = 0; i < size; ++i) {
        double sum = 0.0;
        for (int y = r - 1; y <= r + 1; ++y) {
          for (int x = c - 1; x <= c + 1; ++x) {
            sum += images[static_cast<std::size_t>(i)][static_cast<std::size_t>(y * width + x)];
          }
        }
        d(i) = images[static_cast<std::size_t>(i)][static_cast<std::size_t>(r * width + c)] - sum / 9.0;
      }
      if (d.array().isFinite().all()) g += d * d.transpose();
    }
  }
  const Eigen::VectorXd scale = g.diagonal().cwiseSqrt();
  g = (g.array() / (scale * scale.transpose()).array()).matrix();
  const Eigen::Index n = size - 1;
  const Eigen::VectorXd right = g.block(0, n, n, 1);
  return right.dot(g.topLeftCorner(n, n).inverse() * right);
}

TEST(Registration, TheScoreIsTheShareOfPansDetailThatTheBandsExplain) {
  const Pair pair(3, 40, 34, 4.0, 3.0, 1.0, 0.0, 0.0);
  Registration search = pair.Search();
  ASSERT_EQ(search.Tiles().size(), 1U);
  for (const auto& [blur, x, y] :
       {std::tuple(PanBlur{false, 1.0}, 0.0, 0.0), std::tuple(PanBlur{false, 0.6}, 1.5, -0.5),
        std::tuple(PanBlur{true, 1.0}, -0.25, 2.0), std::tuple(PanBlur{false, 1.9}, 8.0, -8.0)}) {
    EXPECT_NEAR(search.Score(blur, x, y), ScoreOf(pair, blur, x, y), 1e-9);
  }
}

TEST(Registration, TilesCountByTheirPixelsAndTheirDetail) {
  // Two tiles with moments of their own: the sum of N / sqrt(v + median v) times the moments.
  const Pair pair(4, 96, 48, 2.0, 2.0, 1.0, 0.0, 0.0);
  auto tiles = pair.Tiles();
  ASSERT_EQ(tiles.size(), 2U);
  for (double& v : tiles[1].pan) v *= 10.0;
  for (auto& band : tiles[1].bands) {
    for (std::size_t i = 0; i < band.size(); ++i) band[i] = i % 3 == 0 ? band[i] * 5.0 : 200.0;
  }
  tiles[0].bands[0][100] = NAN;
  const PanBlur blur{false, 0.9};
  std::vector<Eigen::MatrixXd> moments;
  std::vector<double> counts;
  Registration both(tiles, *pair.grid, nullptr);
  for (const auto& tile : tiles) {
    const int w = tile.positions.width;
    const int h = tile.positions.height;
    std::vector<std::vector<double>> details;
    for (const auto& band : tile.bands) details.push_back(DetailOf(band, w, h));
    details.push_back(DetailOf(both.Degraded(tile, blur, 0.0, 0.0), w, h));
    Eigen::MatrixXd g = Eigen::MatrixXd::Zero(3, 3);
    double count = 0.0;
    for (std::size_t i = 0; i < details[0].size(); ++i) {
      const Eigen::Vector3d d(details[0][i], details[1][i], details[2][i]);
      if (!d.array().isFinite().all()) continue;
      g += d * d.transpose();
      ++count;
    }
    moments.push_back(g / count);
    counts.push_back(count);
  }
  EXPECT_LT(counts[0], counts[1]);
  const double usual = (moments[0](2, 2) + moments[1](2, 2)) / 2.0;
  std::vector<double> sum(9, 0.0);
  for (std::size_t t = 0; t < 2; ++t) {
    for (Eigen::Index i = 0; i < 9; ++i) {
      sum[static_cast<std::size_t>(i)] += counts[t] / std::sqrt(moments[t](2, 2) + usual) * moments[t](i / 3, i % 3);
    }
  }
  EXPECT_NEAR(both.Score(blur, 0.0, 0.0), DetailScore(sum, 2), 1e-9);
}

TEST(Registration, FindsTheBlurAndTheShiftOfAPair) {
  struct Case {
    double ratioX, ratioY, blur, moveX, moveY;
  };
  unsigned seed = 10;
  for (const Case& c :
       {Case{4.0, 4.0, 1.0, 0.0, 0.0}, Case{2.0, 2.0, 0.8, 0.5, -0.375}, Case{4.0, 4.0, 0.9, -2.25, 3.5},
        Case{1.5, 1.5, 1.2, 1.0, 0.0}, Case{8.0, 8.0, 0.9, 2.0, -3.0}, Case{3.0, 2.0, 1.0, 0.5, 1.0}}) {
    const Pair pair(++seed, 60, 56, c.ratioX, c.ratioY, c.blur, c.moveX, c.moveY);
    SCOPED_TRACE("ratio " + std::to_string(c.ratioX) + ", move " + std::to_string(c.moveX));
    const RegistrationResult found = pair.Search().Find(true);
    const bool moved = c.moveX != 0.0 || c.moveY != 0.0;
    EXPECT_EQ(found.accepted, moved);
    EXPECT_NEAR(found.shiftX, c.moveX, 0.13);
    EXPECT_NEAR(found.shiftY, c.moveY, 0.13);
    EXPECT_FALSE(found.blur.isBox);
    EXPECT_NEAR(found.blur.width, c.blur, 0.05);
    EXPECT_GT(found.score, 0.95);
    EXPECT_LE(found.score, 1.0 + 1e-9);
    EXPECT_EQ(found.agreement >= 0.75, moved);
  }
}

TEST(Registration, TheBlurIsFoundBetweenTheWidthsLookedAt) {
  const Pair pair(29, 60, 56, 4.0, 4.0, 0.85, 0.0, 0.0);
  EXPECT_NEAR(pair.Search().Find(false).blur.width, 0.85, 0.03);
}

TEST(Registration, WithoutASearchTheImageStaysWhereItIs) {
  const Pair pair(30, 60, 56, 2.0, 2.0, 0.8, 0.75, -0.5);
  const RegistrationResult found = pair.Search().Find(false);
  EXPECT_FALSE(found.accepted);
  EXPECT_EQ(found.shiftX, 0.0);
  EXPECT_EQ(found.shiftY, 0.0);
  EXPECT_EQ(found.agreement, 0.0);
  EXPECT_EQ(found.score, pair.Search().Score(found.blur, 0.0, 0.0));
}

TEST(Registration, AShiftThatIsHardlyOneIsNone) {
  const Pair pair(31, 60, 56, 4.0, 4.0, 0.9, 0.15, 0.1);
  const RegistrationResult found = pair.Search().Find(true);
  EXPECT_FALSE(found.accepted);
  EXPECT_EQ(found.shiftX, 0.0);
}

TEST(Registration, AFewPixelsMoveNothing) {
  // 500 must have all neighbours, and pan under them where it is moved to.
  EXPECT_TRUE(Pair(37, 28, 30, 4.0, 4.0, 0.9, 2.0, 1.0).Search().Find(true).accepted);
  EXPECT_FALSE(Pair(37, 22, 24, 4.0, 4.0, 0.9, 2.0, 1.0).Search().Find(true).accepted);
}

TEST(Registration, TilesThatDisagreeMoveNothing) {
  // Half of the image is moved one way, half of it another.
  const Pair one(32, 192, 48, 2.0, 2.0, 0.9, 1.0, 0.0);
  const Pair other(32, 192, 48, 2.0, 2.0, 0.9, -1.0, 0.0);
  auto tiles = one.Tiles();
  ASSERT_EQ(tiles.size(), 4U);
  const auto others = other.Tiles();
  tiles[2] = others[2];
  tiles[3] = others[3];
  const RegistrationResult found = Registration(tiles, *one.grid, nullptr).Find(true);
  EXPECT_FALSE(found.accepted);
  EXPECT_LT(found.agreement, 0.75);
  EXPECT_EQ(found.shiftX, 0.0);
  EXPECT_TRUE(Registration(one.Tiles(), *one.grid, nullptr).Find(true).accepted);
}

TEST(Registration, ThreadsFindTheSame) {
  const Pair pair(33, 130, 110, 2.0, 2.0, 0.8, 0.5, 0.5);
  const RegistrationResult one = pair.Search().Find(true);
  platform::Workers workers(3);
  const RegistrationResult many = pair.Search(&workers).Find(true);
  EXPECT_EQ(one.score, many.score);
  EXPECT_EQ(one.shiftX, many.shiftX);
  EXPECT_EQ(one.shiftY, many.shiftY);
  EXPECT_EQ(one.blur.width, many.blur.width);
  EXPECT_EQ(one.agreement, many.agreement);
}

TEST(Registration, WithoutDetailOrDataThereIsNothingToFind) {
  Pair pair(34, 60, 56, 2.0, 2.0, 0.8, 0.5, 0.5);
  auto tiles = pair.Tiles();
  for (auto& tile : tiles) std::fill(tile.pan.begin(), tile.pan.end(), 300.0);
  const RegistrationResult flat = Registration(tiles, *pair.grid, nullptr).Find(true);
  EXPECT_FALSE(flat.accepted);
  EXPECT_NEAR(flat.score, 0.0, 0.1);
  for (auto& tile : tiles) std::fill(tile.pan.begin(), tile.pan.end(), NAN);
  const RegistrationResult empty = Registration(tiles, *pair.grid, nullptr).Find(true);
  EXPECT_FALSE(empty.accepted);
  EXPECT_EQ(empty.score, 0.0);
  EXPECT_EQ(empty.blur.width, 1.0);
  EXPECT_FALSE(empty.blur.isBox);
  EXPECT_EQ(Registration({}, *pair.grid, nullptr).Find(true).score, 0.0);
}

TEST(Registration, ABandWithoutDetailIsLeftOut) {
  Pair pair(35, 60, 56, 2.0, 2.0, 0.8, 0.5, 0.5);
  auto tiles = pair.Tiles();
  for (auto& tile : tiles) std::fill(tile.bands[1].begin(), tile.bands[1].end(), 8.0);
  const RegistrationResult found = Registration(tiles, *pair.grid, nullptr).Find(true);
  EXPECT_TRUE(found.accepted);
  EXPECT_NEAR(found.shiftX, 0.5, 0.13);
}

TEST(Registration, ScoreByHand) {
  // Bands of variance 4 and 9 that do not go together, pan of variance 16 with covariances 4 and 6: correlations of a
  // half each, which explain 1/4 + 1/4.
  EXPECT_NEAR(DetailScore({4, 0, 4, 0, 9, 6, 4, 6, 16}, 2), 0.5, 1e-14);
  EXPECT_EQ(DetailScore({4, 0, 0, 0, 9, 0, 0, 0, 0}, 2), 0.0);
  EXPECT_EQ(DetailScore({4, 0, NAN, 0, 9, 0, NAN, 0, 1}, 2), 0.0);
}

TEST(Registration, DetailIsWhatTheMeanAroundAPixelLeaves) {
  std::vector<double> values(20, 1.0);
  values[7] = 10.0;  // column 2, row 1 of 5 x 4
  const auto detail = DetailOf(values, 5, 4);
  EXPECT_DOUBLE_EQ(detail[7], 8.0);    // 10 less 18 / 9
  EXPECT_DOUBLE_EQ(detail[11], -1.0);  // 1 less 18 / 9
  for (const std::size_t edge : {0U, 4U, 5U, 9U, 15U, 19U}) EXPECT_TRUE(std::isnan(detail[edge]));
}

TEST(Registration, TilesAreSpreadOverTheArea) {
  const Pair pair(36, 20, 20, 2.0, 2.0, 1.0, 0.0, 0.0);
  const auto inside = [&](const CRect& area, std::size_t least, std::size_t most) {
    const auto tiles = ChooseTiles(area, *pair.grid);
    EXPECT_GE(tiles.size(), least);
    EXPECT_LE(tiles.size(), most);
    CRect hull = tiles.front();
    for (const CRect& tile : tiles) {
      EXPECT_TRUE(tile.left >= area.left && tile.top >= area.top && tile.right <= area.right &&
                  tile.bottom <= area.bottom);
      EXPECT_LE(std::max(tile.Width(), tile.Height()), 130);
      hull = {std::min(hull.left, tile.left), std::min(hull.top, tile.top), std::max(hull.right, tile.right),
              std::max(hull.bottom, tile.bottom)};
    }
    EXPECT_GE(hull.Width(), area.Width() * 2 / 3);
    EXPECT_GE(hull.Height(), area.Height() * 2 / 3);
    return tiles;
  };
  EXPECT_EQ(inside({3, 4, 44, 45}, 1, 1)[0], CRect(3, 4, 44, 45));
  inside({0, 0, 100, 100}, 4, 4);
  inside({0, 0, 200, 200}, 9, 16);
  inside({50, 60, 4000, 3000}, 12, 16);
  inside({0, 0, 9000, 60}, 12, 16);
  inside({0, 0, 60, 9000}, 12, 16);
}

}  // namespace
