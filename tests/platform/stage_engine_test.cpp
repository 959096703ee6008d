// What every file-to-file stage shares when all goes well.
#include <gdal.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "tests/platform/row_sum_stage.h"

using namespace stage_test;

namespace {

std::size_t At(int column, int row, int width) {
  return static_cast<std::size_t>(row) * static_cast<std::size_t>(width) + static_cast<std::size_t>(column);
}

TEST_F(Stage, OutputLiesOnTheInputsGridWithItsProjection) {
  WriteImage(Numbers(7, 5, 2), kIn, PDT_UINT16, test_support::UtmWkt());
  const AlgorithmParam param = Param();
  RowSums stage(&param);
  stage.Process();
  ASSERT_EQ(stage.GetLastErrorType(), 0);
  CRasterSource in;
  CRasterSource out;
  ASSERT_TRUE(in.OpenSimple(kIn));
  ASSERT_TRUE(out.OpenSimple(kOut));
  EXPECT_EQ(out.GetWidth(), 7);
  EXPECT_EQ(out.GetHeight(), 5);
  EXPECT_EQ(out.GetBandCount(), 2);
  EXPECT_EQ(out.GetRasterDataType(), PDT_UINT16) << "the input's own type";
  EXPECT_EQ(out.GetSpatialReferenceWKT(), in.GetSpatialReferenceWKT());
  double a[6];
  double b[6];
  ASSERT_TRUE(in.GetGeoTransform(a) && out.GetGeoTransform(b));
  for (int i = 0; i < 6; ++i) EXPECT_EQ(a[i], b[i]);
  EXPECT_FALSE(out.GetRasterBand(0)->IsHaveNoData());
  EXPECT_EQ(ReadImage(kOut).bands, Numbers(7, 5, 2).bands);
}

TEST_F(Stage, ImageWithoutGeoreferenceStaysWithout) {
  Image image = Numbers(7, 5, 1);
  const double identity[6] = {0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
  std::copy_n(identity, 6, image.geoTransform);
  WriteImage(image, kIn, PDT_UINT16);
  const AlgorithmParam param = Param();
  RowSums stage(&param);
  stage.Process();
  CRasterSource out;
  ASSERT_TRUE(out.OpenSimple(kOut));
  EXPECT_FALSE(out.HasGeoTransform());
}

TEST_F(Stage, ARotatedImageIsSeenAsTheRecordSays) {
  Image image = Numbers(7, 5, 1);
  const double turned[6] = {440000.0, 8.0, 6.0, 4470000.0, 6.0, -8.0};
  std::copy_n(turned, 6, image.geoTransform);
  WriteImage(image, kIn, PDT_UINT16);
  AlgorithmParam param = Param();
  param.m_bOpenOption = false;
  RowSums asItLies(&param);
  asItLies.Process();
  const Image out = ReadImage(kOut);
  EXPECT_EQ(std::vector<double>(out.geoTransform, out.geoTransform + 6), std::vector<double>(turned, turned + 6));
  EXPECT_EQ(out.bands, image.bands);
  param.m_bOpenOption = true;
  RowSums northUp(&param);
  northUp.Process();
  EXPECT_EQ(ReadImage(kOut).geoTransform[2], 0.0);
}

TEST_F(Stage, RowsComeInOrderWithTheirHaloAcrossChunks) {
  // At most 512 rows at a time: three chunks.
  constexpr int kHeight = 1100;
  const Image image = Numbers(3, kHeight, 1);
  WriteImage(image, kIn, PDT_FLOAT64);
  const AlgorithmParam param = Param();
  for (const int halo : {0, 1, 15, 700}) {
    RowSums stage(&param);
    stage.halo = halo;
    stage.Process();
    ASSERT_EQ(stage.GetLastErrorType(), 0);
    std::vector<int> rows(kHeight);
    std::iota(rows.begin(), rows.end(), 0);
    EXPECT_EQ(stage.order, rows);
    const Image out = ReadImage(kOut);
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < 3; ++x) {
        double sum = 0.0;
        for (int r = y - halo; r <= y + halo; ++r) {
          sum += image.bands[0][At(x, std::clamp(r, 0, kHeight - 1), 3)];
        }
        ASSERT_EQ(out.bands[0][At(x, y, 3)], sum) << "halo " << halo << " row " << y;
      }
    }
  }
}

