// What the command shows of a run's progress; here standard error is a file, not a terminal.
#include "apps/console_progress.h"

#include <gtest/gtest.h>

#include <csignal>
#include <functional>

#include "runs/run_progress.h"

namespace {

/// What a run's algorithms get: the reporter before the console.
struct Watched {
  explicit Watched(bool silent) : console(silent), progress(&console) {}
  void Start(const std::wstring& title, int range) { progress.Begin({"run"}, title, range); }
  bool Step(int position, const std::wstring& text) { return progress.Step(position, text); }
  void Finish() { progress.Finish(); }
  void Error(int type, const std::wstring& message) { progress.Error(type, message); }
  bool IsCancelRequested() const { return progress.IsCancelRequested(); }

  app::ConsoleProgress console;
  fusion::RunProgress progress;
};

std::string Shown(const std::function<void()>& run) {
  testing::internal::CaptureStderr();
  run();
  return testing::internal::GetCapturedStderr();
}

TEST(ConsoleProgress, DrawsDotsUpToAHundredWhateverTheSteps) {
  const std::string full = "run 0...10...20...30...40...50...60...70...80...90...100 - done.\n";
  for (const int range : {1, 3, 40, 41, 1000}) {
    EXPECT_EQ(Shown([&] {
                Watched progress(false);
                progress.Start(L"正在进行run...", 100);
                progress.Step(0, L"");
                progress.Start(L"正在进行run...", range);
                for (int i = 1; i <= range; ++i) EXPECT_TRUE(progress.Step(i, L""));
                progress.Finish();
                progress.Step(100, L"");
              }),
              full)
        << range;
  }
}

TEST(ConsoleProgress, TakesPositionsOutsideItsRange) {
  EXPECT_EQ(Shown([] {
              Watched progress(false);
              progress.Start(L"run", 10);
              progress.Step(25, L"");
              progress.Step(-3, L"");
              progress.Finish();
            }),
            "run 0...10...20...30...40...50...60...70...80...90...100 - done.\n");
}

TEST(ConsoleProgress, AStepBackDrawsNothingTwice) {
  EXPECT_EQ(Shown([] {
              Watched progress(false);
              progress.Start(L"run", 10);
              for (const int position : {5, 2, 4, 10}) progress.Step(position, L"");
              progress.Finish();
            }),
            "run 0...10...20...30...40...50...60...70...80...90...100 - done.\n");
}

TEST(ConsoleProgress, IsSilentWhenAsked) {
  EXPECT_EQ(Shown([] {
              Watched progress(true);
              progress.Start(L"run", 2);
              progress.Step(1, L"");
              progress.Step(2, L"");
              progress.Error(2, L"x");
              progress.Finish();
            }),
            "");
}

TEST(ConsoleProgress, CtrlCCancels) {
  Watched progress(true);
  progress.Start(L"run", 2);
  EXPECT_TRUE(progress.Step(1, L""));
  std::raise(SIGINT);
  EXPECT_TRUE(progress.IsCancelRequested());
  EXPECT_FALSE(progress.Step(2, L""));
}

}  // namespace
