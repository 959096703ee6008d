#include "platform/system/task_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/system/start_thread.h"

namespace {

using platform::LoadInTurn;
using platform::TaskQueue;

TEST(TaskQueue, CarriesTasksOutInTheirOrderOnAnotherThread) {
  std::vector<int> done;
  std::thread::id worker;
  TaskQueue queue(3);
  for (int i = 0; i < 100; ++i) {
    queue.Add([&, i] {
      done.push_back(i);
      worker = std::this_thread::get_id();
    });
  }
  queue.Wait();
  std::vector<int> expected(100);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(done, expected);
  EXPECT_NE(worker, std::this_thread::get_id());
}

TEST(TaskQueue, AddWaitsForRoom) {
  std::promise<void> gate;
  const std::shared_future<void> opened = gate.get_future().share();
  std::atomic<int> added = 0;
  TaskQueue queue(2);
  std::thread adder([&] {
    for (int i = 0; i < 3; ++i) {
      queue.Add([opened] { opened.wait(); });
      ++added;
    }
  });
  while (added < 2) std::this_thread::yield();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(added, 2);
  gate.set_value();
  adder.join();
  EXPECT_EQ(added, 3);
}

TEST(TaskQueue, IsEmptyAfterWaitingForNothing) {
  TaskQueue queue(1);
  queue.Wait();
  queue.Wait();
}

TEST(TaskQueue, WhatATaskThrowsReachesTheCallerOnce) {
  std::atomic<int> later = 0;
  TaskQueue queue(2);
  queue.Add([] { throw std::runtime_error("disk"); });
  try {
    queue.Wait();
    FAIL() << "nothing was thrown";
  } catch (const std::runtime_error& failure) {
    EXPECT_STREQ(failure.what(), "disk");
  }
  queue.Add([&] { ++later; });
  queue.Wait();
  EXPECT_EQ(later, 1);
}

TEST(TaskQueue, AddThrowsWhatAnEarlierTaskThrewAndAddsNothing) {
  std::atomic<int> later = 0;
  TaskQueue queue(1);
  queue.Add([] { throw std::bad_alloc(); });
  EXPECT_THROW(queue.Add([&] { ++later; }), std::bad_alloc);
  queue.Wait();
  EXPECT_EQ(later, 0);
}

TEST(TaskQueue, WithoutRoomForAThreadTheTasksAreDoneAtOnce) {
  std::vector<std::thread::id> threads;
  TaskQueue queue(1);
  platform::SetThreadFault([] { return true; });
  queue.Add([&] { threads.push_back(std::this_thread::get_id()); });
  platform::SetThreadFault(nullptr);
  // Not again: what comes later must not overtake.
  queue.Add([&] { threads.push_back(std::this_thread::get_id()); });
  EXPECT_THROW(queue.Add([] { throw std::bad_alloc(); }), std::bad_alloc);
  queue.Wait();
  EXPECT_EQ(threads, std::vector(2, std::this_thread::get_id()));
}

TEST(TaskQueue, EndsOnlyWhenEveryTaskIsDone) {
  std::atomic<int> done = 0;
  {
    TaskQueue queue(10);
    for (int i = 0; i < 10; ++i) {
      queue.Add([&done] {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ++done;
      });
    }
    queue.Add([] { throw std::runtime_error("lost"); });
  }
  EXPECT_EQ(done, 10);
}

TEST(TaskQueue, WithoutAThreadAddCarriesTheTaskOutAndThrowsWhatItThrows) {
  TaskQueue queue(1, false);
  std::thread::id where;
  queue.Add([&] { where = std::this_thread::get_id(); });
  EXPECT_EQ(where, std::this_thread::get_id());
  EXPECT_THROW(queue.Add([] { throw std::bad_alloc(); }), std::bad_alloc);
  queue.Wait();
}

/// What a walk over items did, load and use apart since they run on two threads.
struct Walk {
  std::vector<std::string> loads;
  std::vector<std::string> uses;
  bool ended = false;
};

Walk WalkOver(bool ahead, int count, int failingLoad, int stoppingUse) {
  Walk walk;
  int held[2] = {-1, -1};
  walk.ended = LoadInTurn(
      ahead, count,
      [&](int i, int slot) {
        walk.loads.push_back(std::to_string(i) + "@" + std::to_string(slot));
        held[slot] = i;
        return i != failingLoad;
      },
      [&](int i, int slot) {
        EXPECT_EQ(held[slot], i) << "the item in use was loaded over";
        walk.uses.push_back(std::to_string(i) + "@" + std::to_string(slot));
        return i != stoppingUse;
      });
  return walk;
}

using Names = std::vector<std::string>;

/// With and without loading ahead.
class InTurn : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(BothWays, InTurn, testing::Bool());

TEST_P(InTurn, LoadsEveryItemOnceAndUsesItInOrder) {
  const Walk walk = WalkOver(GetParam(), 4, -1, -1);
  EXPECT_TRUE(walk.ended);
  EXPECT_EQ(walk.loads, (Names{"0@0", "1@1", "2@0", "3@1"}));
  EXPECT_EQ(walk.uses, walk.loads);
}

TEST_P(InTurn, NothingToDoIsDone) {
  const Walk walk = WalkOver(GetParam(), 0, -1, -1);
  EXPECT_TRUE(walk.ended);
  EXPECT_TRUE(walk.loads.empty());
}

TEST_P(InTurn, AnItemThatDoesNotLoadEndsItAfterTheOnesBefore) {
  const Walk walk = WalkOver(GetParam(), 5, 2, -1);
  EXPECT_FALSE(walk.ended);
  EXPECT_EQ(walk.uses, (Names{"0@0", "1@1"}));
}

TEST_P(InTurn, StopsWhereAUseWantsNoMore) {
  const Walk walk = WalkOver(GetParam(), 5, -1, 1);
  EXPECT_FALSE(walk.ended);
  EXPECT_EQ(walk.uses, (Names{"0@0", "1@1"}));
  EXPECT_LE(walk.loads.size(), 3u);
}

TEST_P(InTurn, WhatALoadThrowsReachesTheCaller) {
  const auto load = [](int i, int) -> bool {
    if (i == 1) throw std::bad_alloc();
    return true;
  };
  EXPECT_THROW(LoadInTurn(GetParam(), 3, load, [](int, int) { return true; }), std::bad_alloc);
}

}  // namespace
