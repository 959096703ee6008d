#include "platform/system/task_queue.h"

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/system/start_thread.h"

namespace platform {

struct TaskQueue::Impl {
  Impl(std::size_t mostTasks, bool onThread) : most(mostTasks), threaded(onThread) {}

  /// Whether there is a thread. Where the system has no room for one, the queue goes on without.
  bool Start() {
    if (threaded && !thread.joinable()) threaded = StartThread(thread, [this] { Run(); });
    return threaded;
  }

  void Run() {
    std::unique_lock lock(mutex);
    for (;;) {
      changed.wait(lock, [this] { return ending || !tasks.empty(); });
      if (tasks.empty()) return;
      std::function<void()> task = std::move(tasks.front());
      lock.unlock();
      std::exception_ptr thrown;
      try {
        task();
      } catch (...) {
        thrown = std::current_exception();
      }
      task = nullptr;
      lock.lock();
      if (thrown && !failure) failure = thrown;
      tasks.pop_front();
      changed.notify_all();
    }
  }

  void WaitForRoom(std::unique_lock<std::mutex>& lock, std::size_t room) {
    changed.wait(lock, [this, room] { return tasks.size() < room; });
    if (failure) std::rethrow_exception(std::exchange(failure, nullptr));
  }

  const std::size_t most;
  bool threaded;
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<std::function<void()>> tasks;  ///< the place of the one at work stays taken until it is done
  std::exception_ptr failure;
  bool ending = false;
  std::thread thread;
};

TaskQueue::TaskQueue(std::size_t most, bool threaded) : m_impl(std::make_unique<Impl>(most, threaded)) {}

TaskQueue::~TaskQueue() {
  {
    const std::lock_guard lock(m_impl->mutex);
    m_impl->ending = true;
  }
  m_impl->changed.notify_all();
  if (m_impl->thread.joinable()) m_impl->thread.join();
}

void TaskQueue::Add(std::function<void()> task) {
  // First the thread: a task added without one would be waited for without end.
  if (!m_impl->Start()) {
    task();
    return;
  }
  std::unique_lock lock(m_impl->mutex);
  m_impl->WaitForRoom(lock, m_impl->most);
  m_impl->tasks.push_back(std::move(task));
  lock.unlock();
  m_impl->changed.notify_all();
}

void TaskQueue::Wait() {
  std::unique_lock lock(m_impl->mutex);
  m_impl->WaitForRoom(lock, 1);
}

}  // namespace platform
