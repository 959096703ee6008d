#include "platform/processing/convolution.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "tests/support/scene.h"

namespace {

using reference::Image;
using test_support::FileExists;
using test_support::ReadImage;
using test_support::WriteImage;

constexpr wchar_t kConvolutionIn[] = L"/vsimem/convolution_in.tif";
constexpr wchar_t kConvolutionOut[] = L"/vsimem/convolution_out.tif";

std::size_t At(int column, int row, int width) {
  return static_cast<std::size_t>(row) * static_cast<std::size_t>(width) + static_cast<std::size_t>(column);
}

Image RandomImage(int width, int height, int bands, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> value(-500.0, 4000.0);
  Image image;
  image.width = width;
  image.height = height;
  for (int b = 0; b < bands; ++b) {
    image.bands.emplace_back(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    for (double& v : image.bands.back()) v = value(random);
  }
  return image;
}

ConvolutionParam Param(int width, int height, std::vector<double> coefficients, double scale = 1.0) {
  ConvolutionParam param;
  param.m_strAlgName = L"卷积处理";
  param.m_strInFile = kConvolutionIn;
  param.m_strOutFile = kConvolutionOut;
  param.m_eOutDataType = PDT_FLOAT64;
  param.m_dScale = scale;
  param.m_vecCoefficients = std::move(coefficients);
  param.m_nWidth = width;
  param.m_nHeight = height;
  param.m_nCenterX = width / 2;
  param.m_nCenterY = height / 2;
  return param;
}

/// The plain sum at one pixel, and the sum of the absolute terms.
std::pair<double, double> PlainSum(const Image& image, const ConvolutionParam& param, int x, int y) {
  long double sum = 0;
  long double absolute = 0;
  for (int j = 0; j < param.m_nHeight; ++j) {
    for (int i = 0; i < param.m_nWidth; ++i) {
      const int column = std::clamp(x + i - param.m_nCenterX, 0, image.width - 1);
      const int row = std::clamp(y + j - param.m_nCenterY, 0, image.height - 1);
      const long double term = static_cast<long double>(param.m_vecCoefficients[At(i, j, param.m_nWidth)]) *
                               param.m_dScale *
                               image.bands[static_cast<std::size_t>(param.m_nBand)][At(column, row, image.width)];
      sum += term;
      absolute += std::abs(term);
    }
  }
  return {static_cast<double>(sum), static_cast<double>(absolute)};
}

void ExpectPlainSum(const Image& image, ConvolutionParam param) {
  WriteImage(image, kConvolutionIn, PDT_FLOAT64);
  CConvolution convolution(&param);
  convolution.Process();
  ASSERT_EQ(convolution.GetLastErrorType(), 0);
  const Image out = ReadImage(kConvolutionOut);
  ASSERT_EQ(out.bands.size(), 1u);
  ASSERT_EQ(out.width, image.width);
  ASSERT_EQ(out.height, image.height);
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      const auto [sum, absolute] = PlainSum(image, param, x, y);
      ASSERT_NEAR(out.bands[0][At(x, y, image.width)], sum, 1e-9 * absolute) << "column " << x << " row " << y;
    }
  }
}

std::vector<double> Constant(int count, double value) {
  std::vector<double> coefficients(static_cast<std::size_t>(count), value);
  return coefficients;
}

std::vector<double> HighPass(int n, double center) {
  std::vector<double> coefficients = Constant(n * n, -1.0);
  coefficients[static_cast<std::size_t>(n * n / 2)] = center;
  return coefficients;
}

std::vector<double> Random(int count, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> value(-1.0, 1.0);
  std::vector<double> coefficients;
  coefficients.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) coefficients.push_back(value(random));
  return coefficients;
}

class Convolution : public testing::Test {
 protected:
  ~Convolution() override {
    CRasterSource::DeleteFileW(kConvolutionIn);
    CRasterSource::DeleteFileW(kConvolutionOut);
  }
};

TEST_F(Convolution, SevenBySevenMeanRepeatsTheEdge) {
  // A ramp along x: the mean of seven columns clamped to 0..3, worked out by hand.
  Image image;
  image.width = 4;
  image.height = 1;
  image.bands = {{0, 7, 14, 21}};
  WriteImage(image, kConvolutionIn, PDT_UINT8);
  ConvolutionParam param = Param(7, 7, Constant(49, 1.0), 1.0 / 49.0);
  CConvolution convolution(&param);
  convolution.Process();
  const Image out = ReadImage(kConvolutionOut);
  ASSERT_EQ(out.bands.size(), 1u);
  // Column 0 sees 0 0 0 0 7 14 21, column 1 0 0 0 7 14 21 21 and so on.
  const double expected[] = {6.0, 9.0, 12.0, 15.0};
  for (std::size_t x = 0; x < 4; ++x) EXPECT_NEAR(out.bands[0][x], expected[x], 1e-12);
}

