// Runs on several threads: the same bytes for every number of them, and the same ends.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <random>
#include <set>
#include <thread>

#include "band_arithmetic/brovey_fusion.h"
#include "framework/resampling/kernels.h"
#include "framework/row_fusion.h"
#include "framework/run/block_matching.h"
#include "platform/algorithm/run_threads.h"
#include "platform/system/start_thread.h"
#include "tests/support/all_methods.h"
#include "tests/support/gap_scene.h"
#include "tests/support/method_sweep.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"

namespace {

using test_support::NamedMethod;
using test_support::Scene;
using test_support::SceneOptions;

constexpr int kThreads[] = {1, 2, 3, 7, 16};

/// A record and what its scene is called in a failure.
struct Case {
  std::string name;
  FusionParam param;
};

bool SameBytes(const std::vector<std::vector<double>>& a, const std::vector<std::vector<double>>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
    return x.size() == y.size() && std::memcmp(x.data(), y.data(), x.size() * sizeof(double)) == 0;
  });
}

/// Runs every method with every resampling and every number of threads. The results are the same, byte for byte.
void ExpectSameBytes(const Case& given, PixelDataType type = PDT_FLOAT32) {
  for (const NamedMethod& method : test_support::AllMethods()) {
    for (const ResampleType resample : fusion::kResampleTypes) {
      if (method.isPipeline && resample != RT_BICUBIC) continue;
      SCOPED_TRACE(given.name + ", " + method.name + ", resampling " + std::to_string(resample));
      FusionParam param = given.param;
      param.m_eOutDataType = type;
      param.m_eResampleType = resample;
      std::vector<std::vector<double>> expected;
      for (const int threads : kThreads) {
        // Of lower blocks, too.
        param.m_nMostBlockPixels = threads % 2 == 0 ? 1 : 0;
        method.runWith(param, {.overlapped = threads % 2 == 1, .threads = threads});
        const reference::Image image = test_support::ReadImage(param.m_strOutFile);
        if (threads == 1) expected = image.bands;
        ASSERT_FALSE(image.bands.empty());
        ASSERT_TRUE(SameBytes(image.bands, expected)) << threads << " threads";
      }
    }
  }
}

/// Several blocks, the last one low.
SceneOptions Blocks() {
  SceneOptions options;
  options.panWidth = 33;
  options.panHeight = 1100;
  return options;
}

TEST(Threads, GiveTheSameBytes) {
  const Scene scene(201, Blocks());
  ExpectSameBytes({"plain", scene.Param()});
}

TEST(Threads, GiveTheSameBytesWhereRowsAreCutIntoTiles) {
  SceneOptions options;
  options.panWidth = 4500;
  options.panHeight = 40;
  options.ratio = 4.0;
  const Scene scene(202, options);
  Case given{"wide", scene.Param()};
  given.param.m_bRepeatMsEdges = true;
  given.param.m_bKeepSampleRange = true;
  ExpectSameBytes(given, PDT_UINT16);
}

TEST(Threads, GiveTheSameBytesInAnAreaOfInterest) {
  const Scene scene(203, Blocks());
  const std::wstring file = L"/vsimem/threads_area.csv";
  Case given{"area", scene.Param()};
  given.param.m_strAoiFile = file;
  const auto ground = [&](double x, double y) {
    return reference::Position{scene.pan.geoTransform[0] + x * scene.pan.geoTransform[1],
                               scene.pan.geoTransform[3] + y * scene.pan.geoTransform[5]};
  };
  test_support::WriteTriangle(file, ground(2, 3), ground(30, 400), ground(8, 1090));
  ExpectSameBytes(given);
}

TEST(Threads, GiveTheSameBytesWithGaps) {
  SceneOptions options;
  options.panWidth = 41;
  options.panHeight = 560;
  const test_support::GapScene gaps(204, test_support::GapShape::kSpeckles, PDT_UINT16, options);
  gaps.Write(test_support::FillValues(PDT_UINT16).first);
  Case given{"gaps", gaps.scene.Param()};
  given.param.m_bMaskNoData = true;
  ExpectSameBytes(given, PDT_UINT16);
}

TEST(Threads, GiveTheSameBytesWherePartOfTheImagesOverlaps) {
  SceneOptions options = Blocks();
  options.msShiftX = -11.0;
  options.msShiftY = 37.0;
  options.msWidth = 15;
  options.msHeight = 400;
  const Scene scene(205, options);
  ExpectSameBytes({"partial overlap", scene.Param()});
}