TEST_F(Stage, EveryRowIsReadOnceAndFewAtATime) {
  constexpr int kHeight = 3000;
  WriteImage(Numbers(2, kHeight, 1), kIn, PDT_FLOAT64);
  std::vector<int> reads(kHeight, 0);
  int highest = 0;
  platform::SetRasterFault([&](RasterOperation operation, const std::wstring&, int, const CRect& rect) {
    if (operation == RasterOperation::kRead) {
      for (int r = rect.top; r < rect.bottom; ++r) ++reads[static_cast<std::size_t>(r)];
    }
    if (operation == RasterOperation::kRead || operation == RasterOperation::kWrite) {
      highest = std::max(highest, rect.Height());
    }
    return false;
  });
  const AlgorithmParam param = Param();
  RowSums stage(&param);
  stage.halo = 15;
  stage.Process();
  EXPECT_EQ(reads, std::vector<int>(kHeight, 1));
  EXPECT_LE(highest, 512 + 15);
}

TEST_F(Stage, ProgressHasAStageForTheParametersAndOneForTheRows) {
  WriteImage(Numbers(3, 1100, 1), kIn, PDT_UINT16);
  const AlgorithmParam param = Param();
  RecordingProgress progress;
  RowSums stage(&param);
  stage.scans = 1;
  stage.SetProgress(&progress);
  stage.Process();
  const std::vector<std::wstring> expected = {L"Start 正在进行行求和... 100",
                                              L"Step 0 配置参数...",
                                              L"Start 正在进行行求和... 6",
                                              L"Step 1 处理中...",
                                              L"Step 2 处理中...",
                                              L"Step 3 处理中...",
                                              L"Step 4 处理中...",
                                              L"Step 5 处理中...",
                                              L"Step 6 处理中...",
                                              L"Finish"};
  EXPECT_EQ(progress.Calls(), expected);
}

TEST_F(Stage, ExistingOutputIsReplaced) {
  WriteImage(Numbers(7, 5, 2), kIn, PDT_UINT16);
  WriteImage(Numbers(50, 50, 4), kOut, PDT_FLOAT64);
  const AlgorithmParam param = Param();
  RowSums stage(&param);
  stage.Process();
  EXPECT_EQ(stage.GetLastErrorType(), 0);
  EXPECT_EQ(ReadImage(kOut).bands, Numbers(7, 5, 2).bands);
  ExpectNothingNewBut({L"stage_in.tif", L"stage_out.tif"});
}

TEST_F(Stage, BandCountTakesTheFirstBands) {
  WriteImage(Numbers(4, 3, 3), kIn, PDT_FLOAT64);
  AlgorithmParam param = Param();
  param.m_nOutBandCount = 2;
  RowSums(&param).Process();
  EXPECT_EQ(ReadImage(kOut).bands.size(), 2u);
  param.m_nOutBandCount = 4;
  RowSums stage(&param);
  stage.Process();
  EXPECT_EQ(stage.GetLastErrorType(), 2);
}

TEST_F(Stage, FormatFollowsTheRecordThenTheExtension) {
  WriteImage(Numbers(4, 3, 1), kIn, PDT_UINT8);
  AlgorithmParam param = Param();
  param.m_strOutFile = L"/vsimem/stage_out.img";
  const auto driver = [&] {
    RowSums(&param).Process();
    GDALDatasetH file = GDALOpen("/vsimem/stage_out.img", GA_ReadOnly);
    std::string name = file ? GDALGetDriverShortName(GDALGetDatasetDriver(file)) : "none";
    if (file) GDALClose(file);
    CRasterSource::DeleteFileW(param.m_strOutFile);
    return name;
  };
  EXPECT_EQ(driver(), "HFA");
  param.m_eOutFormat = kFormatGeoTiff;
  EXPECT_EQ(driver(), "GTiff");
}

