#include "platform/raster/position_grid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "platform/raster/box_carrier.h"
#include "tests/support/numbers.h"

namespace {

using platform::PositionGrid;

using test_support::kNaN;

/// Bilinear interpolation point by point. False outside the box.
bool InterpolatePlainly(const PositionGrid& grid, double groundX, double groundY, double& x, double& y) {
  const auto& cells = grid.cells;
  const double u = (groundX - cells.left) / cells.cellX;
  const double v = (groundY - cells.top) / cells.cellY;
  if (!(u >= 0.0 && v >= 0.0 && u <= cells.columns && v <= cells.rows)) return false;
  const int column = std::min(static_cast<int>(u), cells.columns - 1);
  const int row = std::min(static_cast<int>(v), cells.rows - 1);
  const double fx = u - column;
  const double fy = v - row;
  const auto node = [&](int c, int r) { return grid.nodes[static_cast<std::size_t>(r * (cells.columns + 1) + c)]; };
  const auto a = node(column, row);
  const auto b = node(column + 1, row);
  const auto c = node(column, row + 1);
  const auto d = node(column + 1, row + 1);
  x = (a.x * (1.0 - fx) + b.x * fx) * (1.0 - fy) + (c.x * (1.0 - fx) + d.x * fx) * fy;
  y = (a.y * (1.0 - fx) + b.y * fx) * (1.0 - fy) + (c.y * (1.0 - fx) + d.y * fx) * fy;
  return true;
}

PositionGrid MakeGrid(std::mt19937& random) {
  std::uniform_real_distribution<double> place(-1000.0, 1000.0);
  PositionGrid grid;
  // Rows of a box count downwards, against the ground's direction.
  grid.cells = {
      place(random), place(random), 7.3, -4.1, 1 + static_cast<int>(random() % 6), 1 + static_cast<int>(random() % 6)};
  for (int i = 0; i < (grid.cells.columns + 1) * (grid.cells.rows + 1); ++i) {
    grid.nodes.push_back({random() % 20 == 0 ? kNaN : place(random), place(random)});
  }
  return grid;
}

void ExpectSame(double value, double expected) {
  if (std::isnan(expected)) {
    EXPECT_TRUE(std::isnan(value));
  } else {
    EXPECT_EQ(value, expected);
  }
}

TEST(PositionGrid, InterpolatesEveryPointAsByItself) {
  std::mt19937 random(21);
  for (const int n : {1, 2, 7, 255, 256, 257, 1000}) {
    const PositionGrid grid = MakeGrid(random);
    const auto& cells = grid.cells;
    // Rows that cross the box and a little more, some points of them elsewhere, at nodes or nowhere.
    const double odd[] = {kNaN, INFINITY, -INFINITY, 1e300, cells.left, cells.left + cells.cellX * cells.columns};
    std::uniform_real_distribution<double> down(-0.2, cells.rows + 0.2);
    const double row = down(random);
    std::vector<double> groundX;
    std::vector<double> groundY;
    for (int i = 0; i < n; ++i) {
      const double across = (i + 0.5) / n * (cells.columns + 0.4) - 0.2;
      groundX.push_back(random() % 30 == 0 ? odd[random() % 6] : cells.left + cells.cellX * across);
      groundY.push_back(cells.top + cells.cellY * (random() % 30 == 0 ? down(random) : row));
    }
    std::vector<double> x(groundX.size());
    std::vector<double> y(groundX.size());
    std::vector<int> outside;
    grid.Interpolate(groundX.data(), groundY.data(), n, x.data(), y.data(), outside);
    std::vector<int> expectedOutside;
    for (int i = 0; i < n; ++i) {
      const auto k = static_cast<std::size_t>(i);
      double expectedX = groundX[k];
      double expectedY = groundY[k];
      if (!InterpolatePlainly(grid, groundX[k], groundY[k], expectedX, expectedY)) expectedOutside.push_back(i);
      ExpectSame(x[k], expectedX);
      ExpectSame(y[k], expectedY);
    }
    EXPECT_EQ(outside, expectedOutside);
    // In place.
    outside.clear();
    grid.Interpolate(groundX.data(), groundY.data(), n, groundX.data(), groundY.data(), outside);
    EXPECT_EQ(outside, expectedOutside);
    for (std::size_t k = 0; k < x.size(); ++k) {
      ExpectSame(groundX[k], x[k]);
      ExpectSame(groundY[k], y[k]);
    }
  }
}

TEST(PositionGrid, TheFarEdgesBelongToTheLastCells) {
  PositionGrid grid;
  grid.cells = {10.0, 20.0, 2.0, -4.0, 2, 1};
  grid.nodes = {{0.0, 0.0}, {8.0, 1.0}, {32.0, 2.0}, {1.0, 16.0}, {9.0, 17.0}, {33.0, 18.0}};
  double x[] = {14.0, 13.0, 10.0, 14.0, 14.1};
  double y[] = {16.0, 18.0, 20.0, 20.0, 20.0};
  std::vector<int> outside;
  grid.Interpolate(x, y, 5, x, y, outside);
  EXPECT_EQ(outside, std::vector<int>{4});
  const double expectedX[] = {33.0, 20.5, 0.0, 32.0, 14.1};
  const double expectedY[] = {18.0, 9.5, 0.0, 2.0, 20.0};
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(x[i], expectedX[i]) << i;
    EXPECT_EQ(y[i], expectedY[i]) << i;
  }
}

