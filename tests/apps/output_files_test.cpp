// Which files a run writes, and which it must not touch, whatever they are called.
#include <gdal_priv.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "apps/fuse_command.h"
#include "platform/raster/raster_fault.h"
#include "platform/utility/common_fun.h"
#include "tests/apps/output_fixture.h"
#include "tests/support/scene.h"

namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class OutputFiles : public OutputCommand {
 protected:
  fs::path Native(const std::string& name) const { return CommonFun::ToPath(m_folder.WidePath(name)); }
  void Write(const std::string& name, const std::string& text) const { std::ofstream(Native(name)) << text; }
  reference::Image Image(const std::string& name) const { return test_support::ReadImage(m_folder.WidePath(name)); }
  /// A copy of a file of the scene in another format.
  void Copy(const std::string& from, const std::string& to, const char* driver) const {
    GDALAllRegister();
    const std::unique_ptr<GDALDataset> source(GDALDataset::Open(Path(from).c_str(), GDAL_OF_RASTER));
    const std::unique_ptr<GDALDataset> copy(GetGDALDriverManager()->GetDriverByName(driver)->CreateCopy(
        Path(to).c_str(), source.get(), FALSE, nullptr, nullptr, nullptr));
    ASSERT_NE(copy, nullptr);
  }
};

TEST_F(OutputFiles, AnotherImagesHeaderIsNeverReplaced) {
  Copy("pan.tif", "scene.img", "ENVI");
  const std::string header = Bytes("scene.hdr");
  for (const std::vector<std::string>& options : {std::vector<std::string>{}, {"--overwrite"}}) {
    const auto other = Fuse("scene.dat", options);
    EXPECT_EQ(other.status, 2);
    EXPECT_THAT(other.err, HasSubstr("scene."));
    auto arguments = FuseArguments("scene.dat", options);
    arguments[1] = Path("scene.img");
    const auto input = Run(arguments);
    EXPECT_EQ(input.status, 2);
    EXPECT_EQ(Bytes("scene.hdr"), header);
  }
  EXPECT_FALSE(m_folder.Has("scene.dat"));
  EXPECT_EQ(Image("scene.img").width, 64);
}

TEST_F(OutputFiles, WithoutOverwriteNoCompanionIsReplaced) {
  for (const std::string name : {"out.dat.aux.xml", "out.dat.ovr", "out.hdr"}) {
    Write(name, "mine");
    const auto run = Fuse("out.dat");
    EXPECT_EQ(run.status, 2) << name;
    EXPECT_THAT(run.err, HasSubstr(name + " exists")) << name;
    EXPECT_EQ(Bytes(name), "mine");
    fs::remove(Native(name));
  }
  EXPECT_EQ(Fuse("out.dat").status, 0);
  EXPECT_EQ(Fuse("out.dat").status, 2);
  EXPECT_EQ(Fuse("out.dat", {"--overwrite", "--format", "GeoTIFF"}).status, 0);
  EXPECT_THAT(NewNames(), ElementsAre("out.dat")) << "the old header would speak of other pixels";
}

TEST_F(OutputFiles, NamesInsideThemAreTheirOwn) {
  ASSERT_EQ(Fuse("out.dat").status, 0);
  EXPECT_THAT(Bytes("out.hdr"), HasSubstr("description = {\nout.dat}"));
  EXPECT_THAT(Bytes("out.hdr"), Not(HasSubstr("~")));
}

