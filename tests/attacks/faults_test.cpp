// What the platform can fail at, one thing after another, and the user's change of mind at every question: by every
// method, matched and raw, masked, with a reprojection, by every evaluation, and by an assessment.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <new>

#include "platform/algorithm/base_algorithm.h"
#include "platform/raster/pending_output.h"
#include "platform/raster/raster_fault.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/renames.h"
#include "platform/raster/virtual_raster.h"
#include "platform/system/start_thread.h"
#include "platform/utility/common_fun.h"
#include "runs/assess.h"
#include "runs/check.h"
#include "runs/evaluate.h"
#include "runs/provenance.h"
#include "runs/sample.h"
#include "tests/attacks/failing_memory.h"
#include "tests/support/run_scene.h"
#include "tests/support/test_raster.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace {

/// Threads until none can be started any more.
std::atomic<long> g_threads{-1};

using fusion::RunFailure;
using platform::RasterOperation;

constexpr RasterOperation kOperations[] = {
    RasterOperation::kOpen,  RasterOperation::kCreate, RasterOperation::kRead,   RasterOperation::kWrite,
    RasterOperation::kClose, RasterOperation::kStore,  RasterOperation::kRename, RasterOperation::kStatistics};

/// Wants out at one of the questions.
class ChangedMind : public fusion::RunObserver {
 public:
  explicit ChangedMind(int at) : m_at(at) {}
  bool WantsCancel() override { return m_asked++ >= m_at; }
  int Asked() const { return m_asked; }

 private:
  int m_at;
  int m_asked = 0;
};

class Faults : public test_support::RunScene {
 protected:
  void TearDown() override {
    attacks::allocationsLeft = -1;
    platform::SetThreadFault(nullptr);
    RunScene::TearDown();
    std::cout << m_what << ": " << m_runs << " runs, " << m_failed << " failed, " << m_runs - m_failed
              << " went on without";
#ifdef __SANITIZE_ADDRESS__
    const bool leaks = __lsan_do_recoverable_leak_check() != 0;
    EXPECT_FALSE(leaks) << m_what;
    std::cout << ", " << m_runs << " looked through for leaks" << (leaks ? ", which there are" : ": none");
#endif
    std::cout << '\n';
  }

  /// The runs of a method: matched, raw, masked, another coordinate system.
  std::vector<fusion::FuseRequest> Requests(const std::string& method) {
    std::vector<fusion::FuseRequest> requests(4, Request(method));
    requests[1].asPublished = true;
    requests[2].noData = 500.0;
    reference::Image pan = Read("pan.tif");
    reference::Image ms = Read("ms.tif");
    for (reference::Image* image : {&pan, &ms}) {
      image->geoTransform[0] = 500000.0;
      image->geoTransform[3] = 4400000.0;
    }
    test_support::WriteImage(pan, m_folder.WidePath("placed.tif"), PDT_UINT16, test_support::WktOfEpsg(32630));
    // Another coordinate system in which the place has the same coordinates.
    test_support::WriteImage(ms, m_folder.WidePath("other.tif"), PDT_UINT16, test_support::WktOfEpsg(25830));
    requests[3].pan = m_folder.Path("placed.tif");
    requests[3].ms = m_folder.Path("other.tif");
    for (auto& request : requests) {
      request.overwrite = true;
      request.threads = "2";
    }
    return requests;
  }

  /// A run with one fault. What it leaves must be what was there, or what it makes without a fault.
  template <typename Run>
  bool Hit(const std::string& what, const std::string& good, const Run& run) {
    ++m_runs;
    const auto names = m_folder.Names();
    if (m_pictureOf != good) m_picture = Read("out.tif").bands;
    m_pictureOf = good;
    bool failed = false;
    try {
      run();
    } catch (const RunFailure& failure) {
      failed = true;
      ++m_failed;
      EXPECT_FALSE(failure.Sentence().empty()) << what;
    }
    platform::SetRasterFault({});
    attacks::allocationsLeft = -1;
    EXPECT_EQ(m_folder.Names(), names) << what;
    if (failed) {
      EXPECT_TRUE(test_support::FileBytes(m_folder.Path("out.tif")) == good) << what;
    } else {
      // What it could do without makes no other picture.
      EXPECT_TRUE(Read("out.tif").bands == m_picture) << what;
      std::ofstream(CommonFun::ToPath(m_folder.WidePath("out.tif")), std::ios::binary) << good;
    }
    return failed;
  }

