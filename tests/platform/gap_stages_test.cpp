// Stages that take samples without data for missing, and what marks those in a row of pixels and in an area.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "platform/processing/convolution.h"
#include "platform/processing/make_green_alg.h"
#include "platform/processing/outo_adjust_level.h"
#include "platform/processing/stretch_of_multi_band.h"
#include "platform/raster/pixel_type.h"
#include "platform/validity/gap_marks.h"
#include "platform/validity/raster_aoi.h"
#include "tests/support/gap_scene.h"

namespace {

using reference::Image;
using test_support::ReadMasked;

constexpr wchar_t kGapIn[] = L"/vsimem/gap_stage_in.tif";
constexpr wchar_t kGapOut[] = L"/vsimem/gap_stage_out.tif";
constexpr double kFill = -9999.0;

std::size_t At(const Image& image, int x, int y) {
  return static_cast<std::size_t>(y) * static_cast<std::size_t>(image.width) + static_cast<std::size_t>(x);
}

/// A random image with a hole, speckles, and a first row without data.
Image ImageWithGaps(int bands, double fill) {
  std::mt19937 random(11);
  Image image;
  image.width = 23;
  image.height = 40;
  for (int b = 0; b < bands; ++b) {
    image.bands.emplace_back();
    for (int y = 0; y < image.height; ++y) {
      for (int x = 0; x < image.width; ++x) {
        const double value = 1.0 + static_cast<double>(random() % 1000);
        const bool gap = y == 0 || (x > 8 && x < 14 && y > 10 && y < 30) || (x * 7 + y * 13 + b) % 29 == 0;
        image.bands.back().push_back(gap ? fill : value);
      }
    }
  }
  return image;
}

template <typename Record>
Record MakeRecord(PixelDataType type = PDT_FLOAT64) {
  Record record;
  record.m_strInFile = kGapIn;
  record.m_strOutFile = kGapOut;
  record.m_eOutDataType = type;
  record.m_bMaskNoData = true;
  return record;
}

template <typename Stage, typename Record>
Image RunStage(Record record) {
  Stage stage(&record);
  stage.Process();
  EXPECT_EQ(stage.GetLastErrorType(), 0);
  const auto output = ReadMasked(kGapOut);
  EXPECT_TRUE(output.declaresZero);
  return output.image;
}

/// The kernel over the samples with data; those without count as the mean of the others under it.
double Expected(const Image& image, const ConvolutionParam& kernel, int x, int y) {
  if (image.bands[0][At(image, x, y)] == kFill) return 0.0;
  std::vector<double> samples;
  for (int j = 0; j < kernel.m_nHeight; ++j) {
    for (int i = 0; i < kernel.m_nWidth; ++i) {
      samples.push_back(image.bands[0][At(image, std::clamp(x + i - kernel.m_nCenterX, 0, image.width - 1),
                                          std::clamp(y + j - kernel.m_nCenterY, 0, image.height - 1))]);
    }
  }
  double mean = 0.0;
  double count = 0.0;
  for (const double v : samples) {
    mean += v == kFill ? 0.0 : v;
    count += v == kFill ? 0.0 : 1.0;
  }
  mean /= count;
  double sum = 0.0;
  for (std::size_t k = 0; k < samples.size(); ++k) {
    sum += kernel.m_vecCoefficients[k] * kernel.m_dScale * (samples[k] == kFill ? mean : samples[k]);
  }
  return sum;
}

void ExpectConvolution(int width, int height, std::vector<double> coefficients) {
  const Image image = ImageWithGaps(1, kFill);
  test_support::WriteImage(image, kGapIn, PDT_FLOAT64, "", kFill);
  auto record = MakeRecord<ConvolutionParam>();
  record.m_nWidth = width;
  record.m_nHeight = height;
  record.m_nCenterX = width / 2;
  record.m_nCenterY = height / 2;
  record.m_dScale = 0.125;
  record.m_vecCoefficients = std::move(coefficients);
  const Image actual = RunStage<CConvolution>(record);
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      ASSERT_NEAR(actual.bands[0][At(image, x, y)], Expected(image, record, x, y), 1e-8) << x << ' ' << y;
    }
  }
}