TEST(Threads, GiveTheSameBytesAcrossCoordinateSystems) {
  test_support::ReprojectedScene reprojected(206);
  Case given{"reprojected", reprojected.Base().Param()};
  given.param.m_bNeedReproject = true;
  ExpectSameBytes(given);
}

/// Copies the bands, and notes or throws on the way.
class Watched : public CRowFusion {
 public:
  explicit Watched(FusionParam* param) : CRowFusion(param, MakeRows) {}
  std::function<void()> onRow = [] {};
  std::set<std::thread::id> seen;
  std::mutex mutex;

 private:
  static fusion::RowMethod MakeRows(CRowFusion& self, const fusion::FusionBlock&) {
    auto& watched = static_cast<Watched&>(self);
    return {{}, [&watched](const fusion::FusionRow& row) {
              {
                const std::lock_guard lock(watched.mutex);
                watched.seen.insert(std::this_thread::get_id());
              }
              watched.onRow();
              for (int b = 0; b < row.outBandCount; ++b) std::copy_n(row.ms[b], row.width, row.out[b]);
            }};
  }
};

/// Knows how high its blocks were.
class Heights : public CBroveyFusion {
 public:
  using CBroveyFusion::CBroveyFusion;
  void** AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect,
                          PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI* aoi) override {
    heights.push_back(dstBlock->Height());
    return CBroveyFusion::AlgorithmProcess(pan, panRect, ms, msBandCount, msRect, outType, outBandCount, dstBlock, aoi);
  }
  std::vector<int> heights;
};

TEST(BlockHeight, IsThatOfTheClassUnlessTheRunAsksForLess) {
  const Scene scene(208, Blocks());
  FusionParam param = scene.Param();
  const auto heights = [&](std::int64_t mostPixels, const std::vector<std::string>& options = {"BLOCKYSIZE=1"}) {
    param.m_nMostBlockPixels = mostPixels;
    param.m_vecCreationOptions = options;
    Heights fusion(&param);
    fusion.Process();
    EXPECT_TRUE(fusion.Succeeded());
    return fusion.heights;
  };
  using Rows = std::vector<int>;
  EXPECT_EQ(heights(0), (Rows{512, 512, 76}));
  EXPECT_EQ(heights(33 * 512), (Rows{512, 512, 76}));
  EXPECT_EQ(heights(33 * 300 + 5), (Rows{300, 300, 300, 200}));
  // Not below what makes up for the rows that neighbours read twice, and of whole blocks of the file.
  Rows low(17, 64);
  low.push_back(12);
  EXPECT_EQ(heights(1), low);
  const std::vector<std::string> tiles = {"TILED=YES", "BLOCKXSIZE=48", "BLOCKYSIZE=48"};
  EXPECT_EQ(heights(33 * 100, tiles), (Rows{96, 96, 96, 96, 96, 96, 96, 96, 96, 96, 96, 44}));
}