  /// Lets one operation after another fail, until none is left to fail.
  template <typename Run>
  void FailOperations(const std::string& what, const std::string& good, const Run& run) {
    for (const RasterOperation operation : kOperations) {
      bool hit = true;
      for (int at = 0; hit && at < 400; ++at) {
        std::atomic<int> count = 0;
        std::atomic<bool> met = false;
        platform::SetRasterFault([&](RasterOperation asked, const std::wstring&, int, const CRect&) {
          const bool now = asked == operation && count++ == at;
          if (now) met = true;
          return now;
        });
        Hit(what + " operation " + std::to_string(static_cast<int>(operation)) + ' ' + std::to_string(at), good, run);
        hit = met;
      }
    }
  }

  /// Has the library's allocations fail, every step-th from the first on, in a run each.
  void FailAllocations(const std::string& method, const std::string& threads, long first, long step) {
    fusion::FuseRequest request = Requests(method)[0];
    request.threads = threads;
    constexpr long kMany = 1L << 40;
    attacks::allocationsLeft = kMany;
    fusion::Fuse(request);
    const long count = kMany - attacks::allocationsLeft;
    attacks::allocationsLeft = -1;
    const std::string good = test_support::FileBytes(request.out);
    for (long at = first; at < count; at += step) {
      Hit(method + " on " + threads + ", allocation " + std::to_string(at), good, [&] {
        attacks::allocationsLeft = at;
        fusion::Fuse(request);
      });
    }
  }

  /// Lets one statistics call after another throw what a lack of memory throws, until none is left.
  template <typename Run>
  void ThrowStatistics(const std::string& what, const std::string& good, const Run& run) {
    bool hit = true;
    int at = 0;
    for (; hit && at < 400; ++at) {
      std::atomic<int> count = 0;
      hit = false;
      platform::SetRasterFault([&](RasterOperation asked, const std::wstring&, int, const CRect&) {
        if (asked != RasterOperation::kStatistics || count++ != at) return false;
        hit = true;
        throw std::bad_alloc();
      });
      const bool failed = Hit(what + " statistics thrown " + std::to_string(at), good, run);
      EXPECT_EQ(failed, hit) << what << ' ' << at;
    }
    m_statistics += at - 1;
  }

  std::string m_what;
  std::string m_pictureOf;
  std::vector<std::vector<double>> m_picture;  ///< of those bytes
  int m_statistics = 0;
  int m_runs = 0;
  int m_failed = 0;
};

std::string NameOf(const testing::TestParamInfo<const char*>& info) { return info.param; }

class FaultsOfAMethod : public Faults, public testing::WithParamInterface<const char*> {};

TEST_P(FaultsOfAMethod, OfOperationsAndThreadsLeaveTheOlderOutput) {
  m_what = GetParam() + std::string(" with faults");
  const char* const kinds[] = {"", " raw", " masked", " reprojected"};
  int kind = 0;
  for (const fusion::FuseRequest& request : Requests(GetParam())) {
    const std::string what = std::string(GetParam()) + kinds[kind++];
    ASSERT_NO_THROW(fusion::Fuse(request)) << what;
    const std::string good = test_support::FileBytes(request.out);
    const auto run = [&] { fusion::Fuse(request); };
    FailOperations(what, good, run);
    ThrowStatistics(what, good, run);
    // Without a thread everything is done by the one there is.
    for (const long at : {0L, 1L, 2L, 3L}) {
      g_threads = at;
      platform::SetThreadFault([] { return g_threads-- <= 0; });
      EXPECT_FALSE(Hit(what + " thread " + std::to_string(at), good, run));
      platform::SetThreadFault(nullptr);
    }
  }
  EXPECT_GT(m_failed, 100);
  // Five bands are looked at for a valid pixel at the least, in each of the four kinds.
  EXPECT_GE(m_statistics, 4 * 5);
}

