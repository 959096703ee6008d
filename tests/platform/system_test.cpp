// Sleeping, and messages to windows where the system has none.
#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "platform/system/sleep.h"
#include "platform/system/window.h"

namespace {

TEST(Sleep, TakesItsTimeUnlessReplaced) {
  std::vector<unsigned int> asked;
  platform::SetSleep([&](unsigned int milliseconds) { asked.push_back(milliseconds); });
  platform::Sleep(2000);
  EXPECT_EQ(asked, std::vector<unsigned int>{2000});
  platform::SetSleep({});
  const auto start = std::chrono::steady_clock::now();
  platform::Sleep(20);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
  EXPECT_EQ(asked.size(), 1u);
}

#ifndef _WIN32
TEST(WindowMessages, GoToTheWindowOfTheHandle) {
  int first = 0;
  int second = 0;
  int nobody = 0;
  RegisterWindowProcedure(&first, [&](HWND, UINT, WPARAM, LPARAM) -> LRESULT { return ++first; });
  RegisterWindowProcedure(&second, [&](HWND window, UINT message, WPARAM w, LPARAM l) -> LRESULT {
    EXPECT_EQ(window, &second);
    second += static_cast<int>(message) + static_cast<int>(w) + static_cast<int>(l);
    return 7;
  });
  EXPECT_EQ(SendMessageW(&second, 1000, 20, 3), 7);
  EXPECT_EQ(second, 1023);
  EXPECT_EQ(SendMessageW(&first, 1, 1, 1), 1);
  EXPECT_EQ(SendMessageW(&nobody, 1, 1, 1), 0);
  RegisterWindowProcedure(&first, {});
  EXPECT_EQ(SendMessageW(&first, 1, 1, 1), 0);
  RegisterWindowProcedure(&second, {});
}
#else
TEST(WindowMessages, GoToTheWindowOfTheHandle) { GTEST_SKIP() << "the system delivers its messages itself"; }
#endif

}  // namespace
