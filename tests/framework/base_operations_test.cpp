// The base's operations by themselves, as a derived class calls them.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "framework/fusion.h"
#include "platform/raster/raster_fault.h"
#include "platform/utility/log.h"
#include "tests/support/method_sweep.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"
#include "tests/support/test_raster.h"

namespace {

using test_support::MemoryPath;
using test_support::ReadImage;
using test_support::RecordingProgress;
using test_support::Scene;
using test_support::SceneOptions;

class OperationsProbe : public CFusion {
 public:
  using CFusion::CFusion;
  void** AlgorithmProcess(double*, CRect*, double**, int, CRect*, PixelDataType, int, CRect*, CRasterAOI*) override {
    return nullptr;
  }
  using CFusion::m_param;
  using CFusion::m_pDstSrc;
  using CFusion::m_pMeans;
  using CFusion::m_pMSSrc;
  using CFusion::m_pPanSrc;
  using CFusion::m_pReproject;
  using CFusion::m_pStdDevs;
  using CFusion::m_strTempFile;
};

void Create(CRasterSource& source, int width, int height, int bands, PixelDataType type,
            const double (&transform)[6] = {0.0, 1.0, 0.0, 0.0, 0.0, -1.0}) {
  ASSERT_TRUE(source.CreateRaster(kFormatGeoTiff, MemoryPath(), width, height, bands, type, transform, L"", nullptr));
}

std::pair<int, int> BlockSize(OperationsProbe& probe) {
  int width = -7;
  int height = 99999;
  probe.GetBlockSize(width, height);
  return {width, height};
}

TEST(BlockSize, IsWholePanRows512AtATime) {
  OperationsProbe probe(nullptr);
  CRasterSource pan;
  Create(pan, 3000, 700, 1, PDT_UINT8);
  probe.m_pPanSrc = &pan;
  EXPECT_EQ(BlockSize(probe), std::make_pair(3000, 512));
}

TEST(BlockSize, IsASquareWithoutAPanImage) {
  OperationsProbe probe(nullptr);
  EXPECT_EQ(BlockSize(probe), std::make_pair(1024, 1024));
  CRasterSource closed;
  probe.m_pPanSrc = &closed;
  probe.m_pDstSrc = &closed;
  EXPECT_EQ(BlockSize(probe), std::make_pair(1024, 1024));
}

TEST(BlockSize, IsCutToTheOutput) {
  OperationsProbe probe(nullptr);
  CRasterSource pan;
  CRasterSource narrow;
  CRasterSource low;
  Create(pan, 3000, 700, 1, PDT_UINT8);
  Create(narrow, 40, 2000, 1, PDT_UINT8);
  Create(low, 5000, 30, 1, PDT_UINT8);
  probe.m_pDstSrc = &narrow;
  EXPECT_EQ(BlockSize(probe), std::make_pair(40, 1024));
  probe.m_pDstSrc = &low;
  EXPECT_EQ(BlockSize(probe), std::make_pair(1024, 30));
  probe.m_pPanSrc = &pan;
  EXPECT_EQ(BlockSize(probe), std::make_pair(3000, 30));
  probe.m_pDstSrc = &narrow;
  EXPECT_EQ(BlockSize(probe), std::make_pair(40, 512));
}

class ReadRectangle : public testing::Test {
 protected:
  ReadRectangle() {
    // Output pixels of 1 m from (1000, 2000); multispectral ones of 4 m from (900, 2200): 100 columns and 50 rows
    // farther out at the upper left.
    Create(dst, 400, 300, 1, PDT_UINT8, {1000.0, 1.0, 0.0, 2000.0, 0.0, -1.0});
    Create(ms, 200, 160, 1, PDT_UINT8, {900.0, 4.0, 0.0, 2200.0, 0.0, -4.0});
    probe.m_pDstSrc = &dst;
    probe.m_pMSSrc = &ms;
  }
  CRect Of(CRect block) {
    CRect rect(-1, -1, -1, -1);
    EXPECT_TRUE(probe.GetReadBufferRect(&block, &rect));
    return rect;
  }
  OperationsProbe probe{nullptr};
  CRasterSource dst;
  CRasterSource ms;
};

TEST_F(ReadRectangle, HasTenPixelsOfMarginOnEverySide) {
  // Ground 1040..1080 by 1980..1960 is columns 35..45 and rows 55..60.
  EXPECT_EQ(Of({40, 20, 80, 40}), CRect(25, 45, 55, 70));
  // Parts of a pixel count whole: ground 1041..1082 by 1979..1958.
  EXPECT_EQ(Of({41, 21, 82, 42}), CRect(25, 45, 56, 71));
}

TEST_F(ReadRectangle, EndsWhereTheImageDoes) {
  const double far[] = {880.0, 1.0, 0.0, 2210.0, 0.0, -1.0};
  CRasterSource before;
  Create(before, 900, 700, 1, PDT_UINT8, far);
  probe.m_pDstSrc = &before;
  EXPECT_EQ(Of({0, 0, 60, 30}), CRect(0, 0, 20, 15));
  EXPECT_EQ(Of({790, 630, 900, 700}), CRect(182, 145, 200, 160));
}

TEST_F(ReadRectangle, UnderReprojectionIsTheReprojectionsOwn) {
  test_support::ReprojectedScene reprojected(21);
  const Scene& scene = reprojected.Base();
  CRasterSource pan;
  CRasterSource degrees;
  ASSERT_TRUE(pan.OpenSimple(scene.panFile));
  ASSERT_TRUE(degrees.OpenSimple(scene.msFile));
  const std::unique_ptr<CReproject> reproject(
      CReproject::Create(&degrees, pan.GetSpatialReferenceWKT(), nullptr, nullptr));
  ASSERT_TRUE(reproject);
  probe.m_pReproject = reproject.get();
  probe.m_pDstSrc = &pan;
  probe.m_pMSSrc = &degrees;
  CRect expected;
  ASSERT_TRUE(reproject->GetInImgEnveFromGeoOut(pan.ImageToGround(CRect(30, 22, 35, 26)), expected, 0.0, 0.0));
  EXPECT_EQ(Of({30, 22, 35, 26}), expected);
  // A block far from the image gets a rectangle that fails as a read.
  EXPECT_EQ(Of({100000, 0, 100010, 10}).Area(), 0);
}

class WriteOperation : public testing::Test {
 protected:
  ~WriteOperation() override { platform::SetRasterFault({}); }
  OperationsProbe probe{nullptr};
};

TEST_F(WriteOperation, WritesEachBandInItsOwnTypeOverTheRectangle) {
  CRasterSource dst;
  Create(dst, 5, 4, 2, PDT_INT16);
  const std::wstring path = dst.GetPath();
  std::vector<std::int16_t> first{1, -2, 3, -4, 5, -6};
  std::vector<std::int16_t> second{10, 20, 30, 40, 50, 60};
  void* bands[] = {first.data(), second.data()};
  CRect rect(1, 2, 4, 4);
  probe.m_param.m_eOutDataType = PDT_FLOAT64;
  EXPECT_EQ(probe.WriteBlock(&dst, 2, &rect, bands), 0);
  ASSERT_TRUE(dst.Close());
  const auto image = ReadImage(path);
  EXPECT_EQ(image.bands[0], (std::vector<double>{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, -2, 3, 0, 0, -4, 5, -6, 0}));
  EXPECT_EQ(image.bands[1], (std::vector<double>{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 10, 20, 30, 0, 0, 40, 50, 60, 0}));
}

TEST_F(WriteOperation, EndsAtTheFirstBandThatFails) {
  CRasterSource dst;
  Create(dst, 2, 2, 3, PDT_UINT8);
  std::vector<unsigned char> values(4, 9);
  void* bands[] = {values.data(), values.data(), values.data()};
  CRect rect(0, 0, 2, 2);
  std::vector<int> asked;
  platform::SetRasterFault([&](platform::RasterOperation operation, const std::wstring&, int band, const CRect&) {
    if (operation == platform::RasterOperation::kWrite) asked.push_back(band);
    return band == 1;
  });
  EXPECT_EQ(probe.WriteBlock(&dst, 3, &rect, bands), 4);
  EXPECT_EQ(asked, (std::vector<int>{0, 1}));
}

class BaseConversion : public testing::TestWithParam<std::pair<bool, bool>> {};

TEST_P(BaseConversion, IsNarrowedWhereBothImagesDeclareNoData) {
  const auto [panDeclares, msDeclares] = GetParam();
  SceneOptions options;
  if (panDeclares) options.panNoData = 0.0;
  if (msDeclares) options.msNoData = 0.0;
  const Scene scene(31, options);
  FusionParam param = scene.Param();
  OperationsProbe probe(&param);
  probe.Process();
  const platform::ValueConversion& conversion = probe.GetValueConversion();
  const bool narrowed = panDeclares && msDeclares;
  EXPECT_EQ(conversion.m_bAddOne, narrowed);
  EXPECT_EQ(conversion.m_dSrcMin, narrowed ? 1.0 : 0.0);
  EXPECT_EQ(conversion.m_dSrcMax, narrowed ? 254.0 : 255.0);
}

INSTANTIATE_TEST_SUITE_P(NoData, BaseConversion,
                         testing::Values(std::make_pair(true, true), std::make_pair(true, false),
                                         std::make_pair(false, true), std::make_pair(false, false)));

TEST(BasePreparation, OnlyTheFirstBandsNoDataValuesCount) {
  // GeoTIFF has one value for all bands; a virtual raster has one each.
  const auto write = [](const std::wstring& path, int declaringBand) {
    std::string text = "<VRTDataset rasterXSize=\"8\" rasterYSize=\"8\">";
    for (int b = 0; b < 2; ++b) {
      text += "<VRTRasterBand dataType=\"Byte\" band=\"" + std::to_string(b + 1) + "\">";
      if (b == declaringBand) text += "<NoDataValue>7</NoDataValue>";
      text += "</VRTRasterBand>";
    }
    test_support::WriteText(path, text + "</VRTDataset>");
  };
  for (const int panBand : {0, 1}) {
    for (const int msBand : {0, 1}) {
      CRasterSource pan;
      CRasterSource ms;
      const std::wstring panFile = MemoryPath(L"vrt");
      const std::wstring msFile = MemoryPath(L"vrt");
      write(panFile, panBand);
      write(msFile, msBand);
      ASSERT_TRUE(pan.OpenSimple(panFile) && ms.OpenSimple(msFile));
      OperationsProbe probe(nullptr);
      probe.m_pPanSrc = &pan;
      probe.m_pMSSrc = &ms;
      EXPECT_EQ(probe.Preproccess(), 0);
      EXPECT_EQ(probe.GetValueConversion().m_bAddOne, panBand == 0 && msBand == 0) << panBand << msBand;
    }
  }
}

TEST(BasePreparation, StatisticsAreMadeForMatchingOnly) {
  const Scene scene(32);
  CRasterSource ms;
  ASSERT_TRUE(ms.OpenSimple(scene.msFile));
  FusionParam param = scene.Param();
  OperationsProbe plain(&param);
  plain.m_pMSSrc = &ms;
  EXPECT_EQ(plain.Preproccess(), 0);
  EXPECT_FALSE(plain.m_pMeans || plain.m_pStdDevs);
  EXPECT_TRUE(plain.m_param.m_vecMSBands.empty());

  param.m_bSpectralMatch = true;
  OperationsProbe matched(&param);
  EXPECT_EQ(matched.Preproccess(), 0) << "without a multispectral image nothing is made";
  EXPECT_FALSE(matched.m_pMeans || matched.m_pStdDevs);
  matched.m_pMSSrc = &ms;
  EXPECT_EQ(matched.Preproccess(), 0);
  EXPECT_EQ(matched.m_param.m_vecMSBands, (std::vector<std::int32_t>{0, 1, 2})) << "an empty list is filled";
  for (std::size_t b = 0; b < 3; ++b) {
    EXPECT_NEAR(matched.m_pMeans[b], test_support::Mean(scene.ms.bands[b]), 1e-9);
    EXPECT_NEAR(matched.m_pStdDevs[b], test_support::Deviation(scene.ms.bands[b]), 1e-9);
  }
}

TEST(BasePreparation, CancelledStatisticsEndIt) {
  const Scene scene(33);
  CRasterSource ms;
  ASSERT_TRUE(ms.OpenSimple(scene.msFile));
  FusionParam param = scene.Param();
  param.m_bSpectralMatch = true;
  RecordingProgress progress;
  progress.RequestCancel();
  OperationsProbe probe(&param);
  probe.SetProgress(&progress);
  probe.m_pMSSrc = &ms;
  EXPECT_EQ(probe.Preproccess(), 4);
  EXPECT_EQ(probe.GetLastErrorType(), 1);
  EXPECT_EQ(progress.Errors(), 0);
  EXPECT_EQ(probe.m_pMeans[0], 0.0);
  EXPECT_EQ(probe.m_pStdDevs[0], 0.0);
}

TEST(BasePreparation, OneThatWasCancelledIsLoggedNotReported) {
  class Cancelled : public OperationsProbe {
   public:
    using OperationsProbe::OperationsProbe;
    GISError Preproccess() override {
      m_nLastErrorType = ERR_CANCELLED;
      return GIS_FAILED;
    }
  };
  struct Log : CLog {
    void WriteLog(int, const char*, int, const char*, const wchar_t* text) override { texts.emplace_back(text); }
    std::vector<std::wstring> texts;
  } log;
  CLog::m_pLogger = &log;
  const Scene scene(34);
  FusionParam param = scene.Param();
  RecordingProgress progress;
  Cancelled probe(&param);
  probe.SetProgress(&progress);
  probe.Process();
  CLog::m_pLogger = nullptr;
  EXPECT_EQ(probe.GetLastErrorType(), 1);
  EXPECT_EQ(progress.Errors(), 0);
  EXPECT_EQ(log.texts, (std::vector<std::wstring>{L"  WARNING: 用户取消了处理进程，处理失败！ ..."}));
}

TEST(Kernel, GetsTheNumbersOfBandsReadAndWanted) {
  class Counting : public OperationsProbe {
   public:
    using OperationsProbe::OperationsProbe;
    void** AlgorithmProcess(double*, CRect*, double**, int msBandCount, CRect*, PixelDataType outType, int outBandCount,
                            CRect*, CRasterAOI*) override {
      given = {msBandCount, outBandCount, outType};
      return nullptr;
    }
    std::vector<int> given;
  };
  const Scene scene(35);
  FusionParam param = scene.Param(PDT_INT32);
  param.m_nOutBandCount = 2;
  Counting probe(&param);
  probe.Process();
  EXPECT_EQ(probe.given, (std::vector<int>{3, 2, PDT_INT32}));
}

TEST(Run, LeavesNoPointerToARasterBehind) {
  const Scene scene(36);
  FusionParam param = scene.Param();
  OperationsProbe probe(&param);
  probe.Process();
  EXPECT_EQ(probe.m_pPanSrc, nullptr);
  EXPECT_EQ(probe.m_pMSSrc, nullptr);
  EXPECT_EQ(probe.m_pDstSrc, nullptr);
}

}  // namespace