TEST_F(Stage, RoundingGoesToTheNearestHalfUpThenClamps) {
  Image image = Numbers(8, 1, 1);
  image.bands[0] = {0.5, 1.5, 2.4999, -0.5, -0.6, 254.5, 255.5, 300.0};
  WriteImage(image, kIn, PDT_FLOAT64);
  AlgorithmParam param = Param();
  param.m_eOutDataType = PDT_UINT8;
  for (const bool round : {true, false}) {
    RowSums stage(&param);
    stage.round = round;
    stage.Process();
    const std::vector<double> rounded = {1, 2, 2, 0, 0, 255, 255, 255};
    const std::vector<double> truncated = {0, 1, 2, 0, 0, 254, 255, 255};
    EXPECT_EQ(ReadImage(kOut).bands[0], round ? rounded : truncated);
  }
  param.m_eOutDataType = PDT_INT16;
  RowSums stage(&param);
  stage.round = true;
  stage.Process();
  EXPECT_EQ(ReadImage(kOut).bands[0], (std::vector<double>{1, 2, 2, 0, -1, 255, 256, 300}));
  param.m_eOutDataType = PDT_FLOAT64;
  RowSums floats(&param);
  floats.round = true;
  floats.Process();
  EXPECT_EQ(ReadImage(kOut).bands, image.bands);
}

TEST_F(Stage, NoDataIsDeclaredWhereTheOutputTypeHoldsIt) {
  struct Case {
    double noData;
    PixelDataType type;
    bool declared;
  };
  for (const Case& c : {Case{7.0, PDT_UINT8, true}, Case{-9999.0, PDT_UINT8, false}, Case{-9999.0, PDT_INT16, true},
                        Case{0.5, PDT_INT32, false}, Case{-9999.0, PDT_FLOAT32, true}, Case{NAN, PDT_FLOAT32, true},
                        Case{NAN, PDT_UINT16, false}}) {
    WriteImage(Numbers(3, 3, 1), kIn, PDT_FLOAT64, "", c.noData);
    AlgorithmParam param = Param();
    param.m_eOutDataType = c.type;
    RowSums(&param).Process();
    CRasterSource out;
    ASSERT_TRUE(out.OpenSimple(kOut));
    EXPECT_EQ(out.GetRasterBand(0)->IsHaveNoData(), c.declared) << c.noData << " type " << c.type;
    if (c.declared) {
      EXPECT_TRUE(out.GetRasterBand(0)->IsNoData(c.noData));
    }
  }
}

// The triangle covers the pixels whose column plus row is at most 2.
TEST_F(Stage, PixelsOutsideTheAreaAreZeroAndNotScanned) {
  const Image image = Numbers(6, 4, 1);
  WriteImage(image, kIn, PDT_FLOAT64);
  test_support::WriteTriangle(kArea, {440000, 4470000}, {440035, 4470000}, {440000, 4469965});
  AlgorithmParam param = Param();
  param.m_strAoiFile = kArea;
  RowSums stage(&param);
  stage.useArea = true;
  stage.scans = 1;
  stage.Process();
  ASSERT_EQ(stage.GetLastErrorType(), 0);
  std::vector<double> inside;
  std::vector<double> expected;
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 6; ++x) {
      const double value = image.bands[0][At(x, y, 6)];
      const bool in = x + y <= 2;
      if (in) inside.push_back(value);
      expected.push_back(in ? value : 0.0);
    }
  }
  EXPECT_EQ(stage.scanned, inside);
  EXPECT_EQ(ReadImage(kOut).bands[0], expected);
}

}  // namespace