TEST(Threads, AreStartedOnRequestAndWorkTogether) {
  const Scene scene(207, Blocks());
  FusionParam param = scene.Param();
  for (const bool asked : {false, true}) {
    Watched fusion(&param);
    if (asked) {
      fusion.SetThreads(3);
      // A row is held until three threads have one.
      const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
      fusion.onRow = [&fusion, until] {
        while (std::chrono::steady_clock::now() < until) {
          {
            const std::lock_guard lock(fusion.mutex);
            if (fusion.seen.size() >= 3) return;
          }
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
      };
    }
    fusion.Process();
    EXPECT_TRUE(fusion.Succeeded());
    EXPECT_EQ(fusion.seen.size(), asked ? 3U : 1U);
    EXPECT_TRUE(fusion.seen.contains(std::this_thread::get_id()));
  }
}

int g_started = 0;

TEST(Threads, ShareTheRowsThatLevelsAreCountedFrom) {
  constexpr int kWidth = 61;
  constexpr int kHeight = 40;
  constexpr double kRatio = 0.1;
  std::mt19937 random(208);
  std::uniform_real_distribution<float> value(-300.0F, 900.0F);
  std::vector<float> values(static_cast<std::size_t>(kWidth) * kHeight);
  for (float& v : values) v = value(random);

  platform::Workers workers(3);
  fusion::BlockMatching matching({}, fusion::LevelTargets{kRatio, PDT_FLOAT32}, 1, PDT_FLOAT32, false, &workers);
  g_started = 0;
  platform::SetThreadFault([] {
    ++g_started;
    return false;
  });
  while (matching.IsCounting()) {
    const platform::SurveyPass pass(nullptr, "", 2);
    for (const std::int64_t half : pass.Pieces()) {
      void* const there[] = {values.data() + half * kWidth * (kHeight / 2)};
      matching.Count(there, CRect(0, 0, kWidth, kHeight / 2), {}, pass, half);
    }
    EXPECT_TRUE(matching.End(pass));
    matching.EndCounting();
  }
  platform::SetThreadFault(nullptr);
  EXPECT_EQ(g_started, 2) << "beside the caller's";

  const std::wstring file = L"/vsimem/levelled.tif";
  const double identity[6] = {0, 1, 0, 0, 0, 1};
  CRasterSource output;
  ASSERT_TRUE(output.CreateRaster(kFormatGeoTiff, file, kWidth, kHeight, 1, PDT_FLOAT32, identity, L"", nullptr));
  void* const bands[] = {values.data()};
  ASSERT_TRUE(matching.Write(bands, CRect(0, 0, kWidth, kHeight), {}, output));
  output.Close();
  // The definition: a tenth of the values lie beyond either end of what becomes 0 to 1.
  std::vector<float> sorted = values;
  std::sort(sorted.begin(), sorted.end());
  const auto cut = static_cast<std::size_t>(kRatio * static_cast<double>(sorted.size()));
  const double low = sorted[cut];
  const double high = sorted[sorted.size() - 1 - cut];
  const auto written = test_support::ReadImage(file).bands.front();
  for (std::size_t i = 0; i < values.size(); ++i) {
    const double levelled = std::clamp((static_cast<double>(values[i]) - low) / (high - low), 0.0, 1.0);
    ASSERT_EQ(written[i], static_cast<double>(static_cast<float>(levelled))) << i;
  }
  CRasterSource::DeleteFileW(file);
}

TEST(Threads, AStageTakesThoseOfTheRunThatItIsIn) {
  class Stage : public CBaseAlgorithm {
   public:
    void Process() override {
      const platform::RunThreads threads(*this);
      workers = m_workers.get();
      if (inner) {
        inner->RunInside(*this);
        inner->Process();
      }
    }
    bool HasThreads() const { return m_workers != nullptr; }
    Stage* inner = nullptr;
    platform::Workers* workers = nullptr;
  };
  Stage inner;
  Stage outer;
  outer.inner = &inner;
  outer.Process();
  EXPECT_EQ(outer.workers, nullptr);
  EXPECT_EQ(inner.workers, nullptr);
  outer.SetThreads(2);
  outer.Process();
  ASSERT_NE(outer.workers, nullptr);
  EXPECT_EQ(inner.workers, outer.workers);
  EXPECT_FALSE(outer.HasThreads()) << "threads end with the run";
  EXPECT_FALSE(inner.HasThreads());
}

TEST(Threads, AnExceptionOfAnyShareEndsTheRun) {
  const Scene scene(208, Blocks());
  FusionParam param = scene.Param();
  Watched fusion(&param);
  fusion.SetThreads(4);
  const auto caller = std::this_thread::get_id();
  std::atomic<bool> elsewhere = false;
  fusion.onRow = [&] {
    // The caller waits until another thread has thrown.
    if (std::this_thread::get_id() != caller) {
      elsewhere = true;
      throw std::bad_alloc();
    }
    for (int waited = 0; waited < 5000 && !elsewhere; ++waited) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  };
  fusion.Process();
  EXPECT_TRUE(elsewhere);
  EXPECT_EQ(fusion.GetLastErrorType(), ERR_EXCEPTION);
  EXPECT_EQ(fusion.GetLastErrorMessage(), L"内存不足！");
}

TEST(Threads, ACancellationEndsTheRun) {
  const Scene scene(209, Blocks());
  FusionParam param = scene.Param();
  for (const int threads : {2, 7}) {
    test_support::RecordingProgress progress;
    progress.CancelAtStep(2);
    CBroveyFusion fusion(&param);
    fusion.SetThreads(threads);
    fusion.SetOverlappedIo(true);
    fusion.SetProgress(&progress);
    fusion.Process();
    EXPECT_EQ(fusion.GetLastErrorType(), ERR_CANCELLED);
  }
}

TEST(Threads, WithoutRoomForThemTheRunGoesOn) {
  const Scene scene(210, Blocks());
  const FusionParam param = scene.Param();
  for (const auto& method : test_support::AllMethods()) {
    SCOPED_TRACE(method.name);
    method.run(param);
    const auto expected = test_support::ReadImage(scene.outFile).bands;
    platform::SetThreadFault([] { return true; });
    method.runWith(param, {.overlapped = true, .threads = 4});
    platform::SetThreadFault(nullptr);
    EXPECT_TRUE(SameBytes(test_support::ReadImage(scene.outFile).bands, expected));
  }
}

}  // namespace
