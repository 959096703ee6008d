#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "platform/system/export.h"

namespace platform {

/// A thread that carries out tasks one after another in the order in which they came. It starts with the first task.
class FUSION_API TaskQueue {
 public:
  /// @param most how many tasks may wait or run at a time
  explicit TaskQueue(std::size_t most);
  /// Waits for the tasks; what they threw is lost.
  ~TaskQueue();
  TaskQueue(const TaskQueue&) = delete;
  TaskQueue& operator=(const TaskQueue&) = delete;

  /// Adds a task, after waiting for room. Throws what an earlier task threw, or std::system_error where the thread
  /// cannot be started; the new one is not added then.
  void Add(std::function<void()> task);
  /// Waits until no task waits or runs. Throws what a task threw.
  void Wait();

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

/// Asked before a queue starts its thread once set; answering true makes that fail as on a system without room for
/// one. For programs that check their own handling of failures. Null takes it away.
FUSION_API void SetThreadFault(bool (*fault)());

/// Loads item after item, each while the one before it is being used: load(item, slot) runs on another thread, one item
/// ahead of use(item, slot), into slots 0 and 1 by turns. Ends early, with false, where one of them answers false.
template <typename Load, typename Use>
bool LoadAhead(int count, const Load& load, const Use& use) {
  bool loaded[2] = {count > 0 && load(0, 0), false};
  TaskQueue loader(1);
  for (int i = 0; i < count; ++i) {
    const int slot = i % 2;
    loader.Wait();
    if (!loaded[slot]) return false;
    if (i + 1 < count) loader.Add([&loaded, &load, i, slot] { loaded[1 - slot] = load(i + 1, 1 - slot); });
    if (!use(i, slot)) return false;
  }
  return true;
}

}  // namespace platform
