// Results of methods that move the multispectral image before they fuse.
#include "runs/assess_tile.h"

#include <gtest/gtest.h>

#include <cmath>

#include "platform/utility/common_fun.h"
#include "runs/assess_fusion.h"
#include "runs/notices.h"
#include "tests/support/run_scene.h"

namespace {

using fusion::Move;
using reference::Image;

/// A smooth scene on the ground, in units of pan pixels: what a multispectral pixel of two of them shows is the mean of
/// hardly more than one value.
double Ground(std::size_t band, double x, double y) {
  return 500.0 + 100.0 * std::sin(0.23 * x + static_cast<double>(band)) * std::cos(0.19 * y) +
         40.0 * std::sin(0.31 * y);
}

class AssessTileTest : public test_support::RunScene {
 protected:
  static constexpr int kMs = 48;

  void SetUp() override {
    Image pan;
    Image ms;
    pan.width = pan.height = 2 * kMs;
    ms.width = ms.height = kMs;
    pan.geoTransform[1] = 1.0;
    ms.geoTransform[1] = 2.0;
    ms.geoTransform[5] = -2.0;
    pan.bands.assign(1, {});
    ms.bands.assign(2, {});
    for (int y = 0; y < 2 * kMs; ++y) {
      for (int x = 0; x < 2 * kMs; ++x) pan.bands[0].push_back(Ground(0, x + 0.5, y + 0.5));
    }
    for (std::size_t b = 0; b < 2; ++b) {
      for (int y = 0; y < kMs; ++y) {
        for (int x = 0; x < kMs; ++x) ms.bands[b].push_back(Ground(b, 2 * x + 1.0, 2 * y + 1.0));
      }
    }
    test_support::WriteImage(pan, m_folder.WidePath("pan.tif"), PDT_FLOAT64);
    test_support::WriteImage(ms, m_folder.WidePath("ms.tif"), PDT_FLOAT64);
    m_request.pan = m_folder.Path("pan.tif");
    m_request.ms = m_folder.Path("ms.tif");
  }

  /// Measures of a result on a tile of either kind.
  template <typename Tile>
  fusion::MethodSums Measured(const quality::Image& fused, const Move& move) {
    fusion::Notices notices(nullptr);
    fusion::AssessScene scene(m_request, notices);
    Tile tile(scene, scene.Tiles().at(0), {0.3, 0.15});
    const fusion::TileFiles files(CommonFun::ToPath(m_folder.WidePath("files")), tile, PDT_FLOAT64, true);
    tile.SetUpsampled(files.Upsampled());
    fusion::MethodSums sums(2);
    tile.Measure(fused, move, sums);
    return sums;
  }

  fusion::AssessRequest m_request;
};

/// The scene as it shows when the multispectral image was moved, at size x size pixels of a width in pan pixels.
quality::Image Moved(int size, double pixel, const Move& move) {
  quality::Image image;
  image.width = image.height = size;
  for (std::size_t b = 0; b < 2; ++b) {
    image.bands.emplace_back();
    for (int y = 0; y < size; ++y) {
      for (int x = 0; x < size; ++x) {
        image.bands.back().push_back(Ground(b, (x + 0.5 - move.x) * pixel, (y + 0.5 - move.y) * pixel));
      }
    }
  }
  return image;
}

TEST_F(AssessTileTest, TheTruthMovesAlongAtReducedResolution) {
  for (const Move& move : {Move{0.5, -0.25}, Move{-1.375, 0.0}, Move{0.0, 2.0}}) {
    const quality::Image fused = Moved(kMs, 2.0, move);
    const double right = Measured<fusion::ReducedTile>(fused, move).errors.Rmse()[1];
    const double still = Measured<fusion::ReducedTile>(fused, {}).errors.Rmse()[1];
    const double wrong = Measured<fusion::ReducedTile>(fused, {-move.x, -move.y}).errors.Rmse()[1];
    EXPECT_LT(right, 0.5) << move.x << ' ' << move.y;
    EXPECT_GT(still, 5.0);
    EXPECT_GT(wrong, still);
  }
  // A truth that stays is compared as it is.
  EXPECT_EQ(Measured<fusion::ReducedTile>(Moved(kMs, 2.0, {}), {}).errors.Rmse()[0], 0.0);
}

TEST_F(AssessTileTest, TheImagesAreComparedWhereTheyWereMovedToAtFullResolution) {
  const Move move{1.5, -1.0};
  const quality::Image fused = Moved(2 * kMs, 1.0, move);
  const double right = Measured<fusion::FullTile>(fused, move).consistency.Value();
  const double still = Measured<fusion::FullTile>(fused, {}).consistency.Value();
  const double wrong = Measured<fusion::FullTile>(fused, {-move.x, -move.y}).consistency.Value();
  EXPECT_GT(right, 0.99);
  EXPECT_LT(still, right - 0.02);
  EXPECT_LT(wrong, still);
}

TEST_F(AssessTileTest, PanIsComparedWhereTheMultispectralImageWasMovedToAtFullResolution) {
  // Multispectral pixels that show what lies a step away, and a fused image that shows what pan does.
  const Move move{1.5, -1.0};
  Image ms = Read("ms.tif");
  for (std::size_t b = 0; b < 2; ++b) {
    for (int y = 0; y < kMs; ++y) {
      for (int x = 0; x < kMs; ++x) {
        ms.bands[b][static_cast<std::size_t>(y * kMs + x)] = Ground(b, 2 * x + 1.0 + move.x, 2 * y + 1.0 + move.y);
      }
    }
  }
  test_support::WriteImage(ms, m_folder.WidePath("ms.tif"), PDT_FLOAT64);
  const quality::Image fused = Moved(2 * kMs, 1.0, {});
  const double right = Measured<fusion::FullTile>(fused, move).noReference.DS();
  const double still = Measured<fusion::FullTile>(fused, {}).noReference.DS();
  EXPECT_LT(right, 0.02);
  EXPECT_GT(still, right + 0.02);
}

}  // namespace
