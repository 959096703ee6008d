#include "platform/system/parallel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/system/task_queue.h"

namespace {

TEST(Parallel, EveryItemIsWorkedOnOnce) {
  for (const bool threaded : {false, true}) {
    for (const int count : {0, 1, 2, 100}) {
      std::vector<std::atomic<int>> done(static_cast<std::size_t>(count));
      platform::ForEach(count, threaded, [&](int i) { ++done[static_cast<std::size_t>(i)]; });
      for (const auto& times : done) EXPECT_EQ(times, 1);
    }
  }
}

TEST(Parallel, OnlyTheCallersThreadWorksUnlessMoreAreWanted) {
  std::mutex mutex;
  std::set<std::thread::id> seen;
  const auto look = [&](int) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    const std::lock_guard lock(mutex);
    seen.insert(std::this_thread::get_id());
  };
  platform::ForEach(20, false, look);
  EXPECT_EQ(seen, (std::set<std::thread::id>{std::this_thread::get_id()}));
  platform::ForEach(20, true, look);
  if (std::thread::hardware_concurrency() > 1) {
    EXPECT_GT(seen.size(), 1U);
  }
}

TEST(Parallel, WhatWorkThrowsReachesTheCaller) {
  for (const bool threaded : {false, true}) {
    EXPECT_THROW(platform::ForEach(50, threaded,
                                   [](int i) {
                                     if (i % 7 == 3) throw std::runtime_error("no");
                                   }),
                 std::runtime_error);
  }
}

TEST(Parallel, WithoutRoomForThreadsTheCallerDoesAll) {
  platform::SetThreadFault([] { return true; });
  std::atomic<int> done{0};
  platform::ForEach(9, true, [&](int) { ++done; });
  platform::SetThreadFault(nullptr);
  EXPECT_EQ(done, 9);
}

}  // namespace