TEST_F(OutputFiles, ErrorsNameTheOutput) {
  // More columns than the format has.
  ASSERT_EQ(Run({"sample", Path("wide"), "--size", "65540x4", "--bands", "3", "--type", "uint8", "--quiet"}).status, 0);
  const auto run = Run({"fuse", Path("wide/pan.tif"), Path("wide/ms.tif"), Path("out.jpg"), "--method", "brovey"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, Not(HasSubstr("~")));
  EXPECT_THAT(run.err, HasSubstr("out.jpg"));
}

TEST_F(OutputFiles, TheSourceOfAMosaicIsAnInput) {
  Copy("pan.tif", "mosaic.vrt", "VRT");
  const std::string before = Bytes("pan.tif");
  for (const std::string out : {"pan.tif", "mosaic.vrt", "pan.tif.ovr", "pan.tif.aux.xml", "mosaic.vrt.ovr"}) {
    auto arguments = FuseArguments(out, {"--overwrite"});
    arguments[1] = Path("mosaic.vrt");
    EXPECT_EQ(Run(arguments).status, 2) << out;
  }
  EXPECT_TRUE(Bytes("pan.tif") == before);
  EXPECT_THAT(NewNames(), ElementsAre("mosaic.vrt"));
}

TEST_F(OutputFiles, TheLogIsNoFileOfTheImages) {
  Copy("pan.tif", "scene.img", "ENVI");
  const std::string header = Bytes("scene.hdr");
  auto arguments = FuseArguments("out.dat", {"--log", Path("scene.hdr")});
  arguments[1] = Path("scene.img");
  EXPECT_EQ(Run(arguments).status, 2);
  EXPECT_EQ(Bytes("scene.hdr"), header);
  EXPECT_EQ(Fuse("out.dat", {"--log", Path("out.hdr")}).status, 2);
  EXPECT_FALSE(m_folder.Has("out.hdr"));
}

TEST_F(OutputFiles, AFileThatAppearsMeanwhileIsNotReplaced) {
  app::FuseOptions options;
  options.pan = Path("pan.tif");
  options.ms = Path("ms.tif");
  options.out = Path("out.tif");
  options.method = "brovey";
  options.quiet = true;
  platform::SetRasterFault([&](platform::RasterOperation operation, const std::wstring&, int, const CRect&) {
    if (operation == platform::RasterOperation::kClose) Write("out.tif", "another run's");
    return false;
  });
  testing::internal::CaptureStderr();
  EXPECT_EQ(app::RunFuse(options), 2);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("--overwrite"));
  platform::SetRasterFault({});
  EXPECT_EQ(Bytes("out.tif"), "another run's");
  EXPECT_THAT(NewNames(), ElementsAre("out.tif"));
}

TEST_F(OutputFiles, OfTwoRunsOntoOneNameTheSecondIsRefused) {
  ASSERT_EQ(Run({"sample", Path("large"), "--size", "512", "--quiet"}).status, 0);
  const auto fuse = [this](const std::string& method) {
    return Run({"fuse", Path("large/pan.tif"), Path("large/ms.tif"), Path("out.tif"), "--method", method, "--quiet"})
        .status;
  };
  // With overviews and without: they must not come together.
  for (int i = 0; i < 3; ++i) {
    auto other = std::async(std::launch::async, fuse, "pca");
    const int first = fuse("ihs");
    const int second = other.get();
    EXPECT_TRUE((first == 0 && second == 2) || (first == 2 && second == 0)) << first << ' ' << second;
    EXPECT_EQ(m_folder.Has("out.tif.ovr"), first == 0);
    EXPECT_EQ(NewNames().size(), first == 0 ? 3U : 2U) << testing::PrintToString(NewNames());
    fs::remove(Native("out.tif"));
    fs::remove(Native("out.tif.ovr"));
  }
}

TEST_F(OutputFiles, AnOutputThatAnotherProgramHasOpenIsReplacedOrLeft) {
  ASSERT_EQ(Fuse("out.tif").status, 0);
  const std::string before = Bytes("out.tif");
  {
    const std::ifstream reader(Native("out.tif"), std::ios::binary);
    ASSERT_TRUE(reader.is_open());
    const auto run = Fuse("out.tif", {"--overwrite", "--method", "pca"});
#ifdef _WIN32
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, HasSubstr("error 3: " + Path("out.tif") + " cannot be written: "));
    EXPECT_TRUE(Bytes("out.tif") == before);
#else
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(NewNames(), ElementsAre("out.tif"));
#endif
  }
  // A second name of a file that was open may have been left, which this run sweeps.
  EXPECT_EQ(Fuse("out.tif", {"--overwrite", "--method", "pca"}).status, 0);
  EXPECT_FALSE(Bytes("out.tif") == before);
  EXPECT_THAT(NewNames(), ElementsAre("out.tif"));
}

