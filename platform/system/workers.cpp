#include "platform/system/workers.h"

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>

#include "platform/system/start_thread.h"

namespace platform {

struct Workers::Impl {
  /// A call that goes on. It lies on its caller's stack.
  struct Call {
    const std::function<void()>& share;
    int wanted;  ///< threads that may still join
    int busy = 0;
    std::exception_ptr failure = nullptr;
  };

  void Run() {
    std::unique_lock lock(mutex);
    for (;;) {
      wake.wait(lock, [this] { return ending || !calls.empty(); });
      if (calls.empty()) return;
      // The newest first: an older one may be waiting for it.
      Call& call = *calls.back();
      ++call.busy;
      if (--call.wanted == 0) Withdraw(call);
      lock.unlock();
      std::exception_ptr failure;
      try {
        call.share();
      } catch (...) {
        failure = std::current_exception();
      }
      lock.lock();
      if (failure && !call.failure) call.failure = failure;
      if (--call.busy == 0) done.notify_all();
    }
  }

  void Withdraw(Call& call) { std::erase(calls, &call); }

  /// Makes sure that there are threads for a call, where the system has room for them.
  void Start(int most) {
    while (mayStart && static_cast<int>(threads.size()) < most) {
      std::thread& thread = threads.emplace_back();
      mayStart = StartThread(thread, [this] { Run(); });
      if (!mayStart) threads.pop_back();
    }
  }

  std::mutex mutex;
  std::condition_variable wake;  ///< there is a call to join, or the end has come
  std::condition_variable done;  ///< nobody is busy with some call any more
  std::deque<Call*> calls;       ///< that more threads may join
  bool ending = false;
  bool mayStart = true;
  std::vector<std::thread> threads;
};

Workers::Workers(int threads)
    : m_count(threads > 0 ? threads : std::max(1, static_cast<int>(std::thread::hardware_concurrency()))),
      m_impl(std::make_unique<Impl>()) {}

Workers::~Workers() {
  {
    const std::lock_guard lock(m_impl->mutex);
    m_impl->ending = true;
  }
  m_impl->wake.notify_all();
  for (std::thread& thread : m_impl->threads) {
    // One for whose start there was no memory is none.
    if (thread.joinable()) thread.join();
  }
}

void Workers::Share(int count, const std::function<void()>& share) {
  Impl::Call call{share, std::min(count, m_count) - 1};
  if (call.wanted > 0) {
    const std::lock_guard lock(m_impl->mutex);
    m_impl->Start(call.wanted);
    m_impl->calls.push_back(&call);
    for (int i = 0; i < call.wanted; ++i) m_impl->wake.notify_one();
  }
  std::exception_ptr failure;
  try {
    share();
  } catch (...) {
    failure = std::current_exception();
  }
  {
    std::unique_lock lock(m_impl->mutex);
    m_impl->Withdraw(call);
    m_impl->done.wait(lock, [&call] { return call.busy == 0; });
    if (!failure) failure = call.failure;
  }
  if (failure) std::rethrow_exception(failure);
}

}  // namespace platform
