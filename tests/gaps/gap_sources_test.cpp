// Every way in which a file says what is missing is the same to a run.
#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>

#include "band_arithmetic/brovey_fusion.h"
#include "platform/raster/raster_algorithm.h"
#include "platform/utility/common_fun.h"
#include "tests/support/all_methods.h"
#include "tests/support/gap_scene.h"
#include "tests/support/test_raster.h"

namespace {

using test_support::AddMask;
using test_support::GapScene;
using test_support::GapShape;

using Dataset = std::unique_ptr<GDALDataset>;

Dataset Update(const std::wstring& path) {
  return Dataset(GDALDataset::Open(CommonFun::U2Utf8(path).c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
}

/// Writes the image with one more band, its alpha: 3 of 255 where there is something to see.
void WriteWithAlpha(reference::Image image, const std::wstring& path, const std::vector<bool>& gaps) {
  image.bands.emplace_back();
  for (const bool gap : gaps) image.bands.back().push_back(gap ? 0.0 : 3.0);
  test_support::WriteImage(image, path, PDT_FLOAT64);
  const Dataset file = Update(path);
  ASSERT_TRUE(file);
  file->GetRasterBand(file->GetRasterCount())->SetColorInterpretation(GCI_AlphaBand);
}

/// A scene whose multispectral bands all lack the same pixels, as mask and alpha have it.
class GapSources : public testing::Test {
 protected:
  GapSources() : m_gaps(3, GapShape::kHole, PDT_FLOAT64) {
    for (auto& gaps : m_gaps.msGaps) gaps = m_gaps.msGaps[0];
  }
  static constexpr double kGarbage = 77777.0;

  FusionParam Param() const {
    FusionParam param = m_gaps.scene.Param();
    param.m_bMaskNoData = true;
    return param;
  }
  void WriteMasked() const {
    m_gaps.Write(kGarbage, false);
    AddMask(m_gaps.scene.panFile, m_gaps.panGaps);
    AddMask(m_gaps.scene.msFile, m_gaps.msGaps[0]);
  }
  void WriteAlpha() const {
    WriteWithAlpha(m_gaps.Pan(kGarbage), m_gaps.scene.panFile, m_gaps.panGaps);
    WriteWithAlpha(m_gaps.Ms(kGarbage), m_gaps.scene.msFile, m_gaps.msGaps[0]);
  }

  GapScene m_gaps;
};

TEST_F(GapSources, MaskAlphaNanAndInfinitiesCountLikeADeclaredValue) {
  const FusionParam param = Param();
  for (const auto& method : test_support::AllMethods()) {
    SCOPED_TRACE(method.name);
    m_gaps.Write(-1.0);
    method.run(param);
    const auto expected = test_support::ReadMasked(param.m_strOutFile);
    ExpectMask(expected, m_gaps);
    for (const double fill : {std::nan(""), double{INFINITY}, double{-INFINITY}}) {
      m_gaps.Write(fill, false);
      method.run(param);
      test_support::ExpectEqual(test_support::ReadMasked(param.m_strOutFile).image, expected.image.bands);
    }
    WriteMasked();
    method.run(param);
    test_support::ExpectEqual(test_support::ReadMasked(param.m_strOutFile).image, expected.image.bands);
    if (method.name == "pca") continue;  // wants the choice of all bands
    WriteAlpha();
    method.run(param);
    test_support::ExpectEqual(test_support::ReadMasked(param.m_strOutFile).image, expected.image.bands);
  }
}

TEST_F(GapSources, WithoutTheModeMaskAndAlphaAreLookedAtByNobody) {
  FusionParam param = Param();
  param.m_bMaskNoData = false;
  m_gaps.Write(kGarbage, false);
  CBroveyFusion(&param).Process();
  const auto expected = test_support::ReadMasked(param.m_strOutFile);
  EXPECT_FALSE(expected.declaresZero);
  WriteMasked();
  CBroveyFusion(&param).Process();
  const auto masked = test_support::ReadMasked(param.m_strOutFile);
  EXPECT_FALSE(masked.declaresZero);
  test_support::ExpectEqual(masked.image, expected.image.bands);
  WriteAlpha();
  CBroveyFusion(&param).Process();
  EXPECT_EQ(test_support::ReadImage(param.m_strOutFile).bands.size(), 4U);
}

TEST_F(GapSources, AMaskingSourceReadsNanAndItsFiguresLeaveThemOut) {
  WriteMasked();
  CRasterSource source;
  ASSERT_TRUE(source.OpenSimple(m_gaps.scene.msFile));
  CRasterBand& band = *source.GetRasterBand(0);
  EXPECT_TRUE(band.HasMask());
  EXPECT_FALSE(band.IsAlpha());
  EXPECT_FALSE(band.MayHoldGaps());
  const auto figures = [&] {
    double minimum = 0, maximum = 0, mean = 0, stdDev = 0;
    EXPECT_TRUE(band.ComputeStatics(&minimum, &maximum, &mean, &stdDev, false, nullptr));
    return std::pair(maximum, mean);
  };
  EXPECT_EQ(figures().first, kGarbage);
  source.SetMaskNoData(true);
  EXPECT_TRUE(band.MayHoldGaps());
  double sum = 0;
  int count = 0;
  const auto& values = m_gaps.scene.ms.bands[0];
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (m_gaps.msGaps[0][i]) continue;
    sum += values[i];
    ++count;
  }
  EXPECT_EQ(figures().first, 201.0);
  EXPECT_NEAR(figures().second, sum / count, 1e-10);

  std::vector<double> row(static_cast<std::size_t>(source.GetWidth()));
  for (int y = 0; y < source.GetHeight(); ++y) {
    ASSERT_EQ(band.ReadBlock(0, y, source.GetWidth(), 1, row.data(), source.GetWidth(), 1, PDT_FLOAT64), 0);
    for (std::size_t x = 0; x < row.size(); ++x) {
      const std::size_t i = static_cast<std::size_t>(y) * row.size() + x;
      ASSERT_TRUE(m_gaps.msGaps[0][i] ? std::isnan(row[x]) : row[x] == values[i]);
    }
  }
  long long used = 0;
  double means[3], deviations[3], eigenvalues[3], components[9];
  ASSERT_TRUE(CRasterAlgorithm::ComputeStaticsFromAOI(&source, nullptr, used, means, deviations, eigenvalues,
                                                      components, false, nullptr));
  EXPECT_EQ(used, count);
  source.Close();
  ASSERT_TRUE(source.OpenSimple(m_gaps.scene.msFile));
  EXPECT_FALSE(source.IsMaskNoData());
}

TEST_F(GapSources, AlphaIsNoBandOfAMaskingRunAndADeclaredValueCountsBesideIt) {
  WriteAlpha();
  {
    const Dataset file = Update(m_gaps.scene.msFile);
    for (auto* band : file->GetBands()) band->SetNoDataValue(2.0);
  }
  CRasterSource source;
  ASSERT_TRUE(source.OpenSimple(m_gaps.scene.msFile));
  EXPECT_TRUE(source.GetRasterBand(3)->IsAlpha());
  EXPECT_FALSE(source.GetRasterBand(3)->HasMask());
  EXPECT_TRUE(source.GetRasterBand(1)->HasMask());
  source.SetMaskNoData(true);
  double minimum = 0, maximum = 0, mean = 0, stdDev = 0;
  ASSERT_TRUE(source.GetRasterBand(1)->ComputeStatics(&minimum, &maximum, &mean, &stdDev, false, nullptr));
  EXPECT_GT(minimum, 2.0);
  EXPECT_EQ(maximum, 201.0);
}

TEST(GapSourcesOfManyBands, OpacityIsLookedForOnce) {
  // At every band's asking all others were looked at: minutes for a file of a few kilobytes.
  constexpr int kBands = 65000;
  const std::wstring path = test_support::MemoryPath();
  GDALAllRegister();
  Dataset(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(CommonFun::U2Utf8(path).c_str(), 1, 1, kBands,
                                                                   GDT_Byte, nullptr));
  CRasterSource source;
  ASSERT_TRUE(source.OpenSimple(path));
  const auto start = std::chrono::steady_clock::now();
  for (int b = 0; b < kBands; ++b) EXPECT_FALSE(source.GetRasterBand(b)->HasMask());
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  source.Close();
  CRasterSource::DeleteFileW(path);
}

TEST_F(GapSources, ARotatedImagesNorthUpViewKeepsItsGaps) {
  double rotated[6] = {440000.0, 18.0, 6.0, 4470000.0, 6.0, -18.0};
  const auto expectWithoutGarbage = [&](const std::wstring& path, const char* what) {
    SCOPED_TRACE(what);
    {
      const Dataset file = Update(path);
      ASSERT_EQ(file->SetGeoTransform(rotated), CE_None);
    }
    CRasterSource source;
    ASSERT_TRUE(source.Open(path, GDA_READ, true));
    ASSERT_GT(source.GetWidth(), m_gaps.scene.ms.width);
    source.SetMaskNoData(true);
    double minimum = 0, maximum = 0, mean = 0, stdDev = 0;
    ASSERT_TRUE(source.GetRasterBand(0)->ComputeStatics(&minimum, &maximum, &mean, &stdDev, false, nullptr));
    EXPECT_LE(maximum, 201.0);
    EXPECT_GE(minimum, 2.0);
  };
  const std::wstring& path = m_gaps.scene.msFile;
  m_gaps.Write(kGarbage);
  expectWithoutGarbage(path, "declared value");
  m_gaps.Write(kGarbage, false);
  AddMask(path, m_gaps.msGaps[0]);
  expectWithoutGarbage(path, "mask");
  WriteWithAlpha(m_gaps.Ms(kGarbage), path, m_gaps.msGaps[0]);
  expectWithoutGarbage(path, "alpha");
}

TEST_F(GapSources, AMaskThatCannotBeReadIsAFailedRead) {
  // A mask in a file of its own whose compressed pixels are garbage.
  m_gaps.Write(kGarbage, false);
  const std::wstring maskFile = m_gaps.scene.msFile + L".msk";
  reference::Image mask = m_gaps.scene.ms;
  mask.bands = {std::vector<double>(mask.bands[0].size(), 255.0)};
  test_support::WriteImage(mask, maskFile, PDT_UINT8, "", std::nullopt, {"COMPRESS=DEFLATE"});
  vsi_l_offset offset = 0;
  {
    const Dataset file = Update(maskFile);
    file->SetMetadataItem("INTERNAL_MASK_FLAGS_1", "2");
    offset = static_cast<vsi_l_offset>(std::stoul(file->GetRasterBand(1)->GetMetadataItem("BLOCK_OFFSET_0_0", "TIFF")));
  }
  FusionParam param = Param();
  {
    CBroveyFusion fusion(&param);
    fusion.Process();
    EXPECT_EQ(fusion.GetLastErrorType(), 0);
  }
  const std::string name = CommonFun::U2Utf8(maskFile);
  VSILFILE* file = VSIFOpenL(name.c_str(), "rb+");
  const std::vector<unsigned char> garbage(12, 0xAA);
  VSIFSeekL(file, offset, SEEK_SET);
  VSIFWriteL(garbage.data(), 1, garbage.size(), file);
  VSIFCloseL(file);
  CBroveyFusion fusion(&param);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 2);
  VSIUnlink(name.c_str());
}

}  // namespace
