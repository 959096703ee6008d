#include "platform/system/parallel.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "platform/system/task_queue.h"

namespace platform {

void ForEach(int count, bool threaded, const std::function<void(int)>& work) {
  std::atomic<int> next{0};
  const auto share = [&] {
    for (int i = next++; i < count; i = next++) work(i);
  };
  const int threads = threaded ? std::min(static_cast<int>(std::thread::hardware_concurrency()), count) : 1;
  std::vector<std::unique_ptr<TaskQueue>> helpers;
  for (int i = 1; i < threads; ++i) {
    helpers.push_back(std::make_unique<TaskQueue>(1));
    helpers.back()->Add(share);
  }
  share();
  for (const auto& helper : helpers) helper->Wait();
}

}  // namespace platform
