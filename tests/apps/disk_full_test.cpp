// Runs onto a disk that is full, or becomes so: they end, say so and leave nothing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "apps/fuse_command.h"
#include "platform/raster/raster_fault.h"
#include "platform/utility/common_fun.h"
#include "tests/apps/output_fixture.h"
#include "tests/support/test_raster.h"

namespace {

using platform::RasterOperation;
using test_support::Quoted;
using test_support::RunShell;
using testing::HasSubstr;
using testing::IsEmpty;

class DiskFull : public OutputCommand {
 protected:
  void TearDown() override { platform::SetRasterFault({}); }

  struct Ending {
    int status;
    std::string said;
  };
  /// A run in this process that meets a fault.
  Ending RunInto(const platform::RasterFault& fault, const std::string& out, const std::string& method,
                 const std::string& type = "uint8") const {
    app::FuseOptions options;
    options.pan = Path("pan.tif");
    options.ms = Path("ms.tif");
    options.out = Path(out);
    options.method = method;
    options.bands = {1, 2, 3};
    options.quiet = true;
    if (method != "hpf") options.type = type;
    platform::SetRasterFault(fault);
    testing::internal::CaptureStderr();
    const int status = app::RunFuse(options);
    platform::SetRasterFault({});
    return {status, testing::internal::GetCapturedStderr()};
  }
};

TEST_F(DiskFull, WhateverTheFormatAndTheMomentTheRunFailsAndSaysWhy) {
  for (const std::string out : {"out.tif", "out.img", "out.dat", "out.png", "out.jpg", "out.jp2"}) {
    if (test_support::IsOfUnknownFormat(out)) continue;
    int writes = 0;
    const auto count = [&](RasterOperation operation, const std::wstring&, int, const CRect&) {
      writes += operation == RasterOperation::kStore;
      return false;
    };
    ASSERT_EQ(RunInto(count, out, "brovey").status, 0) << out;
    for (const auto& name : NewNames()) std::filesystem::remove(CommonFun::ToPath(m_folder.WidePath(name)));
    const int all = writes;
    for (int at = 0; at < all; at += all / 12 + 1) {
      int seen = 0;
      const Ending run = RunInto([&](RasterOperation operation, const std::wstring&, int,
                                     const CRect&) { return operation == RasterOperation::kStore && seen++ >= at; },
                                 out, "brovey");
      EXPECT_EQ(run.status, 1) << out << at;
      EXPECT_THAT(run.said, HasSubstr("the disk is full")) << out << at;
      EXPECT_THAT(NewNames(), IsEmpty()) << out << at;
    }
  }
}

TEST_F(DiskFull, AnotherFailedWriteIsNotCalledAFullDisk) {
  const Ending run = RunInto([](RasterOperation operation, const std::wstring&, int,
                                const CRect&) { return operation == RasterOperation::kWrite; },
                             "out.tif", "brovey");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.said, HasSubstr("error 3: The output could not be written."));
}

TEST_F(DiskFull, LackOfMemoryWhileWritingIsToldAsThat) {
  for (const std::string method : {"brovey", "hpf", "sharpen"}) {
    const Ending run = RunInto(
        [](RasterOperation operation, const std::wstring&, int, const CRect&) {
          if (operation == RasterOperation::kWrite) throw std::bad_alloc();
          return false;
        },
        "out.tif", method);
    EXPECT_EQ(run.status, 1) << method;
    EXPECT_THAT(run.said, HasSubstr("error 6: The run ran out of memory.")) << method;
    EXPECT_THAT(NewNames(), IsEmpty()) << method;
  }
}

#ifndef _WIN32
TEST_F(DiskFull, ALimitOnTheSizeOfFilesIsAFailedWrite) {
  // In blocks of 512 bytes. The samples alone would fit the larger one.
  for (const std::string limit : {"8", "64"}) {
    const std::string line =
        "ulimit -f " + limit + "; timeout 60 " + Line(FuseArguments("out.tif", {})) + " 2> " + Quoted(Path("err"));
    EXPECT_EQ(RunShell(line), 1) << limit;
    EXPECT_THAT(Bytes("err"), HasSubstr("the disk is full"));
    EXPECT_THAT(NewNames(), testing::ElementsAre("err"));
  }
}

