#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "band_arithmetic/brovey_fusion.h"
#include "band_arithmetic/multiple_fusion.h"
#include "framework/messages.h"
#include "platform/raster/raster_fault.h"
#include "platform/validity/raster_aoi.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"

namespace {

using platform::RasterOperation;
using test_support::ReadImage;
using test_support::RecordingProgress;
using test_support::Scene;
using test_support::SceneOptions;

using Bands = std::vector<std::vector<double>>;

/// More rows than a block has.
constexpr int kHeight = 1100;

SceneOptions TallScene() {
  SceneOptions options;
  options.panWidth = 13;
  options.panHeight = kHeight;
  options.msBands = 4;
  return options;
}

fusion::MatchTargets Targets(std::size_t bands = 4) {
  fusion::MatchTargets targets;
  for (std::size_t b = 0; b < bands; ++b) {
    targets.means.push_back(100.0 + 7.0 * static_cast<double>(b));
    targets.stdDevs.push_back(9.0 + static_cast<double>(b));
  }
  return targets;
}

template <typename Algorithm>
Bands Fuse(FusionParam param, const fusion::MatchTargets* targets = nullptr) {
  Algorithm algorithm(&param);
  if (targets) algorithm.MatchBlocks(*targets);
  algorithm.Process();
  EXPECT_EQ(algorithm.GetLastErrorType(), 0);
  return ReadImage(param.m_strOutFile).bands;
}

/// The definition: the pixels that count give a band's moments, all of them are stretched, the others become 0.
std::vector<double> Matched(const std::vector<double>& raw, const std::vector<bool>& counts, double targetMean,
                            double targetStdDev, bool round) {
  long double n = 0;
  long double sum = 0;
  for (std::size_t i = 0; i < raw.size(); ++i) {
    n += counts[i] ? 1 : 0;
    sum += counts[i] ? raw[i] : 0.0;
  }
  const long double mean = sum / n;
  long double squares = 0;
  for (std::size_t i = 0; i < raw.size(); ++i) squares += counts[i] ? (raw[i] - mean) * (raw[i] - mean) : 0.0L;
  const long double deviation = std::sqrt(squares / n);
  std::vector<double> out(raw.size(), 0.0);
  for (std::size_t i = 0; i < raw.size(); ++i) {
    if (!counts[i]) continue;
    const auto value = static_cast<double>((raw[i] - mean) / deviation * targetStdDev + targetMean);
    out[i] = round ? std::floor(value + 0.5) : value;
  }
  return out;
}

class MatchedBlocks : public testing::Test {
 protected:
  ~MatchedBlocks() override { platform::SetRasterFault({}); }
};

TEST_F(MatchedBlocks, EveryTypeGetsTheMomentsOfTheWholeResult) {
  const Scene scene(71, TallScene());
  const std::vector<bool> all(static_cast<std::size_t>(13) * kHeight, true);
  for (const PixelDataType type : {PDT_UINT8, PDT_UINT16, PDT_INT16, PDT_UINT32, PDT_INT32, PDT_FLOAT32, PDT_FLOAT64}) {
    const bool wide = type == PDT_UINT32 || type == PDT_INT32 || type == PDT_FLOAT64;
    const Bands raw = Fuse<CBroveyFusion>(scene.Param(wide ? PDT_FLOAT64 : PDT_FLOAT32));
    const fusion::MatchTargets targets = Targets();
    const Bands matched = Fuse<CBroveyFusion>(scene.Param(type), &targets);
    ASSERT_EQ(matched.size(), raw.size());
    const bool isFloat = type == PDT_FLOAT32 || type == PDT_FLOAT64;
    for (std::size_t b = 0; b < raw.size(); ++b) {
      const auto expected = Matched(raw[b], all, targets.means[b], targets.stdDevs[b], !isFloat);
      for (std::size_t i = 0; i < expected.size(); ++i) {
        const double held = type == PDT_UINT8 ? std::clamp(expected[i], 0.0, 255.0) : expected[i];
        ASSERT_NEAR(matched[b][i], held, isFloat ? 2e-5 : 0.0) << "type " << type << " band " << b << " at " << i;
      }
    }
  }
}

TEST_F(MatchedBlocks, ValuesBeyondTheOutputTypeAreOnlyCutAfterTheMatching) {
  // Products of up to a million do not fit 16 bits; their matched values do.
  const Scene scene(72, TallScene());
  const fusion::MatchTargets targets = Targets();
  const Bands raw = Fuse<CMultipleFusion>(scene.Param(PDT_FLOAT32));
  const Bands matched = Fuse<CMultipleFusion>(scene.Param(PDT_UINT16), &targets);
  const std::vector<bool> all(raw[0].size(), true);
  EXPECT_GT(*std::max_element(raw[0].begin(), raw[0].end()), 65535.0);
  for (std::size_t b = 0; b < raw.size(); ++b) {
    EXPECT_EQ(matched[b], Matched(raw[b], all, targets.means[b], targets.stdDevs[b], true));
  }
}

TEST_F(MatchedBlocks, GreenTakesItsTenthOfNearInfraredFirst) {
  const Scene scene(73, TallScene());
  fusion::MatchTargets targets = Targets();
  targets.makeGreen = true;
  Bands raw = Fuse<CBroveyFusion>(scene.Param(PDT_FLOAT32));
  const Bands matched = Fuse<CBroveyFusion>(scene.Param(PDT_UINT16), &targets);
  for (std::size_t i = 0; i < raw[1].size(); ++i) raw[1][i] = 0.9 * raw[1][i] + 0.1 * raw[3][i];
  const std::vector<bool> all(raw[0].size(), true);
  for (std::size_t b = 0; b < raw.size(); ++b) {
    EXPECT_EQ(matched[b], Matched(raw[b], all, targets.means[b], targets.stdDevs[b], true));
  }
}

TEST_F(MatchedBlocks, OnlyTheAreaCountsAndOutsideIsZero) {
  const Scene scene(74, TallScene());
  const std::wstring area = L"/vsimem/matched_area.csv";
  const double* t = scene.pan.geoTransform;
  const auto corner = [&](double x, double y) {
    return reference::Position{t[0] + x * t[1] + y * t[2], t[3] + x * t[4] + y * t[5]};
  };
  test_support::WriteTriangle(area, corner(0.3, 100.2), corner(12.7, 130.4), corner(4.1, 1050.9));
  FusionParam param = scene.Param(PDT_FLOAT32);
  param.m_strAoiFile = area;
  const Bands raw = Fuse<CBroveyFusion>(param);
  // Brovey of positive values is nowhere 0.
  std::vector<bool> inside;
  for (const double v : raw[0]) inside.push_back(v != 0.0);
  const auto count = std::count(inside.begin(), inside.end(), true);
  ASSERT_GT(count, 1000);
  ASSERT_LT(count, static_cast<std::ptrdiff_t>(inside.size()) - 1000);
  const fusion::MatchTargets targets = Targets();
  param.m_eOutDataType = PDT_UINT16;
  const Bands matched = Fuse<CBroveyFusion>(param, &targets);
  for (std::size_t b = 0; b < raw.size(); ++b) {
    EXPECT_EQ(matched[b], Matched(raw[b], inside, targets.means[b], targets.stdDevs[b], true));
  }
}

TEST_F(MatchedBlocks, BandWithoutSpreadBecomesItsTargetMean) {
  SceneOptions options = TallScene();
  options.low = options.high = 60.0;
  const Scene scene(75, options);
  const fusion::MatchTargets targets = Targets();
  const Bands matched = Fuse<CBroveyFusion>(scene.Param(PDT_UINT16), &targets);
  for (std::size_t b = 0; b < matched.size(); ++b) {
    EXPECT_EQ(matched[b], std::vector<double>(matched[b].size(), targets.means[b]));
  }
}

TEST_F(MatchedBlocks, ProgressCountsEveryBlockTwice) {
  const Scene scene(76, TallScene());
  const FusionParam param = scene.Param(PDT_UINT16);
  RecordingProgress progress;
  FusionParam record = param;
  CBroveyFusion fusion(&record);
  fusion.MatchBlocks(Targets());
  fusion.SetProgress(&progress);
  fusion.Process();
  std::vector<std::wstring> steps;
  for (const auto& call : progress.Calls()) {
    if (call.rfind(L"Step ", 0) == 0 && call.find(fusion::messages::kProcessing) != std::wstring::npos) {
      steps.push_back(call);
    }
  }
  ASSERT_EQ(steps.size(), 6u);
  for (std::size_t i = 0; i < steps.size(); ++i) {
    EXPECT_EQ(steps[i], L"Step " + std::to_wstring(i + 1) + L" " + fusion::messages::kProcessing);
  }
  EXPECT_EQ(std::count(progress.Calls().begin(), progress.Calls().end(),
                       L"Start " + fusion::messages::RunTitle(param.m_strAlgName) + L" 6"),
            1);
  EXPECT_TRUE(progress.Finished());
}

TEST_F(MatchedBlocks, CancellationEndsTheRunInEitherPass) {
  for (const int step : {2, 5}) {
    const Scene scene(77, TallScene());
    FusionParam param = scene.Param(PDT_UINT16);
    RecordingProgress progress;
    progress.CancelAtStep(step);
    CBroveyFusion fusion(&param);
    fusion.MatchBlocks(Targets());
    fusion.SetProgress(&progress);
    fusion.Process();
    EXPECT_EQ(fusion.GetLastErrorType(), ERR_CANCELLED);
    EXPECT_FALSE(progress.Finished());
    EXPECT_EQ(progress.Steps(), 1 + step) << "no pass goes on";
  }
}

TEST_F(MatchedBlocks, FailedReadInEitherPassEndsTheRun) {
  for (const int failing : {1, 4}) {
    const Scene scene(78, TallScene());
    FusionParam param = scene.Param(PDT_UINT16);
    int reads = 0;
    platform::SetRasterFault([&](RasterOperation operation, const std::wstring& path, int, const CRect& rect) {
      return operation == RasterOperation::kRead && path == scene.panFile && rect.Height() > 1 && ++reads > failing;
    });
    CBroveyFusion fusion(&param);
    fusion.MatchBlocks(Targets());
    fusion.Process();
    EXPECT_EQ(fusion.GetLastErrorType(), ERR_READ);
    EXPECT_EQ(fusion.GetLastErrorMessage(), fusion::messages::kReadFailed);
  }
}

TEST_F(MatchedBlocks, FailedWriteEndsTheRun) {
  const Scene scene(79, TallScene());
  FusionParam param = scene.Param(PDT_UINT16);
  platform::SetRasterFault([&](RasterOperation operation, const std::wstring& path, int band, const CRect& rect) {
    return operation == RasterOperation::kWrite && path == scene.outFile && band == 2 && rect.top >= 512;
  });
  CBroveyFusion fusion(&param);
  fusion.MatchBlocks(Targets());
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), ERR_WRITE);
  EXPECT_EQ(fusion.GetLastErrorMessage(), fusion::messages::kWriteFailed);
}

