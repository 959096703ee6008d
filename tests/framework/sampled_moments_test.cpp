// Moments of large results, taken from rows that lie evenly in them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "band_arithmetic/multiple_fusion.h"
#include "platform/statistics/survey.h"
#include "platform/utility/common_fun.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"

namespace {

using test_support::ReadImage;
using test_support::RecordingProgress;
using test_support::Scene;
using test_support::SceneOptions;

using Bands = std::vector<std::vector<double>>;

constexpr int kWidth = 13;
constexpr int kHeight = 1100;

/// A tall scene whose files' blocks have so many rows.
class TallScene : public Scene {
 public:
  explicit TallScene(int fileRows) : Scene(84, Options()), m_fileRows(fileRows) { WritePan(); }
  void WritePan() const {
    test_support::WriteImage(pan, panFile, PDT_UINT16, "", std::nullopt, {"BLOCKYSIZE=" + std::to_string(m_fileRows)});
  }

 private:
  static SceneOptions Options() {
    SceneOptions options;
    options.panWidth = kWidth;
    options.panHeight = kHeight;
    options.msBands = 2;
    return options;
  }
  int m_fileRows;
};

fusion::MatchTargets Targets(std::int64_t mostPixels, bool robust = false) {
  return {.means = {100.0, 107.0}, .stdDevs = {9.0, 10.0}, .robust = robust, .mostPixels = mostPixels};
}

Bands Fuse(FusionParam param, const fusion::MatchTargets* targets, RecordingProgress* progress = nullptr,
           double level = 0.0) {
  CMultipleFusion fusion(&param);
  fusion.SetProgress(progress);
  if (targets) fusion.MatchBlocks(*targets);
  if (level > 0.0) fusion.LevelBlocks({.ratio = level});
  fusion.Process();
  EXPECT_TRUE(fusion.Succeeded());
  return ReadImage(param.m_strOutFile).bands;
}

/// The definition: of every so many rows some are looked at, in one of the places that they may take there.
bool IsLookedAt(int row, int every, int some) {
  constexpr double kGoldenRatio = 0.6180339887498949;
  const int group = row / every;
  const int places = every / some;
  const int place = static_cast<int>(std::fmod(group * kGoldenRatio, 1.0) * places);
  int begin = group * every + place * some;
  if (begin >= kHeight) begin = group * every;
  return row >= begin && row < begin + some;
}

/// These give the moments, and all rows are matched with them.
Bands Matched(Bands raw, int every, int some, const fusion::MatchTargets& targets) {
  for (std::size_t b = 0; b < raw.size(); ++b) {
    long double n = 0;
    long double sum = 0;
    long double squares = 0;
    const auto isLookedAt = [&](std::size_t i) { return IsLookedAt(static_cast<int>(i / kWidth), every, some); };
    for (std::size_t i = 0; i < raw[b].size(); ++i) {
      if (!isLookedAt(i)) continue;
      n += 1;
      sum += raw[b][i];
    }
    const long double mean = sum / n;
    for (std::size_t i = 0; i < raw[b].size(); ++i) {
      if (isLookedAt(i)) squares += (raw[b][i] - mean) * (raw[b][i] - mean);
    }
    const long double deviation = std::sqrt(squares / n);
    for (double& v : raw[b]) {
      v = static_cast<double>((v - mean) / deviation * targets.stdDevs[b] + targets.means[b]);
    }
  }
  return raw;
}

void ExpectNear(const Bands& values, const Bands& expected, const std::string& what) {
  for (std::size_t b = 0; b < expected.size(); ++b) {
    for (std::size_t i = 0; i < expected[b].size(); ++i) {
      ASSERT_NEAR(values[b][i], expected[b][i], 1e-8) << what << ", band " << b << " at " << i;
    }
  }
}

TEST(SampledMoments, AreThoseOfRowsFromEverywhere) {
  // 14300 pixels: about a third of them, or nearly all.
  constexpr std::int64_t kThird = 14300 / 3;
  constexpr std::int64_t kMost = 14300 / 2 + 1;
  for (const bool robust : {false, true}) {
    const TallScene scene(1);
    const Bands raw = Fuse(scene.Param(), nullptr);
    const auto targets = Targets(kThird, robust);
    ExpectNear(Fuse(scene.Param(), &targets), Matched(raw, 24, 8, targets), "a third");
    const auto nearlyAll = Targets(kMost, robust);
    ExpectNear(Fuse(scene.Param(), &nearlyAll), Matched(raw, kHeight, kHeight, targets), "nearly all");
    // A block of the file is decoded as a whole, so it is looked at as a whole.
    const TallScene blocks(100);
    ExpectNear(Fuse(blocks.Param(), &targets), Matched(raw, 300, 100, targets), "whole blocks");
  }
}

TEST(SampledMoments, AreTheSameHoweverTheOutputIsHeld) {
  const TallScene scene(100);
  FusionParam param = scene.Param();
  param.m_rcScene = CRect(0, 0, kWidth, kHeight);
  param.m_nMostBlockPixels = 100 * kWidth;
  const auto targets = Targets(kWidth * kHeight / 3);
  param.m_vecCreationOptions = {"BLOCKYSIZE=1"};
  const Bands rows = Fuse(param, &targets);
  // As many as would leave blocks of 64 of the 100 rows, if they were what is looked at.
  param.m_vecCreationOptions = {"BLOCKYSIZE=64"};
  EXPECT_EQ(Fuse(param, &targets), rows);
}

TEST(SampledMoments, AreThoseOfAllRowsWhereThoseLookedAtHoldTooLittle) {
  TallScene scene(1);
  // Of the rows that are looked at two hold data.
  auto& pan = scene.pan.bands[0];
  for (std::size_t i = 0; i < pan.size(); ++i) {
    const auto row = static_cast<int>(i / kWidth);
    if (IsLookedAt(row, 24, 8) && row > 1) pan[i] = 0.0;
  }
  FusionParam param = scene.Param(PDT_FLOAT64);
  param.m_bMaskNoData = true;
  test_support::WriteImage(scene.pan, scene.panFile, PDT_UINT16, "", 0.0, {"BLOCKYSIZE=1"});
  const auto whole = Targets(0);
  const Bands expected = Fuse(param, &whole);
  const auto sampled = Targets(14300 / 3);
  RecordingProgress progress;
  EXPECT_EQ(Fuse(param, &sampled, &progress), expected);
  // Begun anew: after the blocks looked at in vain come three twice.
  const auto& calls = progress.Calls();
  const auto began = std::count_if(calls.begin(), calls.end(), [](const std::wstring& call) {
    return call.starts_with(L"Start") && call.ends_with(L" 6");
  });
  EXPECT_EQ(began, 1);
  EXPECT_TRUE(progress.Finished());
}

TEST(SampledMoments, LeaveWhatComesBehindThemWhole) {
  TallScene scene(1);
  // What is bright lies in rows that are not looked at for the moments.
  auto& pan = scene.pan.bands[0];
  for (std::size_t i = 0; i < pan.size(); ++i) pan[i] += IsLookedAt(static_cast<int>(i / kWidth), 24, 8) ? 0.0 : 900.0;
  scene.WritePan();
  auto targets = Targets(14300 / 3);
  targets.means = {20000.0, 20000.0};
  targets.stdDevs = {3000.0, 3000.0};
  for (const auto& band : Fuse(scene.Param(PDT_UINT16), &targets, nullptr, 0.01)) {
    const auto [least, most] = std::minmax_element(band.begin(), band.end());
    // A hundredth of 14300 pixels at each end, and those of the same value.
    EXPECT_NEAR(static_cast<double>(std::count(band.begin(), band.end(), *least)), 143, 20);
    EXPECT_NEAR(static_cast<double>(std::count(band.begin(), band.end(), *most)), 143, 20);
  }
}

/// The same by a survey that is gathered in two parts, in as many rounds as it takes.
Bands FuseSurveyed(FusionParam param, const fusion::MatchTargets& targets, int& rounds) {
  param.m_rcScene = param.m_rcProcess = CRect(0, 0, kWidth, kHeight);
  const auto merged = std::make_shared<platform::Survey>("scene");
  rounds = 0;
  for (bool complete = false; !complete && rounds < 5; ++rounds) {
    complete = true;
    platform::Survey found("scene");
    for (const platform::Survey::Rows rows : {platform::Survey::Rows{400, kHeight, kHeight}, {0, 400, kHeight}}) {
      FusionParam part = param;
      part.m_pSurvey = std::make_shared<platform::Survey>(*merged);
      part.m_pSurvey->Gather(rows);
      part.m_rcProcess.bottom = 1;
      CMultipleFusion fusion(&part);
      fusion.MatchBlocks(targets);
      fusion.Process();
      EXPECT_TRUE(fusion.Succeeded()) << CommonFun::U2Utf8(fusion.GetLastErrorMessage());
      complete = complete && part.m_pSurvey->Pending() == 0;
      found.Merge(part.m_pSurvey->Found());
    }
    merged->Merge(found);
  }
  --rounds;
  param.m_pSurvey = merged;
  return Fuse(param, &targets);
}

TEST(SampledMoments, AreTheSameByASurvey) {
  TallScene scene(1);
  FusionParam param = scene.Param(PDT_FLOAT64);
  param.m_bMaskNoData = true;
  int rounds = 0;
  for (const bool robust : {false, true}) {
    const auto targets = Targets(14300 / 3, robust);
    const Bands expected = Fuse(param, &targets);
    EXPECT_EQ(FuseSurveyed(param, targets, rounds), expected);
    EXPECT_EQ(rounds, 1);
  }
  // What was looked at holds too little, which turns out when all of it is there.
  auto& pan = scene.pan.bands[0];
  for (std::size_t i = 0; i < pan.size(); ++i) {
    const auto row = static_cast<int>(i / kWidth);
    if (IsLookedAt(row, 24, 8) && row > 1) pan[i] = 0.0;
  }
  test_support::WriteImage(scene.pan, scene.panFile, PDT_UINT16, "", 0.0, {"BLOCKYSIZE=1"});
  const auto sampled = Targets(14300 / 3);
  const Bands expected = Fuse(param, &sampled);
  EXPECT_EQ(FuseSurveyed(param, sampled, rounds), expected);
  EXPECT_EQ(rounds, 2);
}

}  // namespace
