#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

#include "band_arithmetic/brovey_fusion.h"
#include "band_arithmetic/multiple_fusion.h"
#include "platform/raster/raster_fault.h"
#include "platform/utility/common_fun.h"
#include "platform/utility/log.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"

namespace {

using platform::RasterOperation;
using test_support::FilesNamedLike;
using test_support::ReadImage;
using test_support::RecordingProgress;
using test_support::Scene;

struct Figures {
  double mean;
  double deviation;
};

Figures FiguresOf(const std::vector<double>& values) {
  long double sum = 0;
  for (const double v : values) sum += v;
  const long double mean = sum / static_cast<long double>(values.size());
  long double squares = 0;
  for (const double v : values) squares += (v - mean) * (v - mean);
  return {static_cast<double>(mean), std::sqrt(static_cast<double>(squares / static_cast<long double>(values.size())))};
}

class SpectralMatch : public testing::Test {
 protected:
  ~SpectralMatch() override { platform::SetRasterFault({}); }
};

template <typename Method>
void ExpectCancelledStatistics() {
  struct Log : CLog {
    void WriteLog(int level, const char* file, int line, const char* function, const wchar_t* text) override {
      entries.push_back(std::to_string(level) + "|" + file + "|" + std::to_string(line) + "|" + function);
      EXPECT_STREQ(text, L"  WARNING: 用户取消了处理进程，处理失败！ ...");
    }
    std::vector<std::string> entries;
  } log;
  const Scene scene(30);
  FusionParam param = scene.Param();
  param.m_bSpectralMatch = true;
  const auto before = FilesNamedLike(L"");
  RecordingProgress progress;
  // The user cancels while the image is read for the first time.
  platform::SetRasterFault([&](RasterOperation operation, const std::wstring& path, int, const CRect&) {
    if (operation == RasterOperation::kRead && path == scene.msFile) progress.RequestCancel();
    return false;
  });
  CLog::m_pLogger = &log;
  Method fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  CLog::m_pLogger = nullptr;
  EXPECT_EQ(fusion.GetLastErrorType(), 1);
  EXPECT_EQ(progress.Calls(), (std::vector<std::wstring>{L"Start 正在进行test... 100", L"Step 0 配置参数..."}));
  EXPECT_EQ(log.entries, std::vector<std::string>{"2|Fusion|401|CFusion::Process"});
  EXPECT_EQ(FilesNamedLike(L""), before);
}

TEST_F(SpectralMatch, CancellationOfTheStatisticsEndsTheRunLoggedAndNotReported) {
  ExpectCancelledStatistics<CBroveyFusion>();
  ExpectCancelledStatistics<CMultipleFusion>();
}

TEST_F(SpectralMatch, FusedBandsTakeTheMultispectralMeansAndDeviations) {
  const Scene scene(31);
  FusionParam param = scene.Param(PDT_FLOAT32);
  param.m_bSpectralMatch = true;
  const auto before = FilesNamedLike(L"");
  CBroveyFusion fusion(&param);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  const auto out = ReadImage(scene.outFile);
  ASSERT_EQ(out.bands.size(), 3u);
  for (std::size_t b = 0; b < 3; ++b) {
    const Figures target = FiguresOf(scene.ms.bands[b]);
    const Figures actual = FiguresOf(out.bands[b]);
    EXPECT_NEAR(actual.mean, target.mean, 1e-3);
    EXPECT_NEAR(actual.deviation, target.deviation, 1e-3);
  }
  auto after = FilesNamedLike(L"");
  EXPECT_EQ(after.size(), before.size() + 1) << "only the output is new";
}

TEST_F(SpectralMatch, FailedStretchLeavesNeitherOutputNorTemporaryFile) {
  const Scene scene(32);
  FusionParam param = scene.Param(PDT_FLOAT32);
  param.m_bSpectralMatch = true;
  const auto before = FilesNamedLike(L"");
  platform::SetRasterFault([&](RasterOperation operation, const std::wstring& path, int, const CRect&) {
    return operation == RasterOperation::kWrite && path == scene.outFile;
  });
  CBroveyFusion fusion(&param);
  fusion.Process();
  // The stretch's own error is not taken over; that no output exists tells the failure.
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  EXPECT_EQ(FilesNamedLike(L""), before);
}

int Finishes(const RecordingProgress& progress) {
  return static_cast<int>(std::count(progress.Calls().begin(), progress.Calls().end(), L"Finish"));
}

TEST_F(SpectralMatch, OnlyTheRunTellsThatItIsFinished) {
  const Scene scene(34);
  FusionParam param = scene.Param(PDT_FLOAT32);
  param.m_bSpectralMatch = true;
  RecordingProgress progress;
  CBroveyFusion fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  EXPECT_EQ(Finishes(progress), 1);
  EXPECT_EQ(progress.Calls().back(), L"Finish");
}

TEST_F(SpectralMatch, ARunCancelledOnceIsNeverFinishedThoughItStillMatches) {
  /// Answers false a single time.
  class OnceCancelling : public RecordingProgress {
   public:
    bool Step(int position, const std::wstring& text) override {
      RecordingProgress::Step(position, text);
      return position == 0 || std::exchange(m_cancelled, true);
    }

   private:
    bool m_cancelled = false;
  };
  const Scene scene(35);
  FusionParam param = scene.Param(PDT_FLOAT32);
  param.m_bSpectralMatch = true;
  OnceCancelling progress;
  CBroveyFusion fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 1);
  EXPECT_TRUE(test_support::FileExists(scene.outFile)) << "the matching runs whatever came before";
  EXPECT_EQ(Finishes(progress), 0);
}