TEST(GapStages, ConvolutionPutsTheMeanUnderTheKernelInThePlaceOfGaps) {
  ExpectConvolution(7, 7, std::vector<double>(49, 1.0));
  std::vector<double> highPass(25, -1.0);
  highPass[12] = 24.0;
  ExpectConvolution(5, 5, highPass);
  ExpectConvolution(3, 5, {1, 2, -3, 4, 0, 6, 7, -8, 9, 1, 5, 2, 4, 4, 1});
}

TEST(GapStages, ConvolutionFarFromGapsIsTheOrdinaryOneBitForBit) {
  Image image = ImageWithGaps(1, kFill);
  test_support::WriteImage(image, kGapIn, PDT_FLOAT64, "", kFill);
  auto record = MakeRecord<ConvolutionParam>();
  record.m_nWidth = record.m_nHeight = 3;
  record.m_nCenterX = record.m_nCenterY = 1;
  record.m_dScale = 1.0 / 9.0;
  record.m_vecCoefficients.assign(9, 1.0);
  const Image actual = RunStage<CConvolution>(record);
  record.m_bMaskNoData = false;
  CConvolution stage(&record);
  stage.Process();
  const Image ordinary = test_support::ReadImage(kGapOut);
  int far = 0;
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      bool gap = false;
      for (int k = 0; k < 9; ++k) {
        gap |= image.bands[0][At(image, std::clamp(x + k % 3 - 1, 0, 22), std::clamp(y + k / 3 - 1, 0, 39))] == kFill;
      }
      if (gap) continue;
      ++far;
      ASSERT_EQ(actual.bands[0][At(image, x, y)], ordinary.bands[0][At(image, x, y)]);
    }
  }
  EXPECT_GT(far, 100);
}

TEST(GapStages, StretchAndLevelsCountPixelsWithDataAndWriteNoZeroThere) {
  const double targets[] = {0.3, 2.0};
  const double spreads[] = {4.0, 100.0};
  for (const double fill : {kFill, 1e30}) {
    const Image image = ImageWithGaps(2, fill);
    test_support::WriteImage(image, kGapIn, PDT_FLOAT64, "", fill);
    auto stretch = MakeRecord<CStretchAlgorithmParam>(PDT_INT16);
    stretch.m_pMeans = targets;
    stretch.m_pStdDevs = spreads;
    const Image stretched = RunStage<CStretchOfMultiBand>(stretch);
    const Image leveled = RunStage<COutoAdjustLevel>(MakeRecord<OutoAdjustLevelParam>(PDT_UINT8));
    for (std::size_t b = 0; b < 2; ++b) {
      std::vector<double> data;
      for (const double v : image.bands[b]) {
        if (v != fill) data.push_back(v);
      }
      double mean = 0.0;
      for (const double v : data) mean += v / static_cast<double>(data.size());
      double squares = 0.0;
      for (const double v : data) squares += (v - mean) * (v - mean);
      const double deviation = std::sqrt(squares / static_cast<double>(data.size()));
      std::sort(data.begin(), data.end());
      const auto cut = static_cast<std::size_t>(0.01 * static_cast<double>(data.size()));
      const double low = data[cut];
      const double high = data[data.size() - 1 - cut];
      for (std::size_t i = 0; i < image.bands[b].size(); ++i) {
        const double v = image.bands[b][i];
        const double moved = std::floor((v - mean) / deviation * spreads[b] + targets[b] + 0.5);
        ASSERT_EQ(stretched.bands[b][i], v == fill ? 0.0 : moved == 0.0 ? 1.0 : moved);
        const double level = std::floor(std::clamp((v - low) / (high - low) * 255.0, 0.0, 255.0) + 0.5);
        ASSERT_EQ(leveled.bands[b][i], v == fill ? 0.0 : std::max(level, 1.0));
      }
    }
  }
}

TEST(GapStages, GreenIsMixedWhereBothBandsHaveData) {
  const Image image = ImageWithGaps(4, kFill);
  test_support::WriteImage(image, kGapIn, PDT_FLOAT64, "", kFill);
  const Image mixed = RunStage<CMakeGreenAlg>(MakeRecord<AlgorithmParam>());
  for (std::size_t i = 0; i < image.bands[1].size(); ++i) {
    const double green = image.bands[1][i];
    const double nearInfrared = image.bands[3][i];
    const double expected = green == kFill ? 0.0 : nearInfrared == kFill ? green : 0.9 * green + 0.1 * nearInfrared;
    ASSERT_EQ(mixed.bands[1][i], expected);
    ASSERT_EQ(mixed.bands[3][i], nearInfrared == kFill ? 0.0 : nearInfrared);
  }
}

