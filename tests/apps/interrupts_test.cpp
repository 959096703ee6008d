// Requests to end the program, and standard streams that are not there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "apps/exit_status.h"
#include "apps/fuse_run.h"
#include "platform/raster/raster_fault.h"
#include "tests/apps/output_fixture.h"

#ifndef _WIN32

namespace {

using test_support::Quoted;
using test_support::RunShell;
using testing::ElementsAre;
using testing::IsEmpty;

class Interrupts : public OutputCommand {
 protected:
  void TearDown() override { platform::SetRasterFault({}); }

  /// A run in this process that meets a signal, some times in a row, at its fifth transfer.
  int RunInto(int signal, int times) const {
    app::FuseOptions options;
    options.pan = Path("pan.tif");
    options.ms = Path("ms.tif");
    options.out = Path("out.tif");
    options.method = "brovey";
    options.quiet = true;
    int transfers = 0;
    platform::SetRasterFault([&](platform::RasterOperation, const std::wstring&, int, const CRect&) {
      if (++transfers == 5) {
        for (int i = 0; i < times; ++i) std::raise(signal);
      }
      return false;
    });
    testing::internal::CaptureStderr();
    const int status = app::RunFuse(options);
    testing::internal::GetCapturedStderr();
    platform::SetRasterFault({});
    return status;
  }
};

TEST_F(Interrupts, EveryRequestEndsARunInOrderAndGivesTheStatus) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    // Two in a row come from one request: whoever signals a program and its group.
    for (const int times : {1, 2}) {
      EXPECT_EQ(RunInto(signal, times), 128 + signal);
      EXPECT_THAT(NewNames(), IsEmpty()) << signal;
    }
  }
}

TEST_F(Interrupts, ARunThatIsToOutliveItsTerminalDoes) {
  const auto before = std::signal(SIGHUP, SIG_IGN);
  EXPECT_EQ(RunInto(SIGHUP, 1), app::kSuccess);
  std::signal(SIGHUP, before);
  EXPECT_THAT(NewNames(), ElementsAre("out.tif"));
}

TEST_F(Interrupts, AReaderThatGoesAwayDoesNotEndARun) {
  std::vector<std::string> arguments = FuseArguments("out.tif", {});
  std::erase(arguments, "--quiet");
  const std::string line =
      "{ sleep 0.2; " + Line(arguments) + "; echo $? > " + Quoted(Path("status")) + "; } 2>&1 | true";
  RunShell(line);
  EXPECT_EQ(Bytes("status"), "0\n");
  EXPECT_THAT(NewNames(), ElementsAre("out.tif", "status"));
}

TEST_F(Interrupts, WithoutStandardErrorNothingIsWrittenIntoTheFiles) {
  for (const std::string closed : {"2>&-", ">&- 2>&-", "<&- >&- 2>&-"}) {
    ASSERT_EQ(RunShell(Line({"sample", Path("d"), "--size", "64", "--overwrite"}) + ' ' + closed), 0);
    for (const std::string name : {"pan.tif", "ms.tif", "truth.tif"}) {
      EXPECT_TRUE(Bytes("d/" + name) == Bytes(name)) << name << ' ' << closed;
    }
  }
}

}  // namespace

#endif