TEST_F(SpectralMatch, CancelledRunRemovesItsTemporaryFile) {
  const Scene scene(33);
  FusionParam param = scene.Param(PDT_FLOAT32);
  param.m_bSpectralMatch = true;
  const auto before = FilesNamedLike(L"");
  RecordingProgress progress;
  progress.CancelAtStep(1);
  CBroveyFusion fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 1);
  for (const auto& file : FilesNamedLike(L"")) {
    EXPECT_TRUE(L"/vsimem/" + file == scene.outFile || std::find(before.begin(), before.end(), file) != before.end());
  }
}

TEST_F(SpectralMatch, MissingTargetsAreErrorSeven) {
  class NoStatistics : public CBroveyFusion {
   public:
    using CBroveyFusion::CBroveyFusion;
    GISError Preproccess() override { return GIS_SUCCESS; }
  };
  const Scene scene(34);
  FusionParam param = scene.Param(PDT_FLOAT32);
  param.m_bSpectralMatch = true;
  const auto before = FilesNamedLike(L"");
  NoStatistics fusion(&param);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 7);
  EXPECT_EQ(FilesNamedLike(L""), before);
}

TEST_F(SpectralMatch, UnknownChosenBandFailsLikeARead) {
  const Scene scene(35);
  FusionParam param = scene.Param(PDT_FLOAT32);
  param.m_bSpectralMatch = true;
  param.m_vecMSBands = {0, 7};
  CBroveyFusion fusion(&param);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 2);
}

TEST_F(SpectralMatch, HandsOnFormatTypeAndNumberOfBands) {
  const Scene scene(36);
  FusionParam param = scene.Param(PDT_INT16);
  param.m_bSpectralMatch = true;
  param.m_eOutFormat = CRasterSource::GetDataFormat(L"x.img");
  param.m_nOutBandCount = 2;
  CBroveyFusion fusion(&param);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  const std::unique_ptr<GDALDataset> out(GDALDataset::Open(CommonFun::U2Utf8(scene.outFile).c_str()));
  ASSERT_TRUE(out);
  EXPECT_STREQ(out->GetDriverName(), "HFA") << "whatever the extension";
  EXPECT_EQ(out->GetRasterCount(), 2);
  EXPECT_EQ(out->GetRasterBand(1)->GetRasterDataType(), GDT_Int16);
}

