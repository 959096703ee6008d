#include "platform/system/interrupts.h"

#include <atomic>
#include <chrono>
#include <csignal>

#ifndef _WIN32
#include <fcntl.h>
#include <unistd.h>
#endif

namespace platform {
namespace {

using Clock = std::chrono::steady_clock;

// Some senders signal the program and its group, which makes two of one request.
constexpr std::chrono::milliseconds kOneRequest(50);

std::atomic<void (*)(void*)> g_function{nullptr};
std::atomic<void*> g_context{nullptr};
std::atomic<int> g_last{0};
std::atomic<Clock::rep> g_ctrlC{0};

void OnSignal(int signal) {
#ifdef _WIN32
  std::signal(signal, OnSignal);
#endif
  if (signal == SIGINT) {
    const Clock::rep now = Clock::now().time_since_epoch().count();
    Clock::rep first = 0;
    if (!g_ctrlC.compare_exchange_strong(first, now) && Clock::duration(now - first) > kOneRequest) {
      std::signal(signal, SIG_DFL);
      std::raise(signal);
    }
  }
  g_last = signal;
  if (auto* function = g_function.load()) function(g_context.load());
}

#ifdef _WIN32
// The last is also what comes where the console is closed.
constexpr int kSignals[] = {SIGINT, SIGTERM, SIGBREAK};

struct Handler {
  void (*previous)(int) = SIG_DFL;
  void Take(int signal) { previous = std::signal(signal, OnSignal); }
  void GiveBack(int signal) const { std::signal(signal, previous); }
};
#else
constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

struct Handler {
  struct sigaction previous = {};
  void Take(int signal) {
    struct sigaction action = {};
    action.sa_handler = OnSignal;
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, &previous);
    // A program that is to outlive its terminal is started so.
    if (signal == SIGHUP && previous.sa_handler == SIG_IGN) GiveBack(signal);
  }
  void GiveBack(int signal) const { sigaction(signal, &previous, nullptr); }
};
#endif

Handler g_handlers[std::size(kSignals)];

}  // namespace

InterruptHandler::InterruptHandler(void (*function)(void* context), void* context) {
  g_last = 0;
  g_ctrlC = 0;
  g_context = context;
  g_function = function;
  for (std::size_t i = 0; i < std::size(kSignals); ++i) g_handlers[i].Take(kSignals[i]);
}

InterruptHandler::~InterruptHandler() {
  for (std::size_t i = 0; i < std::size(kSignals); ++i) g_handlers[i].GiveBack(kSignals[i]);
  g_function = nullptr;
}

int LastInterrupt() { return g_last; }

void LetWritesFail() {
#ifndef _WIN32
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
#endif
}

void FillStandardStreams() {
#ifndef _WIN32
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // The first free number is the one that is missing.
    if (fcntl(stream, F_GETFD) == -1)
      static_cast<void>(open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY));
  }
#endif
}

}  // namespace platform