TEST(BoxCarrier, TheInsideCountsWhereTheOutlineDoesNotReach) {
  // The distance from the middle is least there, and 1 at least on the outline.
  const auto distances = [](std::vector<platform::PositionGrid::Point>& points) {
    for (auto& p : points) p.y = std::hypot(p.x, p.y);
  };
  const CBoundingBox box(-1.0, -1.0, 1.0, 1.0);
  const platform::Envelope envelope = platform::BoxCarrier(distances, distances, 0.0).EnvelopeOf(box, 8);
  EXPECT_NEAR(envelope.minY, 0.0, 1e-12);
  EXPECT_DOUBLE_EQ(envelope.maxY, std::sqrt(2.0));
  EXPECT_DOUBLE_EQ(envelope.minX, -1.0);
  EXPECT_DOUBLE_EQ(envelope.maxX, 1.0);
}

TEST(BoxCarrier, PartsAFullTurnApartAreAllFound) {
  const auto parts = platform::CommonParts({-10.0, 5.0, 370.0, -5.0}, {0.0, 1.0, 5.0, -1.0}, 360.0);
  ASSERT_EQ(parts.size(), 2U);
  EXPECT_EQ(parts[0].MinX() + parts[1].MinX(), 0.0 + 360.0);
  EXPECT_EQ(parts[0].MaxX() + parts[1].MaxX(), 5.0 + 365.0);
}

TEST(BoxCarrier, PartsOfPlainBoxesAreFoundWithoutATurn) {
  const auto parts = platform::CommonParts({0.0, 1.0, 2.0, -1.0}, {1.0, 1.0, 3.0, -1.0}, 0.0);
  ASSERT_EQ(parts.size(), 1U);
  EXPECT_EQ(parts[0].MinX(), 1.0);
  EXPECT_EQ(parts[0].MaxX(), 2.0);
}

TEST(BoxCarrier, ABoxOfMoreThanATurnHasAllLongitudes) {
  // A unit for a degree, counted from -180 to 180.
  const auto wrap = [](std::vector<platform::PositionGrid::Point>& points) {
    for (auto& p : points) p.x = std::remainder(p.x, 360.0);
  };
  const platform::Envelope envelope = platform::BoxCarrier(wrap, wrap, 360.0).EnvelopeOf({-10.0, 5.0, 370.0, -5.0}, 8);
  EXPECT_EQ(envelope.minX, -180.0);
  EXPECT_EQ(envelope.maxX, 180.0);
  EXPECT_EQ(envelope.minY, -5.0);
  EXPECT_EQ(envelope.maxY, 5.0);
}

TEST(BoxCarrier, ABoxAroundAPoleReachesToIt) {
  // Polar coordinates, a degree for a unit of distance.
  const double degree = std::acos(-1.0) / 180.0;
  const auto toGeographic = [=](std::vector<platform::PositionGrid::Point>& points) {
    for (auto& p : points) p = {std::atan2(p.y, p.x) / degree, 90.0 - std::hypot(p.x, p.y)};
  };
  const auto toPolar = [=](std::vector<platform::PositionGrid::Point>& points) {
    for (auto& p : points) p = {(90.0 - p.y) * std::cos(p.x * degree), (90.0 - p.y) * std::sin(p.x * degree)};
  };
  const platform::BoxCarrier carrier(toGeographic, toPolar, 360.0);
  const platform::Envelope envelope = carrier.EnvelopeOf({-1.03, 2.0, 3.0, -1.07}, 8);
  EXPECT_EQ(envelope.maxY, 90.0);
}

}  // namespace
