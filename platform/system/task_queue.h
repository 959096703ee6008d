#pragma once

#include <cstddef>
#include <functional>
#include <memory>

namespace platform {

/// Carries out tasks one after another in the order in which they came: on a thread of its own, which starts with the
/// first task, or at once on the caller's; so too where the system has no room for a thread.
class TaskQueue {
 public:
  /// @param most how many tasks may wait or run at a time
  /// @param threaded false: Add carries the task out itself, and throws what it throws
  explicit TaskQueue(std::size_t most, bool threaded = true);
  /// Waits for the tasks; what they threw is lost. So whoever declares a queue behind all that its tasks use need not
  /// think of them again, whatever way is taken out of the scope.
  ~TaskQueue();
  TaskQueue(const TaskQueue&) = delete;
  TaskQueue& operator=(const TaskQueue&) = delete;

  /// Adds a task, after waiting for room. Throws what an earlier task threw; the new one is not added then.
  void Add(std::function<void()> task);
  /// Waits until no task waits or runs. Throws what a task threw.
  void Wait();

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

/// Loads and uses item after item, in slots 0 and 1 by turns: load(item, slot), use(item, slot). With ahead, each item
/// is loaded on another thread while the one before it is being used. Ends early, with false, where one of them answers
/// false.
template <typename Index, typename Load, typename Use>
bool LoadInTurn(bool ahead, Index count, const Load& load, const Use& use) {
  if (!ahead) {
    for (Index i = 0; i < count; ++i) {
      const int slot = static_cast<int>(i % 2);
      if (!load(i, slot) || !use(i, slot)) return false;
    }
    return true;
  }
  bool loaded[2] = {count > 0 && load(Index{0}, 0), false};
  TaskQueue loader(1);
  for (Index i = 0; i < count; ++i) {
    const int slot = static_cast<int>(i % 2);
    loader.Wait();
    if (!loaded[slot]) return false;
    if (i + 1 < count) loader.Add([&loaded, &load, i, slot] { loaded[1 - slot] = load(i + 1, 1 - slot); });
    if (!use(i, slot)) return false;
  }
  return true;
}

}  // namespace platform