TEST_F(MatchedBlocks, TargetsForOtherBandsAreRefused) {
  const Scene scene(80, TallScene());
  FusionParam param = scene.Param(PDT_UINT16);
  CBroveyFusion fusion(&param);
  fusion.MatchBlocks(Targets(3));
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), ERR_STATISTICS);
  EXPECT_EQ(fusion.GetLastErrorMessage(), fusion::messages::kMsStatisticsFailed);
}

TEST_F(MatchedBlocks, AsManyDeviationsAsMeansAreWanted) {
  const Scene scene(82, TallScene());
  FusionParam param = scene.Param(PDT_UINT16);
  CBroveyFusion fusion(&param);
  fusion::MatchTargets targets = Targets();
  targets.stdDevs.pop_back();
  fusion.MatchBlocks(targets);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), ERR_STATISTICS);
}

TEST_F(MatchedBlocks, WideTypesAreFusedInDoubleTheOthersInFloat) {
  const std::pair<PixelDataType, PixelDataType> types[] = {
      {PDT_UINT8, PDT_FLOAT32}, {PDT_UINT16, PDT_FLOAT32},  {PDT_INT16, PDT_FLOAT32},  {PDT_UINT32, PDT_FLOAT64},
      {PDT_INT32, PDT_FLOAT64}, {PDT_FLOAT32, PDT_FLOAT32}, {PDT_FLOAT64, PDT_FLOAT64}};
  for (const auto& [output, fused] : types) EXPECT_EQ(fusion::TypeToMatch(output), fused) << output;
}

