#include "platform/system/workers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/system/start_thread.h"

namespace {

using platform::FoldInOrder;
using platform::ForEach;
using platform::ForEachWith;
using platform::Workers;

/// The threads that have worked.
class Seen {
 public:
  void Add() {
    const std::lock_guard lock(m_mutex);
    m_threads.insert(std::this_thread::get_id());
  }
  std::size_t Count() const { return m_threads.size(); }
  bool Has(std::thread::id thread) const { return m_threads.contains(thread); }

 private:
  std::mutex m_mutex;
  std::set<std::thread::id> m_threads;
};

/// Waits until so many threads have come here; false where they do not.
class Meeting {
 public:
  explicit Meeting(int expected) : m_expected(expected) {}
  bool Join() {
    ++m_here;
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (m_here < m_expected) {
      if (std::chrono::steady_clock::now() > until) return false;
      std::this_thread::yield();
    }
    return true;
  }

 private:
  int m_expected;
  std::atomic<int> m_here = 0;
};

TEST(Workers, EveryItemIsWorkedOnOnce) {
  Workers four(4);
  for (Workers* workers : {static_cast<Workers*>(nullptr), &four}) {
    for (const int count : {0, 1, 2, 3, 100, 5000}) {
      std::vector<std::atomic<int>> done(static_cast<std::size_t>(count));
      ForEach(workers, count, [&](int i) { ++done[static_cast<std::size_t>(i)]; });
      for (const auto& times : done) EXPECT_EQ(times, 1);
    }
  }
}

TEST(Workers, WorkAtTheSameTimeAndAgain) {
  Workers workers(3);
  EXPECT_EQ(workers.Count(), 3);
  Seen seen;
  for (int round = 0; round < 3; ++round) {
    Meeting meeting(3);
    ForEach(&workers, 3, [&](int) {
      seen.Add();
      EXPECT_TRUE(meeting.Join());
    });
  }
  EXPECT_EQ(seen.Count(), 3U) << "threads are kept";
  EXPECT_TRUE(seen.Has(std::this_thread::get_id()));
}

TEST(Workers, WithoutThemTheCallerDoesAllInOrder) {
  Workers one(1);
  for (Workers* workers : {static_cast<Workers*>(nullptr), &one}) {
    Seen seen;
    std::vector<int> order;
    ForEach(workers, 4, [&](int i) {
      seen.Add();
      order.push_back(i);
    });
    EXPECT_EQ(seen.Count(), 1U);
    EXPECT_TRUE(seen.Has(std::this_thread::get_id()));
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3}));
  }
}

TEST(Workers, AreAsManyAsTheMachineHasWhereNothingIsSaid) {
  const int all = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
  EXPECT_EQ(Workers(0).Count(), all);
  EXPECT_EQ(Workers(-1).Count(), all);
}

TEST(Workers, EachThreadHasAStateOfItsOwn) {
  Workers workers(4);
  std::atomic<int> states = 0;
  std::atomic<int> mixed = 0;
  ForEachWith(
      &workers, 1000,
      [&] {
        ++states;
        return std::this_thread::get_id();
      },
      [&](std::thread::id owner, int) {
        if (owner != std::this_thread::get_id()) ++mixed;
      });
  EXPECT_EQ(mixed, 0);
  EXPECT_GE(states, 1);
  EXPECT_LE(states, 4);
}

TEST(Workers, WhatAShareThrowsReachesTheCallerWhenAllHaveEnded) {
  Workers workers(4);
  for (int round = 0; round < 20; ++round) {
    std::atomic<int> busy = 0;
    EXPECT_THROW(ForEach(&workers, 50,
                         [&](int i) {
                           ++busy;
                           if (i == 3) {
                             --busy;
                             throw std::runtime_error("no");
                           }
                           std::this_thread::sleep_for(std::chrono::microseconds(200));
                           --busy;
                         }),
                 std::runtime_error);
    EXPECT_EQ(busy, 0);
  }
  // And the next call finds all in order.
  std::atomic<int> done = 0;
  ForEach(&workers, 10, [&](int) { ++done; });
  EXPECT_EQ(done, 10);
}

