#include "runs/threads.h"

#include <charconv>
#include <cstdlib>
#include <system_error>

#include "platform/system/process.h"
#include "runs/run_failure.h"

namespace fusion {
namespace {

/// 0 for all.
int ThreadsOf(const std::string& text, const std::string& name) {
  if (text == "all") return 0;
  int threads = 0;
  const char* end = text.data() + text.size();
  const auto [read, error] = std::from_chars(text.data(), end, threads);
  if (error == std::errc() && read == end && threads > 0) return threads;
  throw UsageError(name + " is a number of threads from 1 on, or all, not '" + text + "'.");
}

int ThreadsOf(const std::string& wanted) {
  if (!wanted.empty()) return ThreadsOf(wanted, "--threads");
  for (const char* variable : {"FUSION_THREADS", "OMP_NUM_THREADS"}) {
    const char* value = std::getenv(variable);
    if (!value || *value == '\0') continue;
    // OpenMP's may be a list, of which the first is for threads that are not inside others.
    const std::string text = value;
    return ThreadsOf(text.substr(0, text.find(',')), variable);
  }
  return 0;
}

}  // namespace

std::shared_ptr<platform::Workers> MakeWorkers(const std::string& wanted) {
  auto workers = std::make_shared<platform::Workers>(ThreadsOf(wanted));
  platform::SetCodecThreads(workers->Count());
  return workers;
}

}  // namespace fusion
