// The run of an IHS fusion around its transform: statistics, ends, failures.
#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include "platform/utility/common_fun.h"
#include "tests/support/message_window.h"
#include "tests/support/test_raster.h"
#include "tests/support/thread_watch.h"
#include "transform/ihs_tran_fusion.h"
#include "transform/prin_component_fusion.h"

namespace {

using platform::RasterOperation;
using test_support::FileExists;
using test_support::OneRow;
using test_support::ReadImage;
using test_support::RecordingProgress;
using test_support::Scene;
using test_support::SceneOptions;
using test_support::WriteImage;

/// A scene whose fused image has overviews.
SceneOptions Large() {
  SceneOptions options;
  options.panWidth = options.panHeight = 300;
  return options;
}

class Overviews {
 public:
  explicit Overviews(const Scene& scene) : m_file(scene.outFile) {}
  ~Overviews() { CRasterSource::DeleteFileW(m_file); }
  bool Exist() const { return FileExists(m_file + L".ovr"); }

 private:
  std::wstring m_file;
};

TEST(IhsRun, ARunMayGoWithoutOverviews) {
  const Scene scene(81, Large());
  const Overviews overviews(scene);
  FusionParam param = scene.Param();
  RecordingProgress progress;
  CIhsTranFusion fusion(&param);
  fusion.SetProgress(&progress);
  fusion.SetBuildsOverviews(false);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  EXPECT_FALSE(overviews.Exist());
}

TEST(IhsRun, OverviewsComeBetweenTheirAnnouncementAndTheEndWhateverTheReporterAnswers) {
  const Scene scene(81, Large());
  const Overviews overviews(scene);
  class Watching : public RecordingProgress {
   public:
    explicit Watching(const Overviews& files) : m_files(files) {}
    bool Step(int position, const std::wstring& text) override {
      RecordingProgress::Step(position, text);
      if (text != L"等待创建输出影像金字塔") return true;
      EXPECT_EQ(position, 100);
      EXPECT_FALSE(m_files.Exist());
      announced = true;
      return false;
    }
    void Finish() override {
      EXPECT_TRUE(announced);
      EXPECT_TRUE(m_files.Exist());
      RecordingProgress::Finish();
    }
    bool announced = false;

   private:
    const Overviews& m_files;
  } progress(overviews);
  FusionParam param = scene.Param();
  CIhsTranFusion fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  EXPECT_TRUE(progress.Finished());

  const auto out = ReadImage(scene.outFile).bands[1];
  const auto half = ReadImage(scene.outFile + L".ovr").bands[1];
  ASSERT_EQ(half.size(), 150u * 150u);
  for (std::size_t y = 0; y < 150; ++y) {
    for (std::size_t x = 0; x < 150; ++x) {
      const std::size_t at = 2 * y * 300 + 2 * x;
      ASSERT_NEAR(half[y * 150 + x], (out[at] + out[at + 1] + out[at + 300] + out[at + 301]) / 4.0, 1e-3);
    }
  }
}

struct Window : test_support::MessageWindow {
  explicit Window(const Overviews& files)
      : MessageWindow([this, &files](UINT message, WPARAM first, LPARAM second) -> LRESULT {
          messages.emplace_back(message, reinterpret_cast<const wchar_t*>(first), second);
          withOverviews = files.Exist();
          return 0;
        }) {}
  std::vector<std::tuple<UINT, std::wstring, LPARAM>> messages;
  bool withOverviews = false;
};

TEST(IhsRun, NoticeIsSentBehindTheOverviewsAndAlsoWithoutAReporter) {
  const Scene scene(82, Large());
  const Overviews overviews(scene);
  Window window(overviews);
  FusionParam param = scene.Param();
  param.m_pNotifyWnd = &window;
  CIhsTranFusion silent(&param);
  silent.Process();
  ASSERT_EQ(window.messages.size(), 1u);
  EXPECT_EQ(window.messages[0], std::make_tuple(1124u, scene.outFile, LPARAM{1}));
  EXPECT_FALSE(window.withOverviews);
  RecordingProgress progress;
  CIhsTranFusion fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  EXPECT_EQ(window.messages.size(), 2u);
  EXPECT_TRUE(window.withOverviews);
}

TEST(IhsRun, FailuresEndWithoutOverviewsAndHaveTheirMessages) {
  const struct {
    RasterOperation operation;
    std::wstring Scene::*file;
    int after;  ///< operations of that kind on that file that still succeed
    int type;
    std::wstring message;
  } cases[] = {
      // The first read of each band is that of its range.
      {RasterOperation::kRead, &Scene::msFile, 3, 2, L""},
      {RasterOperation::kRead, &Scene::panFile, 1, 2, L"读取数据失败！"},
      {RasterOperation::kWrite, &Scene::outFile, 0, 3, L"写数据失败！"},
      {RasterOperation::kWrite, &Scene::outFile, 2, 3, L"写数据失败！"},
  };
  for (const auto& c : cases) {
    const Scene scene(83, Large());
    const Overviews overviews(scene);
    int seen = 0;
    platform::SetRasterFault([&](RasterOperation operation, const std::wstring& path, int, const CRect&) {
      return operation == c.operation && path == scene.*c.file && seen++ >= c.after;
    });
    FusionParam param = scene.Param();
    RecordingProgress progress;
    CIhsTranFusion fusion(&param);
    fusion.SetProgress(&progress);
    fusion.Process();
    platform::SetRasterFault({});
    EXPECT_EQ(fusion.GetLastErrorType(), c.type);
    EXPECT_EQ(fusion.GetLastErrorMessage(), c.message);
    EXPECT_EQ(progress.Errors(), c.message.empty() ? 0 : 1);
    if (!c.message.empty()) {
      EXPECT_EQ(progress.Calls().back(), L"Error " + std::to_wstring(c.type) + L" " + c.message);
    }
    EXPECT_FALSE(progress.Finished());
    EXPECT_FALSE(overviews.Exist());
  }
}

TEST(IhsRun, FiveBandsAreTakenInTheirOrder) {
  // Red 60, the rest 0, but for two further bands that keep their values.
  const OneRow row({20.0}, {{60.0}, {0.0}, {0.0}, {7.0}, {9.0}}, PDT_UINT8);
  const auto out = row.Fuse<CIhsTranFusion>(PDT_FLOAT64);
  ASSERT_EQ(out.size(), 5u);
  EXPECT_NEAR(out[0][0], 60.0, 1e-9);
  EXPECT_EQ(out[3][0], 7.0);
  EXPECT_EQ(out[4][0], 9.0);
  // Which bands play the colours shows where they are grey but for one: red alone turns into (pan + 2 pan S, ...).
  class Positions : public CIhsTranFusion {
   public:
    using CIhsTranFusion::CIhsTranFusion;
    void EndProccess() override { rgb = m_param.m_vecRGBBands; }
    std::vector<std::int32_t> rgb;
  };
  for (const std::size_t count : {3u, 4u, 5u, 6u}) {
    const OneRow scene({20.0}, std::vector<std::vector<double>>(count, {5.0}), PDT_UINT8);
    FusionParam param = scene.Param();
    Positions fusion(&param);
    fusion.Process();
    EXPECT_EQ(fusion.rgb, count == 4 ? (std::vector<std::int32_t>{2, 1, 0}) : (std::vector<std::int32_t>{0, 1, 2}));
  }
}

TEST(IhsRun, PanWithoutDataIsStoredPastAddOneAndStretch) {
  const auto declare = [](const std::wstring& file, double value) {
    WriteImage(ReadImage(file), file, PDT_UINT8, "", value);
  };
  const OneRow row({0.0, 51.0, 255.0}, {{7, 7, 7}, {7, 7, 7}, {7, 7, 7}}, PDT_UINT8);
  // Add-one: 0 becomes 1 and 255 becomes 254, but for the value that stands for nothing.
  declare(row.Param().m_strMSFile, 99.0);
  declare(row.Param().m_strPanFile, 0.0);
  EXPECT_EQ(row.Fuse<CIhsTranFusion>(PDT_UINT8)[0], (std::vector<double>{0.0, 51.0, 254.0}));
  declare(row.Param().m_strPanFile, 255.0);
  EXPECT_EQ(row.Fuse<CIhsTranFusion>(PDT_UINT8)[0], (std::vector<double>{1.0, 51.0, 255.0}));
  // Stretch: 51 becomes 51 x 65535 / 255 = 13107.
  declare(row.Param().m_strPanFile, 51.0);
  const auto out = row.Fuse<CIhsTranFusion>(PDT_UINT16, [](CIhsTranFusion& fusion) { fusion.SetStretch(true); });
  EXPECT_EQ(out[0], (std::vector<double>{1.0, 51.0, 65534.0}));
  EXPECT_EQ(out[2], out[0]);
}

TEST(IhsRun, PixelsOutsideTheAreaAreZeroAlsoWherePanHasNoData) {
  SceneOptions options;
  options.panType = PDT_INT16;
  options.panNoData = -77.0;
  Scene scene(84, options);
  std::fill(scene.pan.bands[0].begin(), scene.pan.bands[0].begin() + 37 * 20, -77.0);
  WriteImage(scene.pan, scene.panFile, PDT_INT16, "", -77.0);
  FusionParam param = scene.Param();
  param.m_strAoiFile = L"/vsimem/ihs_area.csv";
  test_support::WriteTriangle(param.m_strAoiFile, {440000.0, 4470000.0}, {440200.0, 4470000.0}, {440000.0, 4469800.0});
  CIhsTranFusion(&param).Process();
  const auto out = ReadImage(scene.outFile);
  ASSERT_EQ(out.width, 20);
  EXPECT_EQ(out.bands[0][0], -77.0);
  EXPECT_EQ(out.bands[0][399], 0.0);
}

TEST(IhsRun, FirstPanBandSaysWhatIsNoData) {
  // A file whose bands declare values of their own: 10 in the first, 30 in the second, which is read.
  const OneRow row({10.0, 20.0, 30.0}, {{7, 7, 7}, {7, 7, 7}, {7, 7, 7}}, PDT_UINT8);
  FusionParam param = row.Param();
  param.m_eOutDataType = PDT_FLOAT64;
  param.m_nPanBand = 1;
  param.m_strPanFile = L"/vsimem/ihs_two_bands.img";
  {
    test_support::TestRaster raster;
    raster.width = 3;
    raster.height = 1;
    raster.bands = {{1, 2, 3}, {10, 20, 30}};
    raster.type = PDT_UINT8;
    raster.driver = "HFA";
    raster.geoTransform = std::vector<double>{0.0, 1.0, 0.0, 0.0, 0.0, -1.0};
    ASSERT_TRUE(test_support::WriteRaster(raster, param.m_strPanFile));
    const std::unique_ptr<GDALDataset> file(
        GDALDataset::Open(CommonFun::U2Utf8(param.m_strPanFile).c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
    ASSERT_EQ(file->GetRasterBand(1)->SetNoDataValue(10.0), CE_None);
    ASSERT_EQ(file->GetRasterBand(2)->SetNoDataValue(30.0), CE_None);
  }
  WriteImage(ReadImage(param.m_strMSFile), param.m_strMSFile, PDT_UINT8, "", 99.0);
  CIhsTranFusion fusion(&param);
  fusion.SetStretch(true);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  // Grey takes the pan value, which the stretch to the range of a double moves, unless it is the first band's value.
  const auto out = ReadImage(param.m_strOutFile).bands[0];
  EXPECT_EQ(out[0], 10.0);
  EXPECT_GT(out[1], 1e300);
  EXPECT_GT(out[2], 1e300);
}

/// Shows what the run leaves in the object.
class Opened : public CIhsTranFusion {
 public:
  using CIhsTranFusion::CIhsTranFusion;
  using CIhsTranFusion::m_dPanMax;
  using CIhsTranFusion::m_dPanMin;
  using CIhsTranFusion::m_pMeans;
  using CIhsTranFusion::m_pMulMax;
  using CIhsTranFusion::m_pMulMin;
  void** AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect,
                          PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI* aoi) override {
    if (m_pMulMin && m_pMulMax) {
      for (int b = 0; b < msBandCount; ++b) ranges.emplace_back(m_pMulMin[b], m_pMulMax[b]);
    }
    if (positions) {
      m_param.m_vecRGBBands = *positions;
      EXPECT_THROW(
          CIhsTranFusion::AlgorithmProcess(pan, panRect, ms, msBandCount, msRect, outType, outBandCount, dstBlock, aoi),
          std::out_of_range);
      return nullptr;
    }
    return CIhsTranFusion::AlgorithmProcess(pan, panRect, ms, msBandCount, msRect, outType, outBandCount, dstBlock,
                                            aoi);
  }
  std::vector<std::pair<double, double>> ranges;
  std::optional<std::vector<std::int32_t>> positions;
};

TEST(IhsRun, RangesOfPanAndOfTheChosenBandsAreTakenAndThoseOfTheBandsFreed) {
  const OneRow row({10.0, 20.0, 31.0}, {{1, 2, 3}, {40, 50, 66}, {7, 9, 8}, {5, 5, 90}});
  FusionParam param = row.Param();
  param.m_vecMSBands = {3, 1, 0};
  param.m_bSpectralMatch = true;
  Opened fusion(&param);
  EXPECT_EQ(fusion.m_dPanMin, 0.0);
  EXPECT_EQ(fusion.m_dPanMax, 255.0);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  EXPECT_EQ(fusion.m_dPanMin, 10.0);
  EXPECT_EQ(fusion.m_dPanMax, 31.0);
  EXPECT_EQ(fusion.ranges, (std::vector<std::pair<double, double>>{{5, 90}, {40, 66}, {1, 3}}));
  EXPECT_EQ(fusion.m_pMulMin, nullptr);
  EXPECT_EQ(fusion.m_pMulMax, nullptr);
  EXPECT_EQ(fusion.m_pMeans, nullptr) << "the base class prepares nothing";
  for (const auto& file : test_support::FilesNamedLike(L"row_out~")) CRasterSource::DeleteFileW(L"/vsimem/" + file);
}

TEST(IhsRun, RangeOfPanIsThatOfThePanBand) {
  const OneRow row({10.0, 20.0, 31.0}, {{1, 2, 3}, {40, 50, 66}, {7, 9, 8}});
  FusionParam param = row.Param();
  param.m_nPanBand = 1;
  reference::Image pan = ReadImage(param.m_strPanFile);
  pan.bands.push_back({500.0, 900.0, 700.0});
  WriteImage(pan, param.m_strPanFile, PDT_FLOAT64);
  Opened fusion(&param);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  EXPECT_EQ(fusion.m_dPanMin, 500.0);
  EXPECT_EQ(fusion.m_dPanMax, 900.0);
}

TEST(IhsRun, PreparingNeedsBothImagesOpenButDoesWhatItCan) {
  class Closed : public CIhsTranFusion {
   public:
    using CIhsTranFusion::CIhsTranFusion;
    GISError Preproccess() override {
      CRasterSource* const pan = std::exchange(m_pPanSrc, nullptr);
      EXPECT_EQ(CIhsTranFusion::Preproccess(), 4);
      EXPECT_NE(m_pMulMax, nullptr);
      CRasterSource closed;
      m_pPanSrc = &closed;
      EXPECT_EQ(CIhsTranFusion::Preproccess(), 4);
      m_pPanSrc = pan;
      CRasterSource* const ms = std::exchange(m_pMSSrc, &closed);
      EXPECT_EQ(CIhsTranFusion::Preproccess(), 4);
      m_pMSSrc = ms;
      return CIhsTranFusion::Preproccess();
    }
  };
  const Scene scene(87);
  FusionParam param = scene.Param();
  Closed fusion(&param);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
}

TEST(IhsRun, KernelFaultsOnFewerThanThreePositions) {
  const Scene scene(85);
  FusionParam param = scene.Param();
  for (const auto& positions : {std::vector<std::int32_t>{}, {0}, {0, 1}}) {
    Opened fusion(&param);
    fusion.positions = positions;
    fusion.Process();
    test_support::ExpectSuccess(fusion);
  }
}

TEST(IhsRun, SourceRangeAndAddOneAreThoseOfThisRunWhateverTheyWere) {
  const auto run = [](const SceneOptions& options) {
    const Scene scene(86, options);
    FusionParam param = scene.Param(PDT_UINT8);
    CIhsTranFusion fusion(&param);
    fusion.SetAddOne(true);
    fusion.SetSrcMinMaxValue(7.0, 77.0);
    fusion.Process();
    test_support::ExpectSuccess(fusion);
    EXPECT_EQ(fusion.GetValueConversion().m_dSrcMin, 0.0);
    EXPECT_EQ(fusion.GetValueConversion().m_dSrcMax, 255.0);
    return fusion.GetValueConversion().m_bAddOne;
  };
  SceneOptions options;
  EXPECT_FALSE(run(options));
  options.panNoData = 5000.0;
  EXPECT_FALSE(run(options));
  options.msNoData = 5000.0;
  EXPECT_TRUE(run(options));
}

TEST(TransformKernels, IhsAloneSharesTheRowsOfABlockOut) {
  using test_support::KernelThreads;
  using test_support::WatchedKernel;
  EXPECT_GE(KernelThreads<WatchedKernel<CIhsTranFusion>>(), 2);
  EXPECT_EQ(KernelThreads<WatchedKernel<CPrinComponentFusion>>(), 1);
  // What is asked for takes OpenMP's place.
  EXPECT_EQ(KernelThreads<WatchedKernel<CIhsTranFusion>>(std::make_shared<platform::Workers>(1)), 1);
}

}  // namespace
