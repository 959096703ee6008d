// Runs of a process that may open few files, or take little memory: they end in order or make their picture.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>

#include "tests/apps/output_fixture.h"

#ifndef _WIN32

namespace {

using test_support::Quoted;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

/// The status of what the program's loader could not start.
constexpr int kNotStarted = 127;

class Limits : public OutputCommand {
 protected:
  /// Runs onto an older output below a limit of the shell's, and looks at what is left; the run's status.
  int FuseBelow(const std::string& limit, const std::vector<std::string>& arguments, const std::string& whole) const {
    constexpr char kOlder[] = "an older picture";
    EXPECT_EQ(test_support::RunShell("printf '" + std::string(kOlder) + "' > " + Quoted(Path("out.tif"))), 0);
    const int status = test_support::RunShell("exec 2> " + Quoted(Path("err")) + "; ulimit " + limit +
                                              "; exec timeout 60 " + Line(arguments));
    EXPECT_THAT(status, AnyOf(0, 1, kNotStarted)) << limit << Bytes("err");
    EXPECT_TRUE(Bytes("out.tif") == (status == 0 ? whole : kOlder)) << limit;
    EXPECT_THAT(NewNames(), testing::IsSubsetOf({"err", "large", "out.tif"})) << limit;
    return status;
  }
  std::string Whole(const std::vector<std::string>& arguments) const {
    EXPECT_EQ(Run(arguments).status, 0);
    return Bytes("out.tif");
  }
};

#ifdef __SANITIZE_ADDRESS__
TEST_F(Limits, OnOpenFilesAreTold) { GTEST_SKIP() << "the sanitizers open files for themselves"; }
TEST_F(Limits, OnMemoryAreTold) { GTEST_SKIP() << "the address sanitizer takes terabytes of addresses for itself"; }
#else
TEST_F(Limits, OnOpenFilesAreTold) {
  const auto arguments = FuseArguments("out.tif", {"--method", "bayesian", "--overwrite"});
  const std::string whole = Whole(arguments);
  int ended = 0;
  int succeeded = 0;
  // Three are the standard streams, and a program cannot be loaded without one more.
  for (int files = 4; files <= 24; ++files) {
    const int status = FuseBelow("-n " + std::to_string(files), arguments, whole);
    (status == 0 ? succeeded : ended) += 1;
    if (status != 1) continue;
    EXPECT_THAT(Bytes("err"), HasSubstr("fusion: error ")) << files;
    EXPECT_THAT(Bytes("err"), Not(HasSubstr("unexpected"))) << files;
    if (files > 4) continue;
    EXPECT_THAT(Bytes("err"), HasSubstr("cannot be opened: Too many open files."));
  }
  EXPECT_GE(ended, 1);
  EXPECT_GE(succeeded, 10);
  std::cout << "limits on open files: " << ended << " runs ended, " << succeeded << " made the picture\n";
}

TEST_F(Limits, OnMemoryAreTold) {
  ASSERT_EQ(Run({"sample", Path("large"), "--size", "1024", "--quiet"}).status, 0);
  const std::vector<std::string> arguments = {"fuse",    Path("large/pan.tif"), Path("large/ms.tif"), Path("out.tif"),
                                              "--quiet", "--overwrite",         "--method",           "bayesian"};
  const std::string whole = Whole(arguments);
  int ended = 0;
  int succeeded = 0;
  // From too little for the libraries to be loaded up to plenty.
  for (double kilobytes = 100e3; kilobytes < 4e6 && succeeded < 3; kilobytes *= 1.08) {
    const int status = FuseBelow("-v " + std::to_string(static_cast<int>(kilobytes)), arguments, whole);
    if (status == kNotStarted) continue;
    (status == 0 ? succeeded : ended) += 1;
    if (status == 1) {
      EXPECT_THAT(Bytes("err"), AnyOf(HasSubstr("error 6: The run ran out of memory."), HasSubstr(" of memory, and ")));
    }
  }
  EXPECT_GE(ended, 1);
  EXPECT_EQ(succeeded, 3);
  std::cout << "limits on memory: " << ended << " runs ended, " << succeeded << " made the picture\n";
}
#endif

}  // namespace

#else
TEST(Limits, OnOpenFilesAreTold) { GTEST_SKIP() << "no limit on a process's files here"; }
TEST(Limits, OnMemoryAreTold) { GTEST_SKIP() << "no limit on a process's memory here"; }
#endif
