// What a request says of threads reaches all of its run.
#include "runs/threads.h"

#include <cstdlib>

#include "platform/system/start_thread.h"
#include "runs/evaluate.h"
#include "tests/support/environment.h"
#include "tests/support/run_scene.h"

namespace {

int g_started = 0;

class RunThreadsTest : public test_support::RunScene {
 protected:
  /// Threads that work starts.
  template <typename Work>
  static int Started(const Work& work) {
    g_started = 0;
    platform::SetThreadFault([] {
      ++g_started;
      return false;
    });
    EXPECT_NO_THROW(work());
    platform::SetThreadFault(nullptr);
    return g_started;
  }
};

TEST_F(RunThreadsTest, FusionsComputeOnAsManyAsAreAskedFor) {
  for (const std::string method : {"brovey", "ihs", "bayesian", "hpf"}) {
    const auto started = [&](const std::string& threads) {
      auto request = Request(method);
      request.threads = threads;
      request.overwrite = true;
      return Started([&] { fusion::Fuse(request); });
    };
    const int alone = started("1");
    EXPECT_GT(alone, 0) << "who reads ahead and writes behind";
    // One set of workers for all that a run consists of.
    EXPECT_EQ(started("2"), alone + 1) << method;
    EXPECT_EQ(started("3"), alone + 2) << method;
  }
}

TEST_F(RunThreadsTest, TheEstimateOfAModelIsMadeOnThemToo) {
  /// Knows how many threads were started when the last stage, the fusion, begins.
  class Counter : public fusion::RunObserver {
   public:
    void StageBegins(const fusion::RunStage&) override { started = g_started; }
    int started = 0;
  };
  const auto started = [&](const std::string& threads) {
    auto request = Request("bayesian");
    request.threads = threads;
    request.overwrite = true;
    Counter counter;
    Started([&] { fusion::Fuse(request, &counter); });
    return counter.started;
  };
  EXPECT_EQ(started("2"), started("1") + 1);
}

TEST_F(RunThreadsTest, EvaluationsDoSo) {
  fusion::Fuse(Request("brovey"));
  const auto started = [&](const std::string& threads) {
    fusion::EvaluateRequest request;
    request.pan = m_folder.Path("pan.tif");
    request.ms = m_folder.Path("ms.tif");
    request.fused = m_folder.Path("out.tif");
    request.threads = threads;
    return Started([&] { fusion::Evaluate(request); });
  };
  EXPECT_EQ(started("4"), started("1") + 3);
}

TEST(RunThreads, AreAllOfTheMachinesWhereNobodySaysAnything) {
  // What the environment says is put back.
  const auto take = [](const char* name) {
    const char* value = std::getenv(name);
    const std::string before = value ? value : "";
    test_support::SetVariable(name, "");
    return before;
  };
  const std::string own = take("FUSION_THREADS");
  const std::string openMp = take("OMP_NUM_THREADS");
  EXPECT_EQ(fusion::MakeWorkers("")->Count(), platform::Workers(0).Count());
  EXPECT_EQ(fusion::MakeWorkers("all")->Count(), platform::Workers(0).Count());
  EXPECT_EQ(fusion::MakeWorkers("5")->Count(), 5);
  test_support::SetVariable("OMP_NUM_THREADS", "6,2");
  EXPECT_EQ(fusion::MakeWorkers("")->Count(), 6);
  test_support::SetVariable("FUSION_THREADS", "7");
  EXPECT_EQ(fusion::MakeWorkers("")->Count(), 7);
  EXPECT_EQ(fusion::MakeWorkers("5")->Count(), 5);
  for (const auto& [name, before] : {std::pair("FUSION_THREADS", own), {"OMP_NUM_THREADS", openMp}}) {
    test_support::SetVariable(name, before);
  }
}

}  // namespace