TEST_F(Convolution, IsACorrelationNotAMirroredConvolution) {
  Image image;
  image.width = 3;
  image.height = 3;
  image.bands = {{0, 0, 0, 0, 1, 0, 0, 0, 0}};
  WriteImage(image, kConvolutionIn, PDT_FLOAT64);
  ConvolutionParam param = Param(3, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9});
  CConvolution convolution(&param);
  convolution.Process();
  EXPECT_EQ(ReadImage(kConvolutionOut).bands[0], (std::vector<double>{9, 8, 7, 6, 5, 4, 3, 2, 1}));
}

TEST_F(Convolution, ConstantKernels) {
  const Image image = RandomImage(53, 47, 1, 1);
  for (const int n : {1, 3, 5, 7, 31}) ExpectPlainSum(image, Param(n, n, Constant(n * n, 1.0), 1.0 / (n * n)));
  ExpectPlainSum(image, Param(9, 3, Constant(27, -2.5)));
}

TEST_F(Convolution, HighPassKernels) {
  const Image image = RandomImage(61, 40, 1, 2);
  for (const int n : {3, 5, 9, 15, 31}) ExpectPlainSum(image, Param(n, n, HighPass(n, n * n - 1.0), 1.0 / (n * n)));
}

TEST_F(Convolution, KernelsWhoseCentreWouldCancelOut) {
  Image image = RandomImage(30, 30, 1, 3);
  image.bands[0][15 * 30 + 15] = 1e200;
  for (const double center : {0.0, 1e-3, 1e-9, -1.0}) ExpectPlainSum(image, Param(5, 5, HighPass(5, center)));
}

TEST_F(Convolution, SeparableKernels) {
  const Image image = RandomImage(45, 50, 1, 4);
  const std::vector<double> gauss = {1, 6, 15, 20, 15, 6, 1};
  std::vector<double> product;
  for (const double u : gauss) {
    for (const double v : gauss) product.push_back(u * v);
  }
  ExpectPlainSum(image, Param(7, 7, product, 1.0 / 4096.0));
  const std::vector<double> column = Random(5, 9);
  const std::vector<double> row = Random(11, 10);
  product.clear();
  for (const double u : column) {
    for (const double v : row) product.push_back(u * v);
  }
  ExpectPlainSum(image, Param(11, 5, product));
  ExpectPlainSum(image, Param(3, 3, {-1, 0, 1, -2, 0, 2, -1, 0, 1}));
}

TEST_F(Convolution, AnyOtherKernel) {
  const Image image = RandomImage(40, 37, 1, 5);
  for (const int n : {1, 3, 5, 13, 31}) ExpectPlainSum(image, Param(n, n, Random(n * n, static_cast<unsigned>(n))));
  ExpectPlainSum(image, Param(31, 1, Random(31, 6)));
  ExpectPlainSum(image, Param(1, 31, Random(31, 7)));
  ExpectPlainSum(image, Param(3, 3, {0, -1, 0, -1, 5, -1, 0, -1, 0}));
  ExpectPlainSum(image, Param(3, 3, {0, 0, 0, 0, 1, 0, 0, 0, 0}));
}

TEST_F(Convolution, CentreMayLieAnywhere) {
  const Image image = RandomImage(25, 31, 1, 8);
  for (const auto& coefficients : {Random(35, 12), Constant(35, 0.5)}) {
    for (const auto& [x, y] : {std::pair{0, 0}, {6, 4}, {0, 4}, {2, 1}}) {
      ConvolutionParam param = Param(7, 5, coefficients);
      param.m_nCenterX = x;
      param.m_nCenterY = y;
      ExpectPlainSum(image, param);
    }
  }
}

TEST_F(Convolution, ImagesSmallerThanTheKernel) {
  for (const auto& [width, height] : {std::pair{1, 1}, {2, 9}, {9, 2}, {1, 40}, {40, 1}}) {
    const Image image = RandomImage(width, height, 1, 11);
    ExpectPlainSum(image, Param(31, 31, Constant(961, 1.0)));
    ExpectPlainSum(image, Param(31, 31, HighPass(31, 960.0)));
    ExpectPlainSum(image, Param(31, 31, Random(961, 13)));
  }
}

TEST_F(Convolution, RowsOnBothSidesOfAChunkBorderAreFiltered) {
  // Chunks have at most 512 rows.
  const Image image = RandomImage(5, 1300, 1, 14);
  ExpectPlainSum(image, Param(7, 7, Constant(49, 1.0 / 49.0)));
  ExpectPlainSum(image, Param(3, 31, Random(93, 15)));
}

TEST_F(Convolution, RowsBelowAChunkAreThoseThatTheCentreLeavesBelow) {
  const Image image = RandomImage(3, 1100, 1, 22);
  for (const int center : {0, 4}) {
    ConvolutionParam param = Param(1, 5, Random(5, 23));
    param.m_nCenterY = center;
    ExpectPlainSum(image, param);
  }
}

TEST_F(Convolution, KernelsThatAreAlmostSeparableKeepTheirDifference) {
  std::vector<double> coefficients = Constant(25, 1.0);
  coefficients[1] = 1.0 + 1e-6;
  const Image image = RandomImage(20, 15, 1, 24);
  ExpectPlainSum(image, Param(5, 5, coefficients));
}