TEST_P(FaultsOfAMethod, EveryQuestionCanBeAnsweredWithNo) {
  m_what = GetParam() + std::string(" cancelled");
  for (const fusion::FuseRequest& request : Requests(GetParam())) {
    ChangedMind never(1 << 30);
    ASSERT_NO_THROW(fusion::Fuse(request, &never));
    const std::string good = test_support::FileBytes(request.out);
    for (int at = 0; at < never.Asked(); ++at) {
      Hit(m_what + ' ' + std::to_string(at), good, [&] {
        ChangedMind observer(at);
        try {
          fusion::Fuse(request, &observer);
        } catch (const RunFailure& failure) {
          EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kCancelled) << at << failure.what();
          throw;
        }
        ADD_FAILURE() << m_what << " went on after question " << at;
      });
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, FaultsOfAMethod,
                         testing::Values("bayesian", "brovey", "multiplicative", "weighted", "ihs", "pca", "hpf",
                                         "sharpen"),
                         NameOf);

/// Destructors run where memory was short, and must not end the program.
TEST_F(Faults, NoDestructorEndsTheProgramWhereMemoryIsShort) {
  if (!attacks::memoryFails) GTEST_SKIP() << "allocations cannot be made to fail here";
  m_what = "destructors";
  const std::wstring file = m_folder.WidePath("pan.tif");
  for (long at = 0; at < 12; ++at) {
    ++m_runs;
    {
      CRasterSource source;
      ASSERT_TRUE(source.Open(file, GDA_READ, true));
      attacks::allocationsLeft = at;
    }
    attacks::allocationsLeft = -1;
    {
      const platform::VirtualRaster view(file, {0}, nullptr, nullptr);
      attacks::allocationsLeft = at;
    }
    attacks::allocationsLeft = -1;
    {
      platform::PendingOutput output(m_folder.WidePath("out.tif"));
      ASSERT_TRUE(output.Begin());
      attacks::allocationsLeft = at;
    }
    attacks::allocationsLeft = -1;
    {
      platform::Renames renames;
      renames.Move(file, m_folder.WidePath("moved.tif"));
      attacks::allocationsLeft = at;
    }
    attacks::allocationsLeft = -1;
    EXPECT_EQ(m_folder.Names(), (std::vector<std::string>{"ms.tif", "pan.tif"})) << at;
  }
}

class FaultsOfMeasures : public Faults, public testing::WithParamInterface<const char*> {
 protected:
  template <typename Request, typename Run>
  void Try(const Request& request, const Run& run) {
    fusion::Fuse(Requests("brovey")[0]);
    const std::string good = test_support::FileBytes(m_folder.Path("out.tif"));
    const auto plain = [&] { run(request, nullptr); };
    ASSERT_NO_THROW(plain());
    FailOperations(m_what, good, plain);
    ChangedMind never(1 << 30);
    run(request, &never);
    const int step = std::max(1, never.Asked() / 200);
    for (int at = 0; at < never.Asked(); at += step) {
      Hit(m_what + " cancelled " + std::to_string(at), good, [&] {
        ChangedMind observer(at);
        try {
          run(request, &observer);
        } catch (const RunFailure& failure) {
          EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kCancelled) << at << failure.what();
          throw;
        }
        ADD_FAILURE() << m_what << " went on after question " << at;
      });
    }
  }
};