/// A small disk of its own, where the test may make one.
class SmallDisk {
 public:
  SmallDisk(const std::string& place, const std::string& size) : m_place(Quoted(place)) {
    m_mounted = RunShell("mkdir -p " + m_place + " && mount -t tmpfs -o size=" + size + " small " + m_place +
                         " 2> /dev/null") == 0;
  }
  ~SmallDisk() {
    if (m_mounted) RunShell("umount " + m_place);
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;
  bool IsThere() const { return m_mounted; }

 private:
  std::string m_place;
  bool m_mounted = false;
};

TEST_F(DiskFull, ARunOntoAReadOnlyDiskSaysSoAndLeavesWhatIsThere) {
  const SmallDisk disk(Path("disk"), "1m");
  if (!disk.IsThere()) GTEST_SKIP() << "no file system can be mounted here";
  ASSERT_EQ(Fuse("disk/out.tif").status, 0);
  const std::string older = Bytes("disk/out.tif");
  if (RunShell("mount -o remount,ro " + Quoted(Path("disk")) + " 2> /dev/null") != 0) {
    GTEST_SKIP() << "no file system can be made read-only here";
  }
  const std::vector<std::string> pair = {Path("pan.tif"), Path("ms.tif")};
  const std::vector<std::vector<std::string>> commands = {
      {"fuse", pair[0], pair[1], Path("disk/out.tif"), "--overwrite"},
      {"fuse", pair[0], pair[1], Path("disk/new.img"), "--method", "hpf"},
      {"sample", Path("disk/scene")},
      {"report", pair[0], pair[1], Path("truth.tif"), "-o", Path("disk/report.html")},
      {"survey", pair[0], pair[1], "--rows", "0:32", "-o", Path("disk/part.survey")}};
  for (std::vector<std::string> command : commands) {
    command.emplace_back("--quiet");
    const auto run = Run(command);
    EXPECT_EQ(run.status, 1) << command[0];
    EXPECT_THAT(run.err, HasSubstr("Read-only file system")) << command[0];
  }
  EXPECT_EQ(Run({"evaluate", pair[0], pair[1], Path("disk/out.tif"), "--quiet"}).status, 0);
  EXPECT_TRUE(Bytes("disk/out.tif") == older);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(CommonFun::ToPath(m_folder.WidePath("disk"))), {}), 1);
}

TEST_F(DiskFull, ARunOntoASmallDiskEndsAndLeavesNothing) {
  ASSERT_EQ(Run({"sample", Path("large"), "--size", "512", "--quiet"}).status, 0);
  // The output takes 2048 kB and a page, in 32 bits twice that, and its overviews 640 kB and a page.
  const struct {
    const char* size;
    std::vector<std::string> options;
  } cases[] = {{"16k", {}},
               {"16k", {"--method", "brovey", "--type", "float32"}},
               {"2000k", {"--method", "pca"}},
               {"2048k", {"--method", "pca"}},
               {"2200k", {"--method", "ihs"}},
               {"2692k", {"--method", "ihs"}},
               {"4096k", {"--method", "brovey", "--type", "float32", "--match-moments", "plain"}},
               {"2200k", {"--method", "sharpen"}},
               {"2200k", {"--format", "COG"}}};
  for (const auto& [size, options] : cases) {
    const SmallDisk disk(Path("disk"), size);
    if (!disk.IsThere()) GTEST_SKIP() << "no file system can be mounted here";
    std::vector<std::string> arguments = {"fuse", Path("large/pan.tif"), Path("large/ms.tif"), Path("disk/out.tif"),
                                          "--quiet"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    // It must not wait for the one that ends it.
    EXPECT_EQ(RunShell("timeout -k 1 60 " + Line(arguments) + " 2> " + Quoted(Path("err"))), 1)
        << size << testing::PrintToString(options);
    EXPECT_THAT(Bytes("err"), HasSubstr("the disk is full")) << size << testing::PrintToString(options);
    EXPECT_TRUE(std::filesystem::is_empty(CommonFun::ToPath(m_folder.WidePath("disk"))));
    const auto sample = Run({"sample", Path("disk/a/b"), "--size", "2048", "--quiet"});
    EXPECT_EQ(sample.status, 1);
    EXPECT_THAT(sample.err, HasSubstr("the disk is full"));
    EXPECT_TRUE(std::filesystem::is_empty(CommonFun::ToPath(m_folder.WidePath("disk"))));
  }
}
#else
TEST_F(DiskFull, ALimitOnTheSizeOfFilesIsAFailedWrite) { GTEST_SKIP() << "no limit on the size of files here"; }
TEST_F(DiskFull, ARunOntoAReadOnlyDiskSaysSoAndLeavesWhatIsThere) {
  GTEST_SKIP() << "no file system can be mounted here";
}
TEST_F(DiskFull, ARunOntoASmallDiskEndsAndLeavesNothing) { GTEST_SKIP() << "no file system can be mounted here"; }
#endif

}  // namespace