TEST_F(SpectralMatch, MixesGreenWhereTheRecordWantsIt) {
  test_support::SceneOptions options;
  options.msBands = 4;
  const Scene scene(37, options);
  FusionParam param = scene.Param(PDT_FLOAT64);
  CBroveyFusion(&param).Process();
  const auto raw = ReadImage(scene.outFile).bands;
  param.m_bSpectralMatch = true;
  for (const bool makeGreen : {false, true}) {
    param.m_bMakeGreen = makeGreen;
    CBroveyFusion(&param).Process();
    const auto out = ReadImage(scene.outFile).bands;
    std::vector<double> green = raw[1];
    for (std::size_t i = 0; i < green.size(); ++i) {
      if (makeGreen) green[i] = 0.9 * raw[1][i] + 0.1 * raw[3][i];
    }
    const Figures from = FiguresOf(green);
    const Figures to = FiguresOf(scene.ms.bands[1]);
    for (std::size_t i = 0; i < green.size(); ++i) {
      ASSERT_NEAR(out[1][i], (green[i] - from.mean) / from.deviation * to.deviation + to.mean, 1e-6);
    }
  }
}

TEST_F(SpectralMatch, ShowsItsOwnStageToTheReporter) {
  const Scene scene(38);
  FusionParam param = scene.Param(PDT_FLOAT32);
  param.m_bSpectralMatch = true;
  RecordingProgress progress;
  CBroveyFusion fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  const auto& calls = progress.Calls();
  EXPECT_EQ(std::count(calls.begin(), calls.end(), L"Start 正在进行光谱匹配运算... 100"), 1);
}

TEST_F(SpectralMatch, TouchesNothingWhereItIsOff) {
  class Ending : public CBroveyFusion {
   public:
    using CBroveyFusion::CBroveyFusion;
    using CBroveyFusion::m_strTempFile;
  };
  const Scene scene(39);
  FusionParam param = scene.Param();
  Ending fusion(&param);
  fusion.m_strTempFile = scene.msFile;
  fusion.EndProccess();
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  EXPECT_TRUE(test_support::FileExists(scene.msFile));
  EXPECT_FALSE(test_support::FileExists(scene.outFile));
}

TEST_F(SpectralMatch, TakesARotatedResultAsItLies) {
  Scene scene(40);
  const double turned[6] = {440000.0, 8.0, 6.0, 4470000.0, 6.0, -8.0};
  std::copy_n(turned, 6, scene.pan.geoTransform);
  test_support::WriteImage(scene.pan, scene.panFile, PDT_UINT16);
  FusionParam param = scene.Param(PDT_FLOAT32);
  param.m_bSpectralMatch = true;
  param.m_bOpenOption = false;
  param.m_rcProcess = {0, 0, 12, 9};
  CBroveyFusion fusion(&param);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  const auto out = ReadImage(scene.outFile);
  EXPECT_EQ(out.width, 12);
  EXPECT_EQ(out.height, 9);
  EXPECT_EQ(out.geoTransform[2], 6.0);
}

TEST_F(SpectralMatch, CountsTheAreaOfInterestAlone) {
  const Scene scene(41);
  FusionParam param = scene.Param(PDT_FLOAT64);
  param.m_bSpectralMatch = true;
  param.m_strAoiFile = L"/vsimem/match_area.csv";
  test_support::WriteTriangle(param.m_strAoiFile, {440000.0, 4470000.0}, {440370.0, 4470000.0}, {440000.0, 4469710.0});
  CBroveyFusion(&param).Process();
  const auto out = ReadImage(scene.outFile);
  for (std::size_t b = 0; b < 3; ++b) {
    // Brovey of positive values is nowhere 0, and the stretch makes no exact 0 of them.
    std::vector<double> inside;
    for (const double v : out.bands[b]) {
      if (v != 0.0) inside.push_back(v);
    }
    EXPECT_LT(inside.size(), out.bands[b].size() * 2 / 3);
    const Figures target = FiguresOf(scene.ms.bands[b]);
    EXPECT_NEAR(FiguresOf(inside).mean, target.mean, 1e-6);
    EXPECT_NEAR(FiguresOf(inside).deviation, target.deviation, 1e-6);
  }
}

}  // namespace