TEST_F(OutputFiles, WhatAKilledRunHasLeftTheNextOneSweeps) {
  ASSERT_EQ(Run({"sample", Path("large"), "--size", "2048", "--quiet"}).status, 0);
  ASSERT_EQ(Fuse("out.tif").status, 0);
  const std::string before = Bytes("out.tif");
  const auto hasTemporary = [this] {
    const auto names = m_folder.Names();
    return std::any_of(names.begin(), names.end(), [](const auto& n) { return n.find('~') != std::string::npos; });
  };
  EXPECT_TRUE(test_support::KillCommand(
      FUSION_COMMAND, {"fuse", Path("large/pan.tif"), Path("large/ms.tif"), Path("out.tif"), "--overwrite", "--quiet"},
      hasTemporary));
  EXPECT_TRUE(hasTemporary());
  EXPECT_TRUE(Bytes("out.tif") == before);
  EXPECT_EQ(Fuse("next.tif").status, 0);
  EXPECT_THAT(NewNames(), ElementsAre("large", "next.tif", "out.tif"));
}

TEST_F(OutputFiles, LongNamesAreTakenOrRefusedWhole) {
  const std::string longest = std::string(251, 'x') + ".tif";
  EXPECT_EQ(Fuse(longest).status, 0);
  EXPECT_EQ(Image(longest).width, 64);
  EXPECT_EQ(Fuse('x' + longest).status, 1);
  EXPECT_THAT(NewNames(), ElementsAre(longest));
}

#ifndef _WIN32
TEST_F(OutputFiles, OnlyFilesAreWritten) {
  using test_support::Quoted;
  using test_support::RunShell;
  fs::create_symlink("nowhere.tif", Native("dangling.tif"));
  ASSERT_EQ(RunShell("mkfifo " + Quoted(Path("pipe.tif"))), 0);
  ASSERT_EQ(RunShell("mkfifo " + Quoted(Path("pan.fifo"))), 0);
  fs::create_directory(Native("scene"));
  ASSERT_EQ(RunShell("mkfifo " + Quoted(Path("scene/ms.tif"))), 0);
  std::vector<std::string> names = {"dangling.tif", "pipe.tif", "scene"};
  // Device nodes need rights that a test may not have; the zero device stands for what they are.
  if (RunShell("mknod " + Quoted(Path("device.tif")) + " c 1 3 2> /dev/null") == 0) names.emplace_back("device.tif");
  for (const std::string& name : names) {
    for (const std::vector<std::string>& options : {std::vector<std::string>{}, {"--overwrite"}}) {
      const auto status = fs::symlink_status(Native(name)).type();
      // A run that opens a pipe waits for ever.
      const std::string line = "timeout 20 " + Line(FuseArguments(name, options)) + " 2> " + Quoted(Path("err"));
      EXPECT_EQ(RunShell(line), 2) << name << Bytes("err");
      EXPECT_THAT(Bytes("err"), HasSubstr(name));
      EXPECT_EQ(fs::symlink_status(Native(name)).type(), status) << name;
    }
  }
  EXPECT_EQ(RunShell("timeout 20 " + Line({"sample", Path("scene"), "--size", "64", "--overwrite"}) + " 2> /dev/null"),
            2);
  EXPECT_EQ(fs::directory_iterator(Native("scene"))->path().filename(), "ms.tif");
}

TEST_F(OutputFiles, ALinkIsWrittenThrough) {
  fs::create_directory(Native("store"));
  ASSERT_EQ(Fuse("store/real.tif").status, 0);
  fs::create_symlink("store/real.tif", Native("out.tif"));
  EXPECT_EQ(Fuse("out.tif").status, 2);
  const std::string before = Bytes("store/real.tif");
  EXPECT_EQ(Fuse("out.tif", {"--overwrite", "--method", "pca"}).status, 0);
  EXPECT_TRUE(fs::is_symlink(Native("out.tif")));
  EXPECT_TRUE(Bytes("store/real.tif") != before);
  EXPECT_EQ(Image("out.tif").width, 64);
  EXPECT_THAT(NewNames(), ElementsAre("out.tif", "store"));
  // A link to an input is the input.
  fs::create_symlink("ms.tif", Native("link.tif"));
  EXPECT_EQ(Fuse("link.tif", {"--overwrite"}).status, 2);
}
#else
TEST_F(OutputFiles, OnlyFilesAreWritten) { GTEST_SKIP() << "no pipes and device nodes among files here"; }
TEST_F(OutputFiles, ALinkIsWrittenThrough) { GTEST_SKIP() << "links cannot be made here"; }
#endif

}  // namespace
