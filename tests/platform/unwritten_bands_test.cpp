// Bands as stages would write them, against the files that the stages do write.
#include <gtest/gtest.h>

#include <random>

#include "platform/processing/convolution.h"
#include "platform/processing/filtered_band.h"
#include "platform/processing/make_green_alg.h"
#include "platform/processing/mixed_bands.h"
#include "platform/processing/unwritten_figures.h"
#include "platform/raster/read_window.h"
#include "tests/support/scene.h"

namespace {

using platform::BandFigures;
using reference::Image;

constexpr wchar_t kUnwrittenIn[] = L"/vsimem/unwritten_in.tif";
constexpr wchar_t kUnwrittenOut[] = L"/vsimem/unwritten_out.tif";

Image RandomImage(int width, int height, int bands, double share) {
  std::mt19937 random(13);
  Image image;
  image.width = width;
  image.height = height;
  for (int b = 0; b < bands; ++b) {
    image.bands.emplace_back(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    for (double& v : image.bands.back()) {
      v = static_cast<double>(random() % 4000);
      if (static_cast<double>(random() % 10000) < share * 10000.0) v = 7.0;
    }
  }
  return image;
}

template <typename Stage, typename Param>
void WriteStage(Param param, bool masked) {
  param.m_strInFile = kUnwrittenIn;
  param.m_strOutFile = kUnwrittenOut;
  param.m_eOutDataType = PDT_FLOAT32;
  param.m_bMaskNoData = masked;
  Stage stage(&param);
  stage.Process();
  ASSERT_TRUE(stage.Succeeded());
}

using Read = std::function<bool(const CRect& rect, double* values, bool& gaps)>;

/// Random rectangles have the samples of the file and tell of gaps as it does, and so have the figures, to the bit.
void ExpectFile(CRasterBand& file, const Read& read, double noData) {
  std::mt19937 random(5);
  const auto between = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
  for (int i = 0; i < 60; ++i) {
    const int left = between(0, file.GetWidth() - 1);
    const int top = between(0, file.GetHeight() - 1);
    const CRect rect(left, top, between(left + 1, std::min(left + 40, file.GetWidth())),
                     between(top + 1, std::min(top + 30, file.GetHeight())));
    std::vector<double> values(static_cast<std::size_t>(rect.Area()));
    std::vector<double> expected = values;
    bool gaps = true;
    bool expectedGaps = false;
    ASSERT_TRUE(read(rect, values.data(), gaps));
    ASSERT_EQ(file.ReadSamples(rect, expected.data(), expectedGaps), 0);
    EXPECT_EQ(gaps, expectedGaps);
    for (std::size_t k = 0; k < values.size(); ++k) {
      ASSERT_TRUE(values[k] == expected[k] || (values[k] != values[k] && expected[k] != expected[k])) << k;
    }
  }
  for (const bool ahead : {false, true}) {
    BandFigures figures(noData);
    const auto goesOn = [](std::int64_t, std::int64_t) { return true; };
    ASSERT_TRUE(platform::Measure({file.GetWidth(), file.GetHeight(), read}, ahead, nullptr, goesOn, figures));
    double minimum = 0.0;
    double maximum = 0.0;
    double mean = 0.0;
    double stdDev = 0.0;
    ASSERT_TRUE(file.ComputeStatics(&minimum, &maximum, &mean, &stdDev, true, nullptr));
    EXPECT_EQ(figures.Minimum(), minimum);
    EXPECT_EQ(figures.Maximum(), maximum);
    EXPECT_EQ(figures.Mean(), mean);
    EXPECT_EQ(figures.StdDev(), stdDev);
  }
}

TEST(UnwrittenBands, FilteredAreThoseOfTheConvolvedFile) {
  const platform::Kernel kernels[] = {{3, 3, 1, 1, {-1, -1, -1, -1, 8, -1, -1, -1, -1}},
                                      {3, 2, 0, 1, {0.5, -1.0, 0.25, 2.0, -0.75, 1.5}},
                                      {9, 1, 8, 0, std::vector<double>(9, 0.125)}};
  // The second one has strips of several rows and more than one window of them.
  for (const auto& [width, height] : {std::pair{1300, 70}, {301, 3600}}) {
    for (const bool masked : {false, true}) {
      SCOPED_TRACE(testing::Message() << width << (masked ? ", masked" : ""));
      test_support::WriteImage(RandomImage(width, height, 1, masked ? 0.002 : 0.0), kUnwrittenIn, PDT_UINT16, "", 7.0);
      for (const platform::Kernel& kernel : kernels) {
        ConvolutionParam param;
        param.m_dScale = 0.3;
        param.m_vecCoefficients = kernel.coefficients;
        param.m_nWidth = kernel.width;
        param.m_nHeight = kernel.height;
        param.m_nCenterX = kernel.centerX;
        param.m_nCenterY = kernel.centerY;
        WriteStage<CConvolution>(param, masked);
        CRasterSource input;
        CRasterSource file;
        ASSERT_TRUE(input.OpenSimple(kUnwrittenIn) && file.OpenSimple(kUnwrittenOut));
        input.SetMaskNoData(masked);
        file.SetMaskNoData(masked);
        const platform::FilteredBand filtered(input, 0, *platform::MakeKernel(kernel, 0.3));
        ExpectFile(
            *file.GetRasterBand(0),
            [&](const CRect& rect, double* values, bool& gaps) { return filtered.Read(rect, values, gaps); },
            std::numeric_limits<double>::quiet_NaN());
        EXPECT_EQ(file.GetBlockYSize(), platform::StripRows(width, height, 4));
      }
    }
  }
  for (const wchar_t* path : {kUnwrittenIn, kUnwrittenOut}) CRasterSource::DeleteFileW(path);
}

TEST(UnwrittenBands, MixedAreThoseOfTheMixedFile) {
  for (const bool masked : {false, true}) {
    SCOPED_TRACE(masked);
    test_support::WriteImage(RandomImage(301, 3600, 5, 0.002), kUnwrittenIn, PDT_UINT16, "", 7.0);
    WriteStage<CMakeGreenAlg>(AlgorithmParam(), masked);
    CRasterSource input;
    CRasterSource file;
    ASSERT_TRUE(input.OpenSimple(kUnwrittenIn) && file.OpenSimple(kUnwrittenOut));
    input.SetMaskNoData(masked);
    file.SetMaskNoData(masked);
    const platform::MixedBands mixed(input);
    for (int b = 0; b < 5; ++b) {
      ExpectFile(
          *file.GetRasterBand(b),
          [&](const CRect& rect, double* values, bool& gaps) { return mixed.Read(b, rect, values, gaps); },
          mixed.NoDataSample());
    }
  }
  for (const wchar_t* path : {kUnwrittenIn, kUnwrittenOut}) CRasterSource::DeleteFileW(path);
}

}  // namespace
