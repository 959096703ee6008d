#include "platform/system/interrupts.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>

namespace {

using platform::InterruptHandler;

void Count(void* calls) { ++*static_cast<std::atomic<int>*>(calls); }

TEST(InterruptHandler, CallsItsFunctionAndTellsTheSignal) {
  std::atomic<int> calls = 0;
  {
    const InterruptHandler handler(Count, &calls);
    EXPECT_EQ(platform::LastInterrupt(), 0);
    std::raise(SIGTERM);
    std::raise(SIGTERM);
    EXPECT_EQ(calls, 2);
  }
  EXPECT_EQ(platform::LastInterrupt(), SIGTERM) << "for whoever tells of the run afterwards";
  const InterruptHandler next(Count, &calls);
  EXPECT_EQ(platform::LastInterrupt(), 0);
}

TEST(InterruptHandlerDeathTest, OnlyALaterSecondCtrlCEndsTheProgramAtOnce) {
#ifdef _WIN32
  GTEST_SKIP() << "signals do not end a program here";
#else
  const auto interruptTwice = [](std::chrono::milliseconds apart) {
    std::atomic<int> calls = 0;
    const InterruptHandler handler(Count, &calls);
    std::raise(SIGINT);
    std::this_thread::sleep_for(apart);
    std::raise(SIGINT);
    std::exit(calls);
  };
  EXPECT_EXIT(interruptTwice(std::chrono::milliseconds(0)), testing::ExitedWithCode(2), "");
  EXPECT_EXIT(interruptTwice(std::chrono::milliseconds(80)), testing::KilledBySignal(SIGINT), "");
#endif
}

}  // namespace
