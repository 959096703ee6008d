#include "tests/versions/loop_watch.h"

#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <fstream>

extern "C" void FusionLoopWatchOrigin() {}

namespace versions {
namespace {

constexpr unsigned char kBreakpoint = 0xCC;

struct Loop {
  std::string name;
  std::uintptr_t address;  ///< as nm says it
  unsigned char* start;
  unsigned char original;
  volatile bool hasRun;
};

std::vector<Loop> loops;

void Meet(int /*signal*/, siginfo_t* /*info*/, void* context) {
  auto& next = static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_RIP];
  for (Loop& loop : loops) {
    if (reinterpret_cast<greg_t>(loop.start) != next - 1) continue;
    // Several threads may meet it.
    *static_cast<volatile unsigned char*>(loop.start) = loop.original;
    loop.hasRun = true;
    --next;
    return;
  }
  std::signal(SIGTRAP, SIG_DFL);
}

void MakeWritable(unsigned char* place) {
  const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  // NOLINTNEXTLINE(readability-non-const-parameter): what lies there is written later
  mprotect(place - reinterpret_cast<std::uintptr_t>(place) % page, page, PROT_READ | PROT_WRITE | PROT_EXEC);
}

}  // namespace

LoopWatch::LoopWatch(const std::string& symbols, const std::string& version) {
  loops.clear();
  std::ifstream file(symbols);
  std::uintptr_t origin = 0;
  // Sixteen digits of the address, a letter, the name; undefined symbols have blanks for an address.
  for (std::string line; std::getline(file, line);) {
    if (line.size() < 20 || line[0] == ' ') continue;
    const std::uintptr_t address = std::stoull(line, nullptr, 16);
    std::string name = line.substr(19);
    if (name == "FusionLoopWatchOrigin") origin = address;
    if (name.ends_with(version)) {
      name.resize(name.size() - version.size());
      loops.push_back({name, address, nullptr, 0, false});
    }
  }
  // The program lies elsewhere than it was linked for.
  auto* const here = reinterpret_cast<unsigned char*>(&FusionLoopWatchOrigin);
  struct sigaction action = {};
  action.sa_sigaction = Meet;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGTRAP, &action, nullptr);
  for (Loop& loop : loops) {
    loop.start = here + static_cast<std::ptrdiff_t>(loop.address - origin);
    loop.original = *loop.start;
    MakeWritable(loop.start);
  }
  for (Loop& loop : loops) *static_cast<volatile unsigned char*>(loop.start) = kBreakpoint;
}

int LoopWatch::Count() const { return static_cast<int>(loops.size()); }

std::vector<std::string> LoopWatch::NotRun() const {
  std::vector<std::string> names;
  for (const Loop& loop : loops) {
    if (!loop.hasRun) names.push_back(loop.name);
  }
  return names;
}

}  // namespace versions