TEST_F(Convolution, OneHugeValueSpoilsNoPixelBeyondItsReach) {
  Image image = RandomImage(60, 60, 1, 16);
  const Image clean = image;
  image.bands[0][30 * 60 + 30] = 1e300;
  for (const auto& coefficients : {Constant(49, 1.0), HighPass(7, 48.0), Random(49, 17)}) {
    ConvolutionParam param = Param(7, 7, coefficients);
    std::vector<double> results[2];
    for (const bool huge : {false, true}) {
      WriteImage(huge ? image : clean, kConvolutionIn, PDT_FLOAT64);
      CConvolution convolution(&param);
      convolution.Process();
      results[huge] = ReadImage(kConvolutionOut).bands[0];
    }
    for (int y = 0; y < 60; ++y) {
      for (int x = 0; x < 60; ++x) {
        if (std::abs(x - 30) <= 3 && std::abs(y - 30) <= 3) continue;
        const auto i = At(x, y, 60);
        ASSERT_EQ(results[0][i], results[1][i]) << "column " << x << " row " << y;
      }
    }
  }
}

TEST_F(Convolution, ChosenBandGoesToOneFloatBand) {
  const Image image = RandomImage(20, 10, 3, 18);
  WriteImage(image, kConvolutionIn, PDT_FLOAT64);
  ConvolutionParam param = Param(1, 1, {2.0});
  param.m_nBand = 2;
  param.m_eOutDataType = PDT_UNKNOWN;
  CConvolution convolution(&param);
  convolution.Process();
  CRasterSource out;
  ASSERT_TRUE(out.OpenSimple(kConvolutionOut));
  EXPECT_EQ(out.GetBandCount(), 1);
  EXPECT_EQ(out.GetRasterDataType(), PDT_FLOAT32);
  const Image read = ReadImage(kConvolutionOut);
  for (std::size_t i = 0; i < read.bands[0].size(); ++i) {
    EXPECT_EQ(read.bands[0][i], static_cast<double>(static_cast<float>(2.0 * image.bands[2][i])));
  }
}

TEST_F(Convolution, IntegerTypesTruncateAndClamp) {
  Image image;
  image.width = 4;
  image.height = 1;
  image.bands = {{3, 200, -5, 1}};
  WriteImage(image, kConvolutionIn, PDT_INT16);
  ConvolutionParam param = Param(1, 1, {1.5});
  param.m_eOutDataType = PDT_UINT8;
  CConvolution convolution(&param);
  convolution.Process();
  EXPECT_EQ(ReadImage(kConvolutionOut).bands[0], (std::vector<double>{4, 255, 0, 1}));
}

TEST_F(Convolution, KernelsThatMakeNoSenseAreRefused) {
  WriteImage(RandomImage(8, 8, 1, 19), kConvolutionIn, PDT_FLOAT64);
  std::vector<ConvolutionParam> refused = {Param(3, 3, Constant(8, 1.0)),
                                           Param(3, 3, {}),
                                           Param(0, 0, {}),
                                           Param(33, 1, Constant(33, 1.0)),
                                           Param(1, 33, Constant(33, 1.0)),
                                           Param(-3, -3, Constant(9, 1.0)),
                                           Param(3, 3, Constant(9, NAN)),
                                           Param(3, 3, Constant(9, 1e300), 1e300)};
  for (const auto& [x, y] : {std::pair{-1, 0}, {3, 0}, {0, -1}, {0, 3}}) {
    refused.push_back(Param(3, 3, Constant(9, 1.0)));
    refused.back().m_nCenterX = x;
    refused.back().m_nCenterY = y;
  }
  for (ConvolutionParam& param : refused) {
    CConvolution convolution(&param);
    convolution.Process();
    EXPECT_NE(convolution.GetLastErrorType(), 0);
    EXPECT_FALSE(convolution.GetLastErrorMessage().empty());
    EXPECT_FALSE(FileExists(kConvolutionOut));
  }
}

TEST_F(Convolution, MissingBandFailsLikeARead) {
  WriteImage(RandomImage(8, 8, 1, 20), kConvolutionIn, PDT_FLOAT64);
  for (const int band : {-1, 1}) {
    ConvolutionParam param = Param(3, 3, Constant(9, 1.0));
    param.m_nBand = band;
    CConvolution convolution(&param);
    convolution.Process();
    EXPECT_EQ(convolution.GetLastErrorType(), 2);
    EXPECT_EQ(convolution.GetLastErrorMessage(), L"读取数据失败！");
  }
}

TEST_F(Convolution, PlainRecordIsRefused) {
  WriteImage(RandomImage(8, 8, 1, 21), kConvolutionIn, PDT_FLOAT64);
  AlgorithmParam param;
  param.m_strInFile = kConvolutionIn;
  param.m_strOutFile = kConvolutionOut;
  CConvolution convolution(&param);
  convolution.Process();
  EXPECT_NE(convolution.GetLastErrorType(), 0);
}

}  // namespace
