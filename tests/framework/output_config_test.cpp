// What a run makes of its inputs before the first block: overlap, bands, georeference, temporary file, reprojection.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "framework/fusion.h"
#include "platform/raster/raster_fault.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"

namespace {

using platform::RasterOperation;
using test_support::FileExists;
using test_support::FilesNamedLike;
using test_support::ReadImage;
using test_support::RecordingProgress;
using test_support::Scene;
using test_support::SceneOptions;

constexpr wchar_t kWrongExtent[] = L"设置的影像范围有误！";

class ConfigProbe : public CFusion {
 public:
  explicit ConfigProbe(FusionParam* param) : CFusion(param) {}
  void** AlgorithmProcess(double*, CRect*, double**, int, CRect*, PixelDataType, int, CRect*, CRasterAOI*) override {
    tempFile = m_strTempFile;
    reprojecting = m_pReproject != nullptr;
    return nullptr;
  }
  GISError Preproccess() override {
    const GISError result = CFusion::Preproccess();
    if (m_pMeans) means.assign(&m_pMeans[0], &m_pMeans[m_param.m_vecMSBands.size()]);
    if (m_pStdDevs) stdDevs.assign(&m_pStdDevs[0], &m_pStdDevs[m_param.m_vecMSBands.size()]);
    return fail ? GIS_FAILED : result;
  }
  const FusionParam& Param() const { return m_param; }
  using CFusion::m_pReproject;

