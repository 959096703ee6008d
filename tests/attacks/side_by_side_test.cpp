// Many at once in one process, beside a host that uses GDAL itself: the same bytes, and the host notices nothing.
#include <cpl_conv.h>
#include <cpl_error.h>
#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "platform/raster/raster_source.h"
#include "runs/check.h"
#include "tests/support/all_methods.h"
#include "tests/support/run_scene.h"
#include "tests/support/test_raster.h"

namespace {

constexpr int kRounds = 3;

/// Does so many things at once, each in a thread.
template <typename Work>
void AtOnce(std::size_t count, const Work& work) {
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < count; ++i) threads.emplace_back([&work, i] { work(i); });
  for (std::thread& thread : threads) thread.join();
}

TEST(SideBySide, ObjectsOfAllMethodsGiveWhatTheyGiveInTurn) {
  test_support::SceneOptions options;
  options.panHeight = 700;
  options.msNoData = 3.0;
  const test_support::Scene scene(7, options);
  const auto& methods = test_support::AllMethods();
  ASSERT_GE(methods.size(), 8U);
  const auto fuse = [&](std::size_t i, const std::wstring& out) {
    FusionParam param = scene.Param(PDT_FLOAT32);
    param.m_strOutFile = out;
    // Some with threads of their own.
    methods[i].runWith(param, {.overlapped = i % 2 == 0, .threads = 1 + static_cast<int>(i % 3)});
    const std::string bytes = test_support::FileContent(out);
    CRasterSource::DeleteFileW(out);
    return bytes;
  };
  std::vector<std::string> inTurn;
  for (std::size_t i = 0; i < methods.size(); ++i) {
    inTurn.push_back(fuse(i, test_support::MemoryPath()));
    EXPECT_FALSE(inTurn.back().empty()) << methods[i].name;
  }
  for (int round = 0; round < kRounds; ++round) {
    std::vector<std::wstring> outs;
    for (std::size_t i = 0; i < methods.size(); ++i) outs.push_back(test_support::MemoryPath());
    AtOnce(methods.size(), [&](std::size_t i) {
      EXPECT_TRUE(fuse(i, outs[i]) == inTurn[i]) << methods[i].name << " in round " << round;
    });
  }
}

TEST(SideBySide, EightObjectsOfOneMethodGiveTheSame) {
  const test_support::Scene scene(8);
  for (const auto& method : test_support::AllMethods()) {
    std::vector<std::wstring> outs;
    for (int i = 0; i < 8; ++i) outs.push_back(test_support::MemoryPath());
    AtOnce(outs.size(), [&](std::size_t i) {
      FusionParam param = scene.Param();
      param.m_strOutFile = outs[i];
      method.run(param);
    });
    const std::string first = test_support::FileContent(outs[0]);
    EXPECT_FALSE(first.empty());
    for (const std::wstring& out : outs) {
      EXPECT_TRUE(test_support::FileContent(out) == first) << method.name;
      CRasterSource::DeleteFileW(out);
    }
  }
}

using RunsSideBySide = test_support::RunScene;

constexpr const char* kMethods[] = {"bayesian", "brovey", "multiplicative", "weighted", "ihs", "pca", "hpf", "sharpen"};

/// What a host hears of GDAL's errors.
std::atomic<int> g_heard{0};
void CPL_STDCALL Hear(CPLErr level, CPLErrorNum, const char*) {
  if (level >= CE_Failure) ++g_heard;
}

TEST_F(RunsSideBySide, AHostThatUsesGdalItselfIsNotDisturbed) {
  const GIntBig room = GDALGetCacheMax64();
  const CPLErrorHandler before = CPLSetErrorHandler(Hear);
  GDALSetCacheMax64(room + 12345);
  CPLSetConfigOption("FUSION_TEST_OF_A_HOST", "its own");
  CPLSetConfigOption("GTIFF_DIRECT_IO", "NO");
  g_heard = 0;
  const std::unique_ptr<GDALDataset> own(GDALDataset::Open(m_folder.Path("pan.tif").c_str()));
  ASSERT_TRUE(own);
  const auto read = [&] {
    std::vector<double> values(1600);
    EXPECT_EQ(own->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, 40, 40, values.data(), 40, 40, GDT_Float64, 0, 0, nullptr),
              CE_None);
    return values;
  };
  const std::vector<double> whole = read();

  std::atomic<bool> going{true};
  int asked = 0;
  // The host's own work: reads, and openings that fail and are told.
  std::thread host([&] {
    do {
      EXPECT_EQ(read(), whole);
      EXPECT_EQ(GDALOpenEx(m_folder.Path("none.tif").c_str(), GDAL_OF_VERBOSE_ERROR, nullptr, nullptr, nullptr),
                nullptr);
      ++asked;
    } while (going);
  });
  for (const char* method : kMethods) {
    fusion::FuseRequest request = Request(method);
    request.overwrite = true;
    request.threads = "2";
    EXPECT_NO_THROW(fusion::Fuse(request)) << method;
    request.pan = m_folder.Path("missing.tif");
    EXPECT_THROW(fusion::Fuse(request), fusion::RunFailure);
  }
  fusion::CheckRequest check;
  check.pan = m_folder.Path("pan.tif");
  check.ms = m_folder.Path("ms.tif");
  EXPECT_NO_THROW(fusion::Check(check));
  going = false;
  host.join();

  EXPECT_EQ(g_heard, asked) << "the host hears of its own failures, and of none of the runs'";
  EXPECT_EQ(GDALGetCacheMax64(), room + 12345);
  EXPECT_STREQ(CPLGetConfigOption("FUSION_TEST_OF_A_HOST", ""), "its own");
  EXPECT_STREQ(CPLGetConfigOption("GTIFF_DIRECT_IO", ""), "NO");
  EXPECT_EQ(read(), whole);
  EXPECT_EQ(CPLSetErrorHandler(before), &Hear);
  GDALSetCacheMax64(room);
  CPLSetConfigOption("FUSION_TEST_OF_A_HOST", nullptr);
  CPLSetConfigOption("GTIFF_DIRECT_IO", nullptr);
}

}  // namespace