TEST(GapMarks, ZeroMarksPixelsWithoutDataInEveryType) {
  const unsigned char valid[] = {1, 0, 1, 0, 1};
  for (int type = PDT_UINT8; type <= PDT_FLOAT64; ++type) {
    platform::DispatchPixelType(static_cast<PixelDataType>(type), [&](auto element) {
      using T = decltype(element);
      const T least = std::numeric_limits<T>::is_integer ? T{1} : std::numeric_limits<T>::min();
      T pixels[] = {T{0}, T{7}, T{9}, T{0}, std::numeric_limits<T>::max()};
      platform::StoreGaps(static_cast<PixelDataType>(type), valid, 5, pixels);
      const T expected[] = {least, T{0}, T{9}, T{0}, std::numeric_limits<T>::max()};
      EXPECT_TRUE(std::equal(pixels, pixels + 5, expected)) << type;
      T all[] = {T{0}, T{7}};
      platform::StoreGaps(static_cast<PixelDataType>(type), nullptr, 2, all);
      EXPECT_TRUE(all[0] == least && all[1] == T{7}) << type;
      return true;
    });
  }
}

TEST(GapMarks, AnyNanIsAGap) {
  std::vector<double> values(10000, 1.0);
  EXPECT_FALSE(platform::HasGap(values.data(), values.size()));
  values[9999] = std::nan("");
  EXPECT_TRUE(platform::HasGap(values.data(), values.size()));
  EXPECT_FALSE(platform::HasGap(values.data(), 9999));
  EXPECT_FALSE(platform::HasGap(values.data(), 0));
}

TEST(AreaWithoutBounds, LeavesOutWhatItIsToldTo) {
  CRasterAOI area;
  area.SetUnbounded();
  EXPECT_GT(area.GetCoveringRect().Area(), 1000000);
  ASSERT_EQ(area.ReadCacheAoiBuffer(5, 7, 3, 2), 3);
  EXPECT_TRUE(area.IsInAOI(5, 7));
  EXPECT_FALSE(area.IsInAOI(8, 7));
  const unsigned char some[] = {1, 0, 1, 1, 1, 1};
  EXPECT_EQ(area.Restrict(some), 1);
  EXPECT_FALSE(area.IsInAOI(6, 7));
  EXPECT_TRUE(area.IsInAOI(7, 7));
  const unsigned char others[] = {1, 1, 1, 0, 0, 0};
  EXPECT_EQ(area.Restrict(others), 1);
  EXPECT_FALSE(area.IsInAOI(6, 7));
  EXPECT_TRUE(area.IsInAOI(5, 7));
  EXPECT_FALSE(area.IsInAOI(5, 8));
  const unsigned char none[6] = {};
  EXPECT_EQ(area.Restrict(none), 0);
  EXPECT_EQ(area.ReadCacheAoiBuffer(5, 7, 3, 2), 3);
}

TEST(AreaWithoutBounds, RowsAreMarkedAsPixelsAre) {
  CRasterAOI area;
  area.SetUnbounded();
  using Marks = std::vector<unsigned char>;
  const auto marks = [&](int left, int row, int count) {
    Marks inside(static_cast<std::size_t>(count), 9);
    area.MarkRow(left, row, count, inside.data());
    for (int i = 0; i < count; ++i) {
      EXPECT_EQ(area.IsInAOI(left + i, row), inside[static_cast<std::size_t>(i)] == 1) << left + i << ' ' << row;
    }
    return inside;
  };
  area.ReadCacheAoiBuffer(5, 7, 3, 2);
  EXPECT_EQ(marks(4, 7, 5), (Marks{0, 1, 1, 1, 0})) << "the rectangle alone";
  EXPECT_EQ(marks(4, 6, 5), Marks(5, 0));
  EXPECT_EQ(marks(8, 7, 2), Marks(2, 0));
  const unsigned char some[] = {1, 1, 1, 0, 1, 0};
  area.Restrict(some);
  EXPECT_EQ(marks(3, 8, 6), (Marks{0, 0, 0, 1, 0, 0}));
  EXPECT_EQ(marks(6, 8, 1), Marks{1});
  EXPECT_EQ(marks(INT32_MAX - 1, 8, 1), Marks{0});
  EXPECT_EQ(marks(5, 9, 3), Marks(3, 0));
}

}  // namespace
