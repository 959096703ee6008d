#include "transform/ihs_tran_fusion.h"

#include <gtest/gtest.h>
#include <omp.h>

#include "platform/algorithm/build_raster_overviews.h"
#include "platform/utility/log.h"
#include "tests/support/method_sweep.h"
#include "tests/transform/ihs_definition.h"

namespace {

using test_support::ReadImage;
using test_support::RecordingProgress;
using test_support::Scene;
using test_support::SceneOptions;

/// Scaling of everything but bytes to 1..254 by the range of each image band.
reference::Run IhsReference(const Scene& scene, const FusionParam& param) {
  reference::Run run = scene.Reference(param);
  // The library's cosines differ from the C library's in the last bit.
  run.tolerance = 1e-12;
  const auto range = [](const std::vector<double>& values) {
    return std::make_pair(*std::min_element(values.begin(), values.end()),
                          *std::max_element(values.begin(), values.end()));
  };
  std::vector<std::pair<double, double>> ranges;
  for (const int b : run.msBands) ranges.push_back(range(scene.ms.bands[static_cast<std::size_t>(b)]));
  ranges.push_back(range(scene.pan.bands[0]));
  run.afterRead = [ranges](int index, double v) {
    const auto& [low, high] = index < 0 ? ranges.back() : ranges[static_cast<std::size_t>(index)];
    return (v - low) / (high - low) * 253.0 + 1.0;
  };
  std::vector<std::int32_t> rgb = param.m_vecRGBBands;
  if (rgb.empty())
    rgb = run.msBands.size() == 4 ? std::vector<std::int32_t>{2, 1, 0} : std::vector<std::int32_t>{0, 1, 2};
  run.arithmetic = [rgb](const reference::Pixel& pixel) {
    std::vector<double> out = pixel.ms;
    ihs_definition::Substitute(pixel.pan, out[static_cast<std::size_t>(rgb[0])], out[static_cast<std::size_t>(rgb[1])],
                               out[static_cast<std::size_t>(rgb[2])]);
    return out;
  };
  return run;
}

class IhsDefinition : public test_support::MethodSweep {};

TEST_P(IhsDefinition, HoldsForRatiosOffsetsAreasAndMasks) { Sweep<CIhsTranFusion>(IhsReference); }

INSTANTIATE_TEST_SUITE_P(AllTypes, IhsDefinition, test_support::AllTypesAndResamplings(), test_support::SweepCaseName);

TEST(IhsFusion, PanEqualToTheIntensityChangesNothing) {
  // A byte image stays on its own scale, so nothing but the transform is at work.
  std::vector<double> pan;
  std::vector<std::vector<double>> bands(3);
  for (int i = 0; i < 60; ++i) {
    bands[0].push_back(3 + 4 * i);
    bands[1].push_back(243 - 4 * i);
    bands[2].push_back(30 + 3 * (i % 7));
    pan.push_back(0);
  }
  for (std::size_t i = 0; i < pan.size(); ++i) {
    // Whole intensities: the third band makes the sum a multiple of three.
    const double rest = std::fmod(bands[0][i] + bands[1][i] + bands[2][i], 3.0);
    bands[2][i] += 3.0 - rest;
    pan[i] = (bands[0][i] + bands[1][i] + bands[2][i]) / 3.0;
  }
  const test_support::OneRow row(pan, bands, PDT_UINT8);
  const auto out = row.Fuse<CIhsTranFusion>(PDT_FLOAT64);
  for (std::size_t b = 0; b < 3; ++b) {
    for (std::size_t i = 0; i < pan.size(); ++i) EXPECT_NEAR(out[b][i], bands[b][i], 1e-9);
  }
}

TEST(IhsFusion, PanEqualToTheIntensityOfAFloatImageFrom1To254ChangesNothing) {
  std::vector<std::vector<double>> bands(3, {1.0, 254.0});
  for (int i = 0; i < 200; ++i) {
    bands[0].push_back(1.5 + (i * 37) % 251);
    bands[1].push_back(2.25 + (i * 101) % 250);
    bands[2].push_back(3.75 + (i * 173) % 249);
  }
  std::vector<double> pan;
  for (std::size_t i = 0; i < bands[0].size(); ++i) pan.push_back((bands[0][i] + bands[1][i] + bands[2][i]) / 3.0);
  const test_support::OneRow row(pan, bands, PDT_FLOAT64);
  const auto out = row.Fuse<CIhsTranFusion>(PDT_FLOAT64);
  for (std::size_t b = 0; b < 3; ++b) {
    for (std::size_t i = 0; i < pan.size(); ++i) EXPECT_NEAR(out[b][i], bands[b][i], 1e-9);
  }
}

TEST(IhsFusion, PositionsOfTheCallerAreUsedAsTheyStand) {
  SceneOptions options;
  options.msBands = 4;
  options.panType = PDT_INT16;
  const Scene scene(67, options);
  for (const auto& rgb : {std::vector<std::int32_t>{3, 0, 2}, {0, 1, 2}, {0, 0, 1}, {2, 1, 0, 9}}) {
    FusionParam param = scene.Param();
    param.m_vecRGBBands = rgb;
    test_support::ExpectDefinition<CIhsTranFusion>(scene, param, IhsReference(scene, param));
  }
  FusionParam fewer = scene.Param();
  fewer.m_nOutBandCount = 2;
  fewer.m_vecRGBBands = {3, 0, 2};
  test_support::ExpectDefinition<CIhsTranFusion>(scene, fewer, IhsReference(scene, fewer));
  FusionParam chosen = scene.Param();
  chosen.m_vecMSBands = {3, 1, 0};
  test_support::ExpectDefinition<CIhsTranFusion>(scene, chosen, IhsReference(scene, chosen));
}

TEST(IhsFusion, MultispectralNoDataIsNotScaled) {
  // The fourth band is copied, so that it shows what was read: valid values from 200 to 800, and 0 left as it is.
  const test_support::OneRow row({10, 20, 30}, {{1, 2, 3}, {3, 2, 1}, {1, 3, 2}, {0, 200, 800}}, PDT_UINT16);
  const auto plain = row.Fuse<CIhsTranFusion>(PDT_FLOAT64);
  EXPECT_EQ(plain[3], (std::vector<double>{1.0, 64.25, 254.0})) << "0 is a value like any other";
  reference::Image ms = ReadImage(row.Param().m_strMSFile);
  test_support::WriteImage(ms, row.Param().m_strMSFile, PDT_UINT16, "", 0.0);
  const auto declared = row.Fuse<CIhsTranFusion>(PDT_FLOAT64);
  EXPECT_EQ(declared[3], (std::vector<double>{0.0, 1.0, 254.0}));
}

TEST(IhsFusion, DeclaredNoDataInBothImagesNarrowsTheRange) {
  test_support::OneRow row({0, 9, 255}, {{7, 7, 7}, {7, 7, 7}, {7, 7, 7}}, PDT_UINT8);
  EXPECT_EQ(row.Fuse<CIhsTranFusion>(PDT_UINT8)[0], (std::vector<double>{0.0, 9.0, 255.0}));
  const auto declare = [](const std::wstring& file) {
    test_support::WriteImage(ReadImage(file), file, PDT_UINT8, "", 77.0);
  };
  declare(row.Param().m_strPanFile);
  EXPECT_EQ(row.Fuse<CIhsTranFusion>(PDT_UINT8)[0], (std::vector<double>{0.0, 9.0, 255.0}));
  declare(row.Param().m_strMSFile);
  EXPECT_EQ(row.Fuse<CIhsTranFusion>(PDT_UINT8)[0], (std::vector<double>{1.0, 9.0, 254.0}));
}

TEST(IhsFusion, BandWithoutSpreadGivesZeroInIntegers) {
  const test_support::OneRow row({10, 20}, {{500, 500}, {500, 600}, {500, 700}}, PDT_UINT16);
  const auto out = row.Fuse<CIhsTranFusion>(PDT_UINT8);
  for (const double v : out[0]) EXPECT_EQ(v, 0.0);
}

TEST(IhsFusion, PreparingWithoutOpenImagesFails) { EXPECT_EQ(CIhsTranFusion(nullptr).Preproccess(), 4); }

TEST(IhsFusion, MatchedRunLeavesItsTemporaryFileWithoutOverviews) {
  const Scene scene(68);
  FusionParam param = scene.Param();
  param.m_bSpectralMatch = true;
  class Temporary : public CIhsTranFusion {
   public:
    using CIhsTranFusion::CIhsTranFusion;
    const std::wstring& Path() const { return m_strTempFile; }
  } fusion(&param);
  RecordingProgress progress;
  fusion.SetProgress(&progress);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  EXPECT_FALSE(test_support::FileExists(scene.outFile));
  EXPECT_TRUE(test_support::FileExists(fusion.Path()));
  EXPECT_EQ(progress.Calls().back(), L"Finish");
  CRasterSource::DeleteFileW(fusion.Path());
}

TEST(IhsFusion, WideTypesAreBroughtToTheScaleOf1To254) {
  const test_support::OneRow row({1000.0, 2000.0, 3000.0}, {{10, 20, 30}, {10, 20, 30}, {10, 20, 30}}, PDT_UINT16);
  const auto out = row.Fuse<CIhsTranFusion>(PDT_FLOAT64);
  EXPECT_EQ(out[0], (std::vector<double>{1.0, 127.5, 254.0}));
}

TEST(IhsFusion, FourBandsAreTakenAsBlueGreenRedAndNearInfrared) {
  // Pure blue in a byte scene of four bands: its hue is blue, the fourth band keeps its value.
  const test_support::OneRow row({20.0}, {{60.0}, {0.0}, {0.0}, {7.0}}, PDT_UINT8);
  const auto out = row.Fuse<CIhsTranFusion>(PDT_FLOAT64);
  EXPECT_NEAR(out[0][0], 60.0, 1e-9);
  EXPECT_NEAR(out[1][0], 0.0, 1e-9);
  EXPECT_NEAR(out[2][0], 0.0, 1e-9);
  EXPECT_EQ(out[3][0], 7.0);
}

TEST(IhsFusion, NoDataPanValueGoesIntoEveryBand) {
  SceneOptions options;
  options.panType = PDT_INT16;
  options.msType = PDT_UINT8;
  options.high = 200.0;
  options.panNoData = -77.0;
  Scene scene(61, options);
  scene.pan.bands[0][40] = -77.0;
  test_support::WriteImage(scene.pan, scene.panFile, PDT_INT16, "", -77.0);
  FusionParam param = scene.Param(PDT_INT16);
  CIhsTranFusion(&param).Process();
  auto out = ReadImage(scene.outFile);
  for (const auto& band : out.bands) EXPECT_EQ(band[40], -77.0);
  param.m_eOutDataType = PDT_UINT8;
  CIhsTranFusion(&param).Process();
  out = ReadImage(scene.outFile);
  for (const auto& band : out.bands) EXPECT_EQ(band[40], 0.0) << "clamped to the type first";
}

TEST(IhsFusion, ResultDoesNotDependOnTheNumberOfThreads) {
  SceneOptions options;
  options.panWidth = 131;
  options.panHeight = 77;
  const Scene scene(62, options);
  FusionParam param = scene.Param(PDT_FLOAT64);
  const int before = omp_get_max_threads();
  std::vector<reference::Image> results;
  for (const int threads : {1, 2, 7}) {
    omp_set_num_threads(threads);
    CIhsTranFusion(&param).Process();
    results.push_back(ReadImage(scene.outFile));
  }
  omp_set_num_threads(before);
  EXPECT_EQ(results[0].bands, results[1].bands);
  EXPECT_EQ(results[0].bands, results[2].bands);
}

TEST(IhsFusion, RefusesTooFewBandsAndPositionsThatDoNotExist) {
  const auto expectRefusal = [](const Scene& scene, FusionParam param) {
    RecordingProgress progress;
    CIhsTranFusion fusion(&param);
    fusion.SetProgress(&progress);
    fusion.Process();
    EXPECT_EQ(fusion.GetLastErrorType(), 4);
    EXPECT_EQ(fusion.GetLastErrorMessage(), L"多光谱数据处理波段错误！");
    EXPECT_EQ(progress.Errors(), 1);
    static_cast<void>(scene);
  };
  SceneOptions two;
  two.msBands = 2;
  const Scene few(63, two);
  expectRefusal(few, few.Param());
  FusionParam twice = few.Param();
  twice.m_vecRGBBands = {0, 1, 0};
  expectRefusal(few, twice);
  const Scene scene(64);
  for (const auto& rgb : {std::vector<std::int32_t>{0, 1, 3}, {-1, 1, 2}, {0, 1}}) {
    FusionParam param = scene.Param();
    param.m_vecRGBBands = rgb;
    expectRefusal(scene, param);
  }
}

TEST(IhsFusion, EndsWithOverviewsWhereThereIsAReporter) {
  SceneOptions options;
  options.panWidth = 600;
  options.panHeight = 600;
  const Scene scene(65, options);
  FusionParam param = scene.Param(PDT_UINT8);
  RecordingProgress progress;
  CIhsTranFusion fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  const auto& calls = progress.Calls();
  EXPECT_NE(std::find(calls.begin(), calls.end(), L"Step 100 等待创建输出影像金字塔"), calls.end());
  EXPECT_EQ(calls.back(), L"Finish");
  EXPECT_TRUE(test_support::FileExists(scene.outFile + L".ovr"));
  CRasterSource::DeleteFileW(scene.outFile);

  CIhsTranFusion silent(&param);
  silent.Process();
  EXPECT_FALSE(test_support::FileExists(scene.outFile + L".ovr"));
}

TEST(IhsFusion, CancellationIsLoggedUnderItsOwnName) {
  struct Log : CLog {
    void WriteLog(int level, const char* file, int line, const char* function, const wchar_t* text) override {
      entry = std::to_string(level) + "|" + file + "|" + std::to_string(line) + "|" + function;
      message = text;
    }
    std::string entry;
    std::wstring message;
  } log;
  CLog::m_pLogger = &log;
  const Scene scene(66);
  FusionParam param = scene.Param();
  RecordingProgress progress;
  progress.CancelAtStep(1);
  CIhsTranFusion fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  CLog::m_pLogger = nullptr;
  EXPECT_EQ(fusion.GetLastErrorType(), 1);
  EXPECT_EQ(log.entry, "2|IhsTranFusion|669|CIhsTranFusion::Process");
  EXPECT_EQ(log.message, L"  WARNING: 用户取消了处理进程，处理失败！ ...");
}

TEST(IhsFusion, StretchFillsAWiderIntegerType) {
  const test_support::OneRow row({0.0, 51.0, 255.0}, {{0, 9, 9}, {0, 9, 9}, {0, 9, 9}}, PDT_UINT8);
  const auto out = row.Fuse<CIhsTranFusion>(PDT_UINT16, [](CIhsTranFusion& fusion) { fusion.SetStretch(true); });
  EXPECT_EQ(out[0], (std::vector<double>{0.0, 13107.0, 65535.0}));
}

TEST(IhsFusion, CommonRulesOfAMethodHold) { test_support::ExpectCommonRules<CIhsTranFusion>(); }

}  // namespace