TEST_F(MatchedBlocks, TheRootOfAProductCanBeMatched) {
  const Scene scene(84, TallScene());
  fusion::MatchTargets targets = Targets();
  targets.root = true;
  Bands raw = Fuse<CMultipleFusion>(scene.Param(PDT_FLOAT64));
  const std::vector<bool> all(raw[0].size(), true);
  const Bands matched = Fuse<CMultipleFusion>(scene.Param(PDT_FLOAT64), &targets);
  ASSERT_LT(*std::min_element(raw[0].begin(), raw[0].end()), 0.0) << "bicubic swings below nothing";
  for (std::size_t b = 0; b < raw.size(); ++b) {
    for (double& v : raw[b]) v = v < 0.0 ? -std::sqrt(-v) : std::sqrt(v);
    const auto expected = Matched(raw[b], all, targets.means[b], targets.stdDevs[b], false);
    for (std::size_t i = 0; i < expected.size(); ++i) ASSERT_NEAR(matched[b][i], expected[i], 1e-9);
  }
}

TEST_F(MatchedBlocks, RobustMomentsAreNotDecidedBySingleValues) {
  SceneOptions options = TallScene();
  options.panType = PDT_INT32;
  Scene scene(83, options);
  fusion::MatchTargets targets = Targets();
  const Bands plain = Fuse<CMultipleFusion>(scene.Param(PDT_FLOAT64), &targets);
  targets.robust = true;
  EXPECT_EQ(Fuse<CMultipleFusion>(scene.Param(PDT_FLOAT64), &targets), plain) << "nothing lies far off";
  // Two pixels of pan in 14300.
  scene.pan.bands[0][5] = 4e6;
  scene.pan.bands[0][9000] = 3e6;
  test_support::WriteImage(scene.pan, scene.panFile, PDT_INT32);
  FusionParam param = scene.Param(PDT_FLOAT64);
  CMultipleFusion fusion(&param);
  fusion.MatchBlocks(targets);
  fusion.Process();
  const Bands robust = ReadImage(param.m_strOutFile).bands;
  EXPECT_EQ(fusion.GetMatchOutliers().count, 8) << "in four bands";
  EXPECT_GT(fusion.GetMatchOutliers().widening, 10.0);
  // They lie at most a range beyond the others now.
  for (std::size_t b = 0; b < 4; ++b) {
    for (std::size_t i = 0; i < plain[b].size(); ++i) {
      if (i == 5 || i == 9000) continue;
      ASSERT_NEAR(robust[b][i], plain[b][i], 0.05 * targets.stdDevs[b]) << b << " at " << i;
    }
  }
}

TEST_F(MatchedBlocks, BandWithoutABufferStaysEmpty) {
  class WithoutSecond : public CBroveyFusion {
   public:
    using CBroveyFusion::CBroveyFusion;
    void** AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect,
                            PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI* aoi) override {
      void** bands =
          CBroveyFusion::AlgorithmProcess(pan, panRect, ms, msBandCount, msRect, outType, outBandCount, dstBlock, aoi);
      delete[] static_cast<float*>(bands[1]);
      bands[1] = nullptr;
      return bands;
    }
  };
  const Scene scene(81, TallScene());
  const fusion::MatchTargets targets = Targets();
  const Bands whole = Fuse<CBroveyFusion>(scene.Param(PDT_UINT16), &targets);
  const Bands without = Fuse<WithoutSecond>(scene.Param(PDT_UINT16), &targets);
  EXPECT_EQ(without[0], whole[0]);
  EXPECT_EQ(without[2], whole[2]);
  EXPECT_EQ(without[1], std::vector<double>(whole[1].size(), 0.0));
}

}  // namespace
