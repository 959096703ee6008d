// What the platform can fail at, one thing after another, and the user's change of mind at every question: by every
// method, matched and raw, masked, with a reprojection.
#include "tests/attacks/faults.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

#include "platform/raster/pending_output.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/renames.h"
#include "platform/raster/virtual_raster.h"
#include "platform/system/start_thread.h"

namespace {

using attacks::ChangedMind;
using attacks::Faults;
using attacks::NameOf;
using fusion::RunFailure;

/// Threads until none can be started any more.
std::atomic<long> g_threads{-1};

/// One method's allocations.
class FaultsOfMethods : public Faults {
 protected:
  void FailAllocationsOf(const std::string& method, const std::string& threads, long first, long step) {
    fusion::FuseRequest request = Requests(method)[0];
    request.threads = threads;
    fusion::Fuse(request);
    FailAllocations(
        method + " on " + threads, test_support::FileBytes(request.out), [&] { fusion::Fuse(request); }, first, step);
  }
};

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
    ThrowInOperations(what, good, run);
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
  EXPECT_EQ(m_ofStatistics, m_statistics);
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

/// The library's own allocations, one after the other. What GDAL and PROJ allocate themselves is none of its business.
TEST_F(FaultsOfMethods, OfAllocationsLeaveTheOlderOutput) {
  if (!attacks::memoryFails) GTEST_SKIP() << "allocations cannot be made to fail here";
  m_what = "allocations";
  FailAllocationsOf("brovey", "1", 0, 1);
  EXPECT_GT(m_failed, 1000);
}

class AllocationsOfAMethod : public FaultsOfMethods, public testing::WithParamInterface<const char*> {};

/// A sample of them, on one thread and on three; all of them with FUSION_EVERY_ALLOCATION in the environment.
TEST_P(AllocationsOfAMethod, ThatFailLeaveTheOlderOutput) {
  if (!attacks::memoryFails) GTEST_SKIP() << "allocations cannot be made to fail here";
  m_what = GetParam() + std::string(" without memory");
  const bool every = attacks::EveryAllocation();
  constexpr long kStep = 37;
  for (const char* threads : {"1", "3"}) {
    FailAllocationsOf(GetParam(), threads, every ? 0 : *threads, every ? 1 : kStep);
  }
  EXPECT_GT(m_failed, 20);
}

INSTANTIATE_TEST_SUITE_P(All, AllocationsOfAMethod,
                         testing::Values("bayesian", "brovey", "multiplicative", "weighted", "ihs", "pca", "hpf",
                                         "sharpen"),
                         NameOf);

}  // namespace
