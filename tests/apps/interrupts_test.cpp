// Requests to end the program, and standard streams that are not there.
#include <gdal.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <filesystem>

#include "apps/exit_status.h"
#include "apps/fuse_command.h"
#include "platform/raster/raster_fault.h"
#include "platform/utility/common_fun.h"
#include "tests/apps/output_fixture.h"

namespace {

using test_support::Quoted;
using test_support::RunShell;
using testing::ElementsAre;
using testing::IsEmpty;

class Interrupts : public OutputCommand {
 protected:
  void SetUp() override {
    OutputCommand::SetUp();
    // Whoever runs the tests in the background may have them ignored.
    for (std::size_t i = 0; i < kSignals.size(); ++i) m_before[i] = std::signal(kSignals[i], SIG_DFL);
  }
  void TearDown() override {
    platform::SetRasterFault({});
    for (std::size_t i = 0; i < kSignals.size(); ++i) std::signal(kSignals[i], m_before[i]);
  }

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

#ifdef _WIN32
  static constexpr std::array kSignals = {SIGINT, SIGTERM, SIGBREAK};
#else
  static constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP};
#endif

 private:
  std::array<void (*)(int), kSignals.size()> m_before{};
};

TEST_F(Interrupts, EveryRequestEndsARunInOrderAndGivesTheStatus) {
  for (const int signal : kSignals) {
    // Two in a row come from one request: whoever signals a program and its group.
    for (const int times : {1, 2}) {
      EXPECT_EQ(RunInto(signal, times), 128 + signal);
      EXPECT_THAT(NewNames(), IsEmpty()) << signal;
    }
  }
}

TEST_F(Interrupts, TheFinalCopyIsShownAndCanBeCancelled) {
  const std::pair<std::string, std::string> outputs[] = {{"out.png", ""}, {"out.jp2", ""}, {"out.tif", "COG"}};
  for (const auto& [out, format] : outputs) {
    if (out == "out.jp2" && !GDALGetDriverByName("JP2OpenJPEG")) continue;
    app::FuseOptions options;
    options.pan = Path("pan.tif");
    options.ms = Path("ms.tif");
    options.out = Path(out);
    options.method = "brovey";
    options.bands = {1, 2, 3};
    options.type = "uint8";
    options.format = format;
    platform::SetRasterFault([&](platform::RasterOperation operation, const std::wstring& path, int, const CRect&) {
      // What is copied has another name.
      const bool copying =
          operation == platform::RasterOperation::kStore && path.ends_with(L'/' + CommonFun::Utf82U(out));
      if (copying) std::raise(SIGTERM);
      return false;
    });
    testing::internal::CaptureStderr();
    EXPECT_EQ(app::RunFuse(options), 128 + SIGTERM) << out;
    testing::internal::GetCapturedStderr();
    EXPECT_THAT(NewNames(), IsEmpty()) << out;
    platform::SetRasterFault({});
    testing::internal::CaptureStderr();
    EXPECT_EQ(app::RunFuse(options), 0) << out;
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("format conversion 0...10..."));
    std::filesystem::remove(CommonFun::ToPath(m_folder.WidePath(out)));
    std::filesystem::remove(CommonFun::ToPath(m_folder.WidePath(out + ".aux.xml")));
  }
}

TEST_F(Interrupts, ARequestAfterTheLastStepStillCancels) {
  app::FuseOptions options;
  options.pan = Path("pan.tif");
  options.ms = Path("ms.tif");
  options.out = Path("out.tif");
  options.method = "brovey";
  options.spectralMatch = "off";
  options.quiet = true;
  int closed = 0;
  platform::SetRasterFault([&](platform::RasterOperation operation, const std::wstring&, int, const CRect&) {
    if (operation == platform::RasterOperation::kClose && ++closed == 1) std::raise(SIGTERM);
    return false;
  });
  testing::internal::CaptureStderr();
  EXPECT_EQ(app::RunFuse(options), 128 + SIGTERM);
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(closed, 1) << "the output alone is written";
  EXPECT_THAT(NewNames(), IsEmpty());
}

#ifndef _WIN32
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
#else
TEST_F(Interrupts, ARunThatIsToOutliveItsTerminalDoes) {
  GTEST_SKIP() << "no request of a terminal can be ignored here";
}
TEST_F(Interrupts, AReaderThatGoesAwayDoesNotEndARun) { GTEST_SKIP() << "no shell with such pipes here"; }
TEST_F(Interrupts, WithoutStandardErrorNothingIsWrittenIntoTheFiles) {
  GTEST_SKIP() << "no shell that closes streams here";
}
#endif

}  // namespace