TEST(Workers, AnExceptionOnAnotherThreadIsNotLost) {
  Workers workers(2);
  const auto caller = std::this_thread::get_id();
  Meeting meeting(2);
  EXPECT_THROW(ForEach(&workers, 2,
                       [&](int) {
                         ASSERT_TRUE(meeting.Join());
                         if (std::this_thread::get_id() != caller) throw std::bad_alloc();
                       }),
               std::bad_alloc);
}

TEST(Workers, WhatHasNotBegunAfterAnExceptionStaysUndone) {
  Workers workers(2);
  std::atomic<int> done = 0;
  Meeting meeting(2);
  EXPECT_THROW(ForEach(&workers, 5000,
                       [&](int i) {
                         ++done;
                         // Both threads are at work when one of them fails.
                         EXPECT_TRUE(i > 1 || meeting.Join());
                         if (i == 0) throw std::runtime_error("no");
                         std::this_thread::sleep_for(std::chrono::milliseconds(1));
                       }),
               std::runtime_error);
  EXPECT_LT(done, 4000);
}

TEST(Workers, WithoutRoomForThreadsTheCallerDoesAll) {
  platform::SetThreadFault([] { return true; });
  Workers workers(8);
  std::atomic<int> done = 0;
  Seen seen;
  ForEach(&workers, 9, [&](int) {
    seen.Add();
    ++done;
  });
  platform::SetThreadFault(nullptr);
  EXPECT_EQ(done, 9);
  EXPECT_EQ(seen.Count(), 1U);
}

TEST(Workers, WithRoomForSomeOnlyTheyAreFewer) {
  static std::atomic<int> asked = 0;
  asked = 0;
  platform::SetThreadFault([] { return ++asked > 2; });
  Workers workers(8);
  Seen seen;
  Meeting meeting(3);
  ForEach(&workers, 3, [&](int) {
    seen.Add();
    EXPECT_TRUE(meeting.Join());
  });
  std::atomic<int> done = 0;
  ForEach(&workers, 100, [&](int) {
    seen.Add();
    ++done;
  });
  platform::SetThreadFault(nullptr);
  EXPECT_EQ(done, 100);
  EXPECT_EQ(seen.Count(), 3U);
}

TEST(Workers, ServeSeveralCallersAndWorkThatCallsThem) {
  Workers workers(3);
  std::atomic<int> done = 0;
  const auto nested = [&] { ForEach(&workers, 20, [&](int) { ForEach(&workers, 10, [&](int) { ++done; }); }); };
  std::thread other(nested);
  nested();
  other.join();
  EXPECT_EQ(done, 400);
}

TEST(Workers, PartsAreFoldedInTheirOrderByTheCaller) {
  // Sums that tell in which order they were taken.
  const auto part = [](int i) { return std::ldexp(1.0 + i % 7, i % 53); };
  double expected = 0.0;
  for (int i = 0; i < 1000; ++i) expected = expected * 0.5 + part(i);
  for (const int threads : {1, 2, 3, 7, 16}) {
    Workers workers(threads);
    double sum = 0.0;
    Seen seen;
    FoldInOrder(&workers, 1000, part, [&](double value) {
      seen.Add();
      sum = sum * 0.5 + value;
    });
    EXPECT_EQ(sum, expected) << threads;
    EXPECT_EQ(seen.Count(), 1U);
    EXPECT_TRUE(seen.Has(std::this_thread::get_id()));
  }
}

TEST(Workers, PartsAreMadeWithNoMoreStatesThanThreads) {
  for (const int threads : {1, 2, 3}) {
    Workers workers(threads);
    std::atomic<int> made = 0;
    int sum = 0;
    FoldInOrder(
        &workers, 1000, [&] { return ++made; }, [](int, int i) { return i; }, [&](int part) { sum += part; });
    EXPECT_EQ(sum, 499500);
    EXPECT_GE(made, 1);
    EXPECT_LE(made, threads);
  }
}

TEST(Workers, AStateIsInOneHandAtATime) {
  Workers workers(4);
  struct State {
    std::atomic<bool> taken = false;
  };
  std::atomic<int> shared = 0;
  FoldInOrder(
      &workers, 500, [] { return State(); },
      [&](State& state, int i) {
        if (state.taken.exchange(true)) ++shared;
        std::this_thread::yield();
        state.taken = false;
        return i;
      },
      [](int) {});
  EXPECT_EQ(shared, 0);
}

}  // namespace
