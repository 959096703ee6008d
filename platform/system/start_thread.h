#pragma once

#include <functional>
#include <thread>

namespace platform {

/// Starts a thread that does work. False where the system has no room for one.
bool StartThread(std::thread& thread, std::function<void()> work);

/// Asked before a thread is started once set; answering true makes that fail as on a system without room for one. For
/// programs that check their own handling of failures. Null takes it away.
void SetThreadFault(bool (*fault)());

}  // namespace platform