TEST_P(FaultsOfMeasures, AreToldAndLeaveNothing) {
  m_what = GetParam();
  if (m_what == "assess") {
    fusion::AssessRequest request;
    request.pan = m_folder.Path("pan.tif");
    request.ms = m_folder.Path("ms.tif");
    request.methods = {"brovey"};
    request.protocol = "wald";
    Try(request, [](const auto& r, fusion::RunObserver* observer) { fusion::Assess(r, observer); });
    return;
  }
  if (m_what == "check") {
    fusion::CheckRequest request;
    request.pan = m_folder.Path("pan.tif");
    request.ms = m_folder.Path("ms.tif");
    Try(request, [](const auto& r, fusion::RunObserver* observer) { fusion::Check(r, observer); });
    return;
  }
  if (m_what == "verify") {
    Try(m_folder.Path("out.tif"),
        [](const auto& file, fusion::RunObserver* observer) { fusion::VerifyOutput(file, observer); });
    return;
  }
  if (m_what == "quicklook") {
    fusion::FuseRequest request = Requests("brovey")[0];
    request.quicklook = m_folder.Path("look.png");
    Try(request, [](const auto& r, fusion::RunObserver* observer) { fusion::Fuse(r, observer); });
    return;
  }
  fusion::EvaluateRequest request;
  request.pan = m_folder.Path("pan.tif");
  request.ms = m_folder.Path("ms.tif");
  request.fused = m_folder.Path("out.tif");
  request.metrics = {m_what};
  Try(request, [](const auto& r, fusion::RunObserver* observer) { fusion::Evaluate(r, observer); });
}

INSTANTIATE_TEST_SUITE_P(All, FaultsOfMeasures,
                         testing::Values("entropy", "statistics", "snr", "gradient", "assess", "check", "verify",
                                         "quicklook"),
                         NameOf);

/// The three files of a scene are each the older one or the new one, which here are the same.
TEST_F(Faults, OfASampleAreToldAndLeaveTheOlderScene) {
  m_what = "sample";
  fusion::SampleRequest request;
  request.folder = m_folder.Path("scene");
  request.width = request.height = 16;
  request.overwrite = true;
  fusion::MakeSample(request);
  std::filesystem::rename(m_folder.Path("scene/truth.tif"), m_folder.Path("out.tif"));
  const std::string good = test_support::FileBytes(m_folder.Path("out.tif"));
  const auto run = [&] {
    const auto leave = [&] {
      // No more than the three, none damaged.
      for (const auto& file : std::filesystem::directory_iterator(request.folder)) {
        const std::string name = file.path().filename().string();
        EXPECT_TRUE(name == "pan.tif" || name == "ms.tif" || name == "truth.tif") << name;
        if (name != "truth.tif") continue;
        EXPECT_TRUE(test_support::FileBytes(file.path().string()) == good);
      }
    };
    try {
      fusion::MakeSample(request);
    } catch (const RunFailure&) {
      platform::SetRasterFault({});
      leave();
      throw;
    }
    leave();
  };
  FailOperations(m_what, good, run);
  EXPECT_GT(m_failed, 10);
}

/// The library's own allocations, one after the other. What GDAL and PROJ allocate themselves is none of its business.
TEST_F(Faults, OfAllocationsLeaveTheOlderOutput) {
  if (!attacks::memoryFails) GTEST_SKIP() << "allocations cannot be made to fail here";
  m_what = "allocations";
  FailAllocations("brovey", "1", 0, 1);
  EXPECT_GT(m_failed, 1000);
}

class AllocationsOfAMethod : public Faults, public testing::WithParamInterface<const char*> {};

/// A sample of them, on one thread and on three; all of them with FUSION_EVERY_ALLOCATION in the environment.
TEST_P(AllocationsOfAMethod, ThatFailLeaveTheOlderOutput) {
  if (!attacks::memoryFails) GTEST_SKIP() << "allocations cannot be made to fail here";
  m_what = GetParam() + std::string(" without memory");
  const bool every = std::getenv("FUSION_EVERY_ALLOCATION") != nullptr;
  constexpr long kStep = 37;
  for (const char* threads : {"1", "3"}) {
    FailAllocations(GetParam(), threads, every ? 0 : *threads, every ? 1 : kStep);
  }
  EXPECT_GT(m_failed, 20);
}

INSTANTIATE_TEST_SUITE_P(All, AllocationsOfAMethod,
                         testing::Values("bayesian", "brovey", "multiplicative", "weighted", "ihs", "pca", "hpf",
                                         "sharpen"),
                         NameOf);

}  // namespace
