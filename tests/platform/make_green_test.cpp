#include <gtest/gtest.h>

#include <cmath>

#include "platform/processing/make_green_alg.h"
#include "tests/support/scene.h"

namespace {

using reference::Image;
using test_support::ReadImage;
using test_support::WriteImage;

constexpr wchar_t kGreenIn[] = L"/vsimem/green_in.tif";
constexpr wchar_t kGreenOut[] = L"/vsimem/green_out.tif";

class MakeGreen : public testing::Test {
 protected:
  ~MakeGreen() override {
    CRasterSource::DeleteFileW(kGreenIn);
    CRasterSource::DeleteFileW(kGreenOut);
  }

  /// Writes one row of pixels, runs the stage and answers its output.
  static Image Run(const std::vector<std::vector<double>>& bands, PixelDataType type,
                   std::optional<double> noData = std::nullopt, PixelDataType outType = PDT_UNKNOWN) {
    Image image;
    image.width = static_cast<int>(bands.front().size());
    image.height = 1;
    image.bands = bands;
    WriteImage(image, kGreenIn, type, "", noData);
    AlgorithmParam param;
    param.m_strInFile = kGreenIn;
    param.m_strOutFile = kGreenOut;
    param.m_eOutDataType = outType;
    CMakeGreenAlg green(&param);
    green.Process();
    EXPECT_EQ(green.GetLastErrorType(), 0);
    return ReadImage(kGreenOut);
  }
};

TEST_F(MakeGreen, MixesATenthOfNearInfraredIntoGreen) {
  const Image out = Run({{1, 2}, {10, 20}, {5, 6}, {100, 50}, {7, 8}}, PDT_FLOAT64);
  ASSERT_EQ(out.bands.size(), 5u);
  EXPECT_EQ(out.bands[0], (std::vector<double>{1, 2}));
  EXPECT_NEAR(out.bands[1][0], 19.0, 1e-12);
  EXPECT_NEAR(out.bands[1][1], 23.0, 1e-12);
  EXPECT_EQ(out.bands[2], (std::vector<double>{5, 6}));
  EXPECT_EQ(out.bands[3], (std::vector<double>{100, 50}));
  EXPECT_EQ(out.bands[4], (std::vector<double>{7, 8}));
}

TEST_F(MakeGreen, FewerThanFourBandsAreCopied) {
  const std::vector<std::vector<double>> bands = {{1, 2}, {10, 20}, {5, 6}};
  EXPECT_EQ(Run(bands, PDT_UINT16).bands, bands);
  EXPECT_EQ(Run({{9, 8}}, PDT_UINT8).bands, (std::vector<std::vector<double>>{{9, 8}}));
}

TEST_F(MakeGreen, LeavesGreenAloneWhereEitherBandIsNoData) {
  const Image out = Run({{0, 1, 1, 0}, {0, 0, 20, 20}, {1, 1, 1, 1}, {90, 0, 0, 40}}, PDT_FLOAT32, 0.0);
  EXPECT_EQ(out.bands[1][0], 0.0);
  EXPECT_EQ(out.bands[1][1], 0.0);
  EXPECT_EQ(out.bands[1][2], 20.0);
  EXPECT_NEAR(out.bands[1][3], 22.0, 1e-5);
  EXPECT_EQ(out.bands[0], (std::vector<double>{0, 1, 1, 0}));
  CRasterSource file;
  ASSERT_TRUE(file.OpenSimple(kGreenOut));
  EXPECT_TRUE(file.GetRasterBand(1)->IsNoData(0.0));
}

TEST_F(MakeGreen, NanIsNotMixed) {
  const Image out = Run({{1, 1}, {NAN, 20}, {1, 1}, {40, NAN}}, PDT_FLOAT64);
  EXPECT_TRUE(std::isnan(out.bands[1][0]));
  EXPECT_EQ(out.bands[1][1], 20.0);
}

TEST_F(MakeGreen, WritesTheTypeOfTheRecord) {
  const Image out = Run({{1}, {11}, {1}, {30}}, PDT_UINT8, std::nullopt, PDT_FLOAT32);
  EXPECT_NEAR(out.bands[1][0], 12.9, 1e-6);
  EXPECT_EQ(Run({{1}, {11}, {1}, {30}}, PDT_UINT8).bands[1][0], 12.0) << "integer types truncate";
}

}  // namespace