  bool fail = false;
  bool reprojecting = false;
  std::wstring tempFile;
  std::vector<double> means;
  std::vector<double> stdDevs;
};

class OutputConfig : public testing::Test {
 protected:
  ~OutputConfig() override { platform::SetRasterFault({}); }
  void ExpectFailure(FusionParam param, int type, const std::wstring& message) {
    RecordingProgress progress;
    ConfigProbe probe(&param);
    probe.SetProgress(&progress);
    probe.Process();
    EXPECT_EQ(probe.GetLastErrorType(), type);
    EXPECT_EQ(probe.GetLastErrorMessage(), message);
    EXPECT_EQ(progress.Calls().back(), L"Error " + std::to_wstring(type) + L" " + message);
    EXPECT_FALSE(progress.Finished());
  }
};

TEST_F(OutputConfig, InputThatDoesNotOpenIsErrorFour) {
  const Scene scene(1);
  FusionParam param = scene.Param();
  param.m_strPanFile = L"/vsimem/missing.tif";
  ExpectFailure(param, 4, L"打开文件（/vsimem/missing.tif）失败！");
  param = scene.Param();
  param.m_strMSFile = L"/vsimem/也没有.tif";
  ExpectFailure(param, 4, L"打开文件（/vsimem/也没有.tif）失败！");
}

TEST_F(OutputConfig, DisjointImagesFailAndLeaveTheErrorTypeAlone) {
  SceneOptions options;
  options.msShiftX = 1000.0;
  const Scene scene(2, options);
  ExpectFailure(scene.Param(), 0, kWrongExtent);
  EXPECT_FALSE(FileExists(scene.outFile));
}

TEST_F(OutputConfig, TheExtentIsCheckedBeforeTheBands) {
  SceneOptions options;
  options.msShiftX = 1000.0;
  options.msBands = 1;
  const Scene scene(2, options);
  ExpectFailure(scene.Param(), 0, kWrongExtent);
}

TEST_F(OutputConfig, ImagesThatOnlyTouchDoNotOverlap) {
  SceneOptions options;
  options.msShiftX = options.panWidth;
  const Scene scene(3, options);
  ExpectFailure(scene.Param(), 0, kWrongExtent);
}

TEST_F(OutputConfig, SingleBandIsErrorElevenUnlessTheCallerGivesABandCount) {
  SceneOptions options;
  options.msBands = 1;
  const Scene scene(4, options);
  ExpectFailure(scene.Param(), 11, L"多光谱数据处理波段错误！");
  FusionParam param = scene.Param();
  param.m_nOutBandCount = 1;
  ConfigProbe probe(&param);
  probe.Process();
  EXPECT_EQ(probe.GetLastErrorType(), 0);
  EXPECT_EQ(ReadImage(scene.outFile).bands.size(), 1u);
}

TEST_F(OutputConfig, OutputThatCannotBeCreatedIsErrorFive) {
  const Scene scene(5);
  FusionParam param = scene.Param();
  param.m_strOutFile = L"/no/such/folder/out.tif";
  ExpectFailure(param, 5, L"创建文件（/no/such/folder/out.tif）失败！");
  param.m_bSpectralMatch = true;
  ExpectFailure(param, 5, L"创建文件（/no/such/folder/out.tif）失败！");
}

TEST_F(OutputConfig, FailureOfTheTemporaryFileNamesTheFinalPath) {
  const Scene scene(6);
  FusionParam param = scene.Param();
  param.m_bSpectralMatch = true;
  platform::SetRasterFault(
      [](RasterOperation op, const std::wstring&, int, const CRect&) { return op == RasterOperation::kCreate; });
  const auto before = FilesNamedLike(L"_out").size();
  ExpectFailure(param, 5, L"创建文件（" + scene.outFile + L"）失败！");
  EXPECT_EQ(FilesNamedLike(L"_out").size(), before) << "the temporary file must be gone";
}

TEST_F(OutputConfig, OutputOverAnInputIsRefusedAndTheInputSurvives) {
  const Scene scene(7);
  FusionParam param = scene.Param();
  param.m_strOutFile = scene.panFile;
  ExpectFailure(param, 5, L"创建文件（" + scene.panFile + L"）失败！");
  param.m_strOutFile = scene.msFile;
  ExpectFailure(param, 5, L"创建文件（" + scene.msFile + L"）失败！");
  EXPECT_EQ(ReadImage(scene.panFile).bands, scene.pan.bands);
  EXPECT_EQ(ReadImage(scene.msFile).bands, scene.ms.bands);
}

TEST_F(OutputConfig, ReprojectionThatCannotBeBuiltIsErrorTwenty) {
  const Scene scene(8);  // without any coordinate system
  FusionParam param = scene.Param();
  param.m_rcProcess = {0, 0, 10, 10};
  param.m_bNeedReproject = true;
  ExpectFailure(param, 20, L"重投影失败！");
}

TEST_F(OutputConfig, DefaultsComeFromTheImages) {
  SceneOptions options;
  options.msType = PDT_INT16;
  options.msBands = 4;
  const Scene scene(9, options);
  FusionParam param = scene.Param(PDT_UNKNOWN);
  param.m_strOutFile = L"/vsimem/default.unknown";
  ConfigProbe probe(&param);
  probe.Process();
  EXPECT_EQ(probe.GetLastErrorType(), 0);
  EXPECT_EQ(probe.Param().m_eOutDataType, PDT_INT16);
  EXPECT_EQ(probe.Param().m_nOutBandCount, 4);
  EXPECT_EQ(probe.Param().m_vecMSBands, (std::vector<std::int32_t>{0, 1, 2, 3}));
  EXPECT_EQ(probe.Param().m_rcProcess, CRect(0, 0, 37, 29));
  EXPECT_EQ(probe.GetValueConversion().m_dOutMin, -32768.0);
  EXPECT_EQ(probe.GetValueConversion().m_dOutMax, 32767.0);
  // An unknown extension ends as GeoTIFF.
  CRasterSource out;
  ASSERT_TRUE(out.OpenSimple(L"/vsimem/default.unknown"));
  EXPECT_EQ(out.GetRasterDataType(), PDT_INT16);
}

TEST_F(OutputConfig, SpectralMatchingWritesToATemporaryFileWithOneBandPerChosenBand) {
  SceneOptions options;
  options.msBands = 4;
  const Scene scene(10, options);
  FusionParam param = scene.Param();
  param.m_bSpectralMatch = true;
  param.m_vecMSBands = {3, 1};
  ConfigProbe probe(&param);
  probe.Process();
  EXPECT_FALSE(probe.tempFile.empty());
  EXPECT_NE(probe.tempFile, scene.outFile);
  EXPECT_FALSE(FileExists(probe.tempFile));
  EXPECT_EQ(ReadImage(scene.outFile).bands.size(), 2u);
  // Targets are the chosen bands' figures, in list order.
  ASSERT_EQ(probe.means.size(), 2u);
  for (std::size_t i = 0; i < 2; ++i) {
    const auto& band = scene.ms.bands[static_cast<std::size_t>(param.m_vecMSBands[i])];
    long double sum = 0;
    for (const double v : band) sum += v;
    const long double mean = sum / static_cast<long double>(band.size());
    long double squares = 0;
    for (const double v : band) squares += (v - mean) * (v - mean);
    EXPECT_NEAR(probe.means[i], static_cast<double>(mean), 1e-9);
    EXPECT_NEAR(probe.stdDevs[i], std::sqrt(static_cast<double>(squares / static_cast<long double>(band.size()))),
                1e-9);
  }
}

TEST_F(OutputConfig, EarlyReturnRemovesTheTemporaryFile) {
  const Scene scene(11);
  FusionParam param = scene.Param();
  param.m_bSpectralMatch = true;
  const auto before = FilesNamedLike(L"");
  ConfigProbe probe(&param);
  probe.fail = true;
  probe.Process();
  EXPECT_EQ(probe.GetLastErrorType(), 4);
  EXPECT_EQ(FilesNamedLike(L""), before);
}

TEST_F(OutputConfig, ImagesWithoutAnyGeoreferenceOverlayPixelByPixel) {
  reference::Image image;
  image.width = 6;
  image.height = 5;
  image.bands.assign(2, std::vector<double>(30, 3.0));
  test_support::WriteImage(image, L"/vsimem/plain.tif", PDT_UINT8);
  CRasterSource pan;
  CRasterSource ms;
  ASSERT_TRUE(pan.OpenSimple(L"/vsimem/plain.tif"));
  ASSERT_TRUE(ms.OpenSimple(L"/vsimem/plain.tif"));
  ConfigProbe probe(nullptr);
  CRect rect;
  bool reproject = true;
  EXPECT_TRUE(probe.GetOutRect(&pan, &ms, rect, reproject, false));
  EXPECT_FALSE(reproject);
  EXPECT_EQ(rect, CRect(0, 0, 6, 5));
}

TEST_F(OutputConfig, OverlapNeedsBothRasters) {
  CRasterSource source;
  ConfigProbe probe(nullptr);
  CRect rect;
  bool reproject = false;
  EXPECT_FALSE(probe.GetOutRect(nullptr, &source, rect, reproject, false));
  EXPECT_FALSE(probe.GetOutRect(&source, nullptr, rect, reproject, false));
}

TEST_F(OutputConfig, OneValidCoordinateSystemIsNoReasonToReproject) {
  SceneOptions options;
  options.panWkt = test_support::UtmWkt();
  const Scene scene(12, options);
  CRasterSource pan;
  CRasterSource ms;
  ASSERT_TRUE(pan.OpenSimple(scene.panFile));
  ASSERT_TRUE(ms.OpenSimple(scene.msFile));
  ConfigProbe probe(nullptr);
  CRect rect;
  bool reproject = true;
  EXPECT_TRUE(probe.GetOutRect(&pan, &ms, rect, reproject, false));
  EXPECT_FALSE(reproject);
}

TEST_F(OutputConfig, ReprojectionIsBuiltForTheRunAndFreedAtItsEnd) {
  SceneOptions options;
  options.panWkt = test_support::UtmWkt();
  Scene scene(13, options);
  const double degrees[6] = {-3.71, 2.0e-4, 0.0, 40.38, 0.0, -2.0e-4};
  std::copy_n(degrees, 6, scene.ms.geoTransform);
  test_support::WriteImage(scene.ms, scene.msFile, PDT_UINT16, test_support::Wgs84Wkt());
  FusionParam param = scene.Param();
  ConfigProbe probe(&param);
  probe.Process();
  EXPECT_EQ(probe.GetLastErrorType(), 0);
  EXPECT_TRUE(probe.reprojecting);
  EXPECT_TRUE(probe.Param().m_bNeedReproject);
  EXPECT_EQ(probe.m_pReproject, nullptr);
}

TEST_F(OutputConfig, RotationTermsAreKeptOnlyWithoutTheOpenOption) {
  Scene scene(14);
  const double rotated[6] = {440000.0, 8.0, 6.0, 4470000.0, 6.0, -8.0};
  std::copy_n(rotated, 6, scene.pan.geoTransform);
  test_support::WriteImage(scene.pan, scene.panFile, PDT_UINT16);
  FusionParam param = scene.Param();
  param.m_bOpenOption = false;
  param.m_rcProcess = {0, 0, 4, 4};
  ConfigProbe probe(&param);
  probe.Process();
  EXPECT_EQ(probe.GetLastErrorType(), 0);
  const auto out = ReadImage(scene.outFile);
  EXPECT_EQ(out.geoTransform[2], 6.0);
  EXPECT_EQ(out.geoTransform[4], 6.0);

  param.m_bOpenOption = true;
  param.m_rcProcess = {0, 0, 4, 4};
  ConfigProbe warped(&param);
  warped.Process();
  EXPECT_EQ(warped.GetLastErrorType(), 0);
  const auto north = ReadImage(scene.outFile);
  EXPECT_EQ(north.geoTransform[2], 0.0);
  EXPECT_EQ(north.geoTransform[4], 0.0);
}

TEST_F(OutputConfig, AreaThatDoesNotTouchTheImagesFails) {
  const Scene scene(15);
  FusionParam param = scene.Param();
  param.m_strAoiFile = L"/vsimem/far_area.csv";
  test_support::WriteTriangle(param.m_strAoiFile, {0.0, 0.0}, {10.0, 0.0}, {0.0, 10.0});
  RecordingProgress progress;
  ConfigProbe probe(&param);
  probe.SetProgress(&progress);
  probe.Process();
  EXPECT_EQ(probe.GetLastErrorMessage(), kWrongExtent);
  param.m_strAoiFile = L"/vsimem/no_area.csv";
  ExpectFailure(param, 4, L"打开文件（/vsimem/no_area.csv）失败！");
}

}  // namespace
