// Outputs that get their names at the end, together with what belongs to them, and never at another file's cost.
#include "platform/raster/pending_output.h"

#include <gdal_priv.h>
#include <gdal_utils.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "platform/raster/renames.h"
#include "platform/system/files.h"
#include "platform/utility/common_fun.h"
#include "tests/support/command.h"

namespace {

namespace fs = std::filesystem;

using platform::OutputObstacle;
using platform::PendingOutput;
using testing::ElementsAre;

constexpr RasterDataFormat kEnvi = 22;

class PendingOutputs : public testing::Test {
 protected:
  void SetUp() override { GDALAllRegister(); }

  std::wstring Wide(const std::string& name) const { return m_folder.WidePath(name); }
  fs::path Native(const std::string& name) const { return CommonFun::ToPath(Wide(name)); }
  void Write(const std::string& name, const std::string& text) const { std::ofstream(Native(name)) << text; }
  std::string Text(const std::string& name) const { return test_support::FileBytes(m_folder.Path(name)); }

  /// A raster of 64 x 64 pixels that all hold one value.
  static void Make(const std::wstring& path, int value, const char* driver = "GTiff", const char* option = nullptr) {
    const char* const options[] = {option, nullptr};
    const std::unique_ptr<GDALDataset> raster(GetGDALDriverManager()->GetDriverByName(driver)->Create(
        CommonFun::U2Utf8(path).c_str(), 64, 64, 1, GDT_Byte, const_cast<char**>(options)));
    ASSERT_NE(raster, nullptr);
    double place[6] = {0.0, 2.0, 0.0, 128.0, 0.0, -2.0};
    ASSERT_EQ(raster->SetGeoTransform(place), CE_None);
    ASSERT_EQ(raster->GetRasterBand(1)->Fill(value), CE_None);
  }
  void Make(const std::string& name, int value, const char* driver = "GTiff", const char* option = nullptr) const {
    Make(Wide(name), value, driver, option);
  }
  static void AddOverviews(const std::wstring& path) {
    const std::unique_ptr<GDALDataset> raster(GDALDataset::Open(CommonFun::U2Utf8(path).c_str(), GDAL_OF_RASTER));
    ASSERT_NE(raster, nullptr);
    int level = 2;
    ASSERT_EQ(raster->BuildOverviews("AVERAGE", 1, &level, 0, nullptr, nullptr, nullptr), CE_None);
  }
  /// The value of the raster's first pixel, -1 when it does not open.
  int ValueOf(const std::string& name) const {
    const std::unique_ptr<GDALDataset> raster(GDALDataset::Open(m_folder.Path(name).c_str(), GDAL_OF_RASTER));
    unsigned char value = 0;
    if (!raster || raster->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, 1, 1, &value, 1, 1, GDT_Byte, 0, 0) != CE_None) {
      return -1;
    }
    return value;
  }

  test_support::TemporaryFolder m_folder;
};

TEST_F(PendingOutputs, AppearTogetherAtTheEnd) {
  PendingOutput output(Wide("out.tif"), false);
  EXPECT_EQ(output.Foresee(kFormatGeoTiff).kind, OutputObstacle::kNone);
  ASSERT_TRUE(output.Begin());
  Make(output.WorkPath(), 7);
  AddOverviews(output.WorkPath());
  ASSERT_EQ(m_folder.Names().size(), 1U) << "its own folder";
  EXPECT_EQ(output.Publish().kind, OutputObstacle::kNone);
  EXPECT_EQ(ValueOf("out.tif"), 7);
  EXPECT_TRUE(m_folder.Has("out.tif.ovr"));
}

TEST_F(PendingOutputs, VanishUnlessPublishedAndLeaveOnlyWhatBelongsToThem) {
  {
    PendingOutput output(Wide("out.tif"));
    ASSERT_TRUE(output.Begin());
    Make(output.WorkPath(), 7);
  }
  EXPECT_TRUE(m_folder.Names().empty());
  {
    PendingOutput output(Wide("out.tif"));
    ASSERT_TRUE(output.Begin());
    Make(output.WorkPath(), 7);
    Make(CommonFun::GetTempFilePath(output.WorkPath()), 1);
    EXPECT_EQ(output.Publish().kind, OutputObstacle::kNone);
  }
  EXPECT_THAT(m_folder.Names(), ElementsAre("out.tif"));
}

TEST_F(PendingOutputs, ReplaceNothingUnlessTheyMay) {
  for (const std::string name : {"out.dat", "out.dat.aux.xml", "out.dat.ovr", "out.dat.msk", "out.hdr", "OUT.HDR"}) {
    Write(name, "mine");
    PendingOutput output(Wide("out.dat"), false);
    const OutputObstacle foreseen = output.Foresee(kEnvi);
    if (!fs::exists(Native(name == "OUT.HDR" ? "out.hdr" : name))) {
      // Read for a raster of this name as well, but not where the new header stands, if the case of letters means
      // anything.
      EXPECT_EQ(foreseen.kind, OutputObstacle::kNone);
    } else {
      EXPECT_EQ(foreseen.kind, OutputObstacle::kExists) << name;
      EXPECT_TRUE(CommonFun::IsSameFile(foreseen.file, Wide(name)));
      ASSERT_TRUE(output.Begin());
      Make(output.WorkPath(), 1, "ENVI");
      EXPECT_EQ(output.Publish().kind, OutputObstacle::kExists) << name;
    }
    EXPECT_EQ(Text(name), "mine");
    fs::remove(Native(name));
  }
}

TEST_F(PendingOutputs, ANameTakenMeanwhileIsNotReplaced) {
  PendingOutput first(Wide("out.tif"), false);
  PendingOutput second(Wide("out.tif"), false);
  for (PendingOutput* output : {&first, &second}) {
    EXPECT_EQ(output->Foresee(kFormatGeoTiff).kind, OutputObstacle::kNone);
    ASSERT_TRUE(output->Begin());
  }
  Make(first.WorkPath(), 1);
  Make(second.WorkPath(), 2);
  AddOverviews(second.WorkPath());
  EXPECT_EQ(first.Publish().kind, OutputObstacle::kNone);
  EXPECT_EQ(second.Publish().kind, OutputObstacle::kExists);
  EXPECT_EQ(ValueOf("out.tif"), 1);
  EXPECT_FALSE(m_folder.Has("out.tif.ovr"));
}

TEST_F(PendingOutputs, OldCompanionsGoWithTheReplacedOutput) {
  Make("out.tif", 1);
  AddOverviews(Wide("out.tif"));
  for (const std::string name : {"out.tif.msk", "out.tif.aux.xml", "out.wld", "out.tfw", "out.prj"}) Write(name, "old");
  Make("out2.tif", 3);
  {
    PendingOutput output(Wide("out.tif"));
    ASSERT_TRUE(output.Begin());
    Make(output.WorkPath(), 2);
    EXPECT_EQ(output.Publish().kind, OutputObstacle::kNone);
  }
  EXPECT_THAT(m_folder.Names(), ElementsAre("out.tif", "out2.tif"));
  EXPECT_EQ(ValueOf("out.tif"), 2);
}

TEST_F(PendingOutputs, AProjectionFileOfAnotherFileStays) {
  Make("out.tif", 1);
  Write("out.prj", "theirs");
  Write("out.shp", "shapes");
  PendingOutput output(Wide("out.tif"));
  ASSERT_TRUE(output.Begin());
  Make(output.WorkPath(), 2);
  EXPECT_EQ(output.Publish().kind, OutputObstacle::kNone);
  EXPECT_EQ(Text("out.prj"), "theirs");
}

TEST_F(PendingOutputs, ReplaceTheirOwnHeader) {
  Make("out.dat", 1, "ENVI");
  Write("out.log", "what was done");
  Make("out.tif", 5);
  PendingOutput output(Wide("out.dat"));
  EXPECT_EQ(output.Foresee(kEnvi).kind, OutputObstacle::kNone);
  ASSERT_TRUE(output.Begin());
  Make(output.WorkPath(), 2, "ENVI");
  EXPECT_EQ(output.Publish().kind, OutputObstacle::kNone);
  EXPECT_EQ(ValueOf("out.dat"), 2);
  EXPECT_EQ(ValueOf("out.tif"), 5);
  EXPECT_EQ(Text("out.log"), "what was done");
}

TEST_F(PendingOutputs, LeaveTheHeaderOfAnotherImageAlone) {
  // Two ways to name it; a new out.hdr would be read for either.
  for (const std::string header : {"out.hdr", "out.img.hdr"}) {
    Make("out.img", 1, "ENVI");
    if (header != "out.hdr") fs::rename(Native("out.hdr"), Native(header));
    ASSERT_EQ(ValueOf("out.img"), 1);
    const std::string before = Text(header);
    PendingOutput output(Wide("out.dat"));
    const OutputObstacle foreseen = output.Foresee(kEnvi);
    EXPECT_EQ(foreseen.kind, OutputObstacle::kShared) << header;
    EXPECT_EQ(foreseen.file, Wide("out.img"));
    EXPECT_EQ(output.Foresee(kFormatGeoTiff).kind, OutputObstacle::kNone);
    ASSERT_TRUE(output.Begin());
    Make(output.WorkPath(), 2, "ENVI");
    EXPECT_EQ(output.Publish().kind, OutputObstacle::kShared);
    EXPECT_EQ(Text(header), before);
    EXPECT_FALSE(m_folder.Has("out.dat"));
  }
}

TEST_F(PendingOutputs, ReplaceNothingThatBelongsToAnInput) {
  Make("pan.img", 1, "ENVI");
  Make("tile.tif", 2);
  AddOverviews(Wide("tile.tif"));
  // A mosaic of a mosaic.
  for (const auto& [from, to] : {std::pair{"tile.tif", "inner.vrt"}, {"inner.vrt", "outer.vrt"}}) {
    const std::string source = m_folder.Path(from);
    const char* const sources[] = {source.c_str()};
    GDALClose(GDALBuildVRT(m_folder.Path(to).c_str(), 1, nullptr, sources, nullptr, nullptr));
  }
  fs::create_hard_link(Native("tile.tif"), Native("second_name.tif"));
  std::vector<std::string> names = {"pan.img",      "pan.hdr",         "outer.vrt",       "inner.vrt",    "tile.tif",
                                    "tile.tif.ovr", "second_name.tif", "pan.img.aux.xml", "outer.vrt.ovr"};
  // Not everywhere can there be links.
  std::error_code error;
  fs::create_symlink(Native("tile.tif"), Native("link.tif"), error);
  if (!error) names.emplace_back("link.tif");
  const std::vector<std::wstring> inputs = {Wide("pan.img"), Wide("outer.vrt")};
  for (const std::string& name : names) {
    EXPECT_EQ(PendingOutput(Wide(name), true, inputs).Foresee(kFormatGeoTiff).kind, OutputObstacle::kInput) << name;
  }
  const OutputObstacle header = PendingOutput(Wide("pan.dat"), true, inputs).Foresee(kEnvi);
  EXPECT_EQ(header.kind, OutputObstacle::kInput);
  EXPECT_EQ(header.file, Wide("pan.hdr"));
  EXPECT_EQ(PendingOutput(Wide("tile2.tif"), true, inputs).Foresee(kFormatGeoTiff).kind, OutputObstacle::kNone);
}

TEST_F(PendingOutputs, AnArchiveThatHoldsAnInputIsAnInput) {
  const std::string inside = "/vsizip/" + m_folder.Path("scene.zip") + "/pan.tif";
  Make("pan.tif", 1);
  ASSERT_EQ(CPLCopyFile(inside.c_str(), m_folder.Path("pan.tif").c_str()), 0);
  ASSERT_TRUE(m_folder.Has("scene.zip"));
  const PendingOutput output(Wide("scene.zip"), true, {CommonFun::Utf82U(inside)});
  EXPECT_EQ(output.Foresee(kFormatGeoTiff).kind, OutputObstacle::kInput);
}

TEST_F(PendingOutputs, TellWhichFilesConcernThem) {
  Make("pan.img", 1, "ENVI");
  const PendingOutput output(Wide("out.dat"), true, {Wide("pan.img")});
  for (const std::string name : {"pan.img", "pan.hdr", "out.dat", "out.hdr", "out.dat.aux.xml"}) {
    EXPECT_TRUE(output.Concerns(Wide(name))) << name;
  }
  EXPECT_FALSE(output.Concerns(Wide("out.log")));
}

TEST_F(PendingOutputs, AnImagineFileFindsItsPixels) {
  PendingOutput output(Wide("out.img"));
  ASSERT_TRUE(output.Begin());
  Make(output.WorkPath(), 5, "HFA", "USE_SPILL=YES");
  EXPECT_EQ(output.Publish().kind, OutputObstacle::kNone);
  EXPECT_TRUE(m_folder.Has("out.ige"));
  EXPECT_EQ(ValueOf("out.img"), 5);
}

TEST_F(PendingOutputs, AreWrittenThroughALink) {
#ifdef _WIN32
  GTEST_SKIP() << "links cannot be made here";
#endif
  fs::create_directory(Native("store"));
  Make("store/real.tif", 1);
  fs::create_symlink("store/real.tif", Native("out.tif"));
  Write("out.tif.aux.xml", "of the old pixels");
  Write("store/real.tif.aux.xml", "of the old pixels");
  {
    PendingOutput output(Wide("out.tif"));
    EXPECT_EQ(output.Foresee(kFormatGeoTiff).kind, OutputObstacle::kNone);
    ASSERT_TRUE(output.Begin());
    Make(output.WorkPath(), 2);
    AddOverviews(output.WorkPath());
    EXPECT_EQ(output.Publish().kind, OutputObstacle::kNone);
  }
  EXPECT_TRUE(fs::is_symlink(Native("out.tif")));
  EXPECT_EQ(ValueOf("store/real.tif"), 2);
  EXPECT_TRUE(m_folder.Has("store/real.tif.ovr"));
  EXPECT_FALSE(m_folder.Has("store/real.tif.aux.xml"));
  EXPECT_THAT(m_folder.Names(), ElementsAre("out.tif", "store"));
}

TEST_F(PendingOutputs, OnlyFilesAreOutputs) {
#ifdef _WIN32
  GTEST_SKIP() << "links cannot be made here";
#endif
  fs::create_symlink("nowhere.tif", Native("dangling.tif"));
  fs::create_symlink("circle.tif", Native("circle.tif"));
  fs::create_directory(Native("folder.tif"));
  fs::create_directory_symlink("folder.tif", Native("to_folder.tif"));
  fs::create_directory(Native("out.tif.ovr"));
  for (const std::string name : {"dangling.tif", "circle.tif", "folder.tif", "to_folder.tif", "out.tif"}) {
    EXPECT_EQ(PendingOutput(Wide(name)).Foresee(kFormatGeoTiff).kind, OutputObstacle::kNoFile) << name;
  }
#ifndef _WIN32
  EXPECT_EQ(PendingOutput(L"/dev/null").Foresee(kFormatGeoTiff).kind, OutputObstacle::kNoFile);
#endif
}

TEST_F(PendingOutputs, LeaveNothingTemporaryWherePathsAreLong) {
  std::string deep = "deep";
  for (int i = 0; i < 4; ++i) deep += '/' + std::string(80, 'd');
  fs::create_directories(Native(deep));
  ASSERT_GT(Wide(deep).size(), 260U);
  const auto names = [&] {
    const CPLStringList list(VSIReadDir(m_folder.Path(deep).c_str()));
    std::vector<std::string> found;
    for (int i = 0; i < list.size(); ++i) {
      if (list[i][0] != '.') found.emplace_back(list[i]);
    }
    return found;
  };
  {
    PendingOutput output(Wide(deep + "/out.tif"));
    ASSERT_TRUE(output.Begin());
    Make(output.WorkPath(), 5);
    EXPECT_EQ(output.Publish().kind, OutputObstacle::kNone);
  }
  EXPECT_THAT(names(), ElementsAre("out.tif"));
  EXPECT_EQ(ValueOf(deep + "/out.tif"), 5);
}

TEST_F(PendingOutputs, SeveralArePublishedTogetherOrNotAtAll) {
  Make("a.tif", 1);
  Make("b.tif", 1);
  PendingOutput a(Wide("a.tif"));
  PendingOutput b(Wide("b.tif"));
  PendingOutput c(Wide("c.tif"));
  int value = 2;
  for (PendingOutput* output : {&a, &b, &c}) {
    ASSERT_TRUE(output->Begin());
    Make(output->WorkPath(), value++);
  }
  fs::create_directory(Native("c.tif"));
  EXPECT_EQ(PendingOutput::Publish({&a, &b, &c}).kind, OutputObstacle::kNoFile);
  EXPECT_EQ(ValueOf("a.tif"), 1);
  EXPECT_EQ(ValueOf("b.tif"), 1);
  fs::remove(Native("c.tif"));
  EXPECT_EQ(PendingOutput::Publish({&a, &b, &c}).kind, OutputObstacle::kNone);
  EXPECT_EQ(ValueOf("a.tif"), 2);
  EXPECT_EQ(ValueOf("c.tif"), 4);
}

TEST_F(PendingOutputs, WorkInMemoryToo) {
  const std::wstring out = L"/vsimem/pending/out.tif";
  for (const int value : {1, 2}) {
    PendingOutput output(out, value == 2);
    ASSERT_TRUE(output.Begin());
    Make(output.WorkPath(), value);
    if (value == 1) AddOverviews(output.WorkPath());
    EXPECT_EQ(output.Publish().kind, OutputObstacle::kNone);
  }
  EXPECT_EQ(PendingOutput(out, false).Foresee(kFormatGeoTiff).kind, OutputObstacle::kExists);
  char** names = VSIReadDir("/vsimem/pending");
  EXPECT_EQ(CSLCount(names), 1) << "the old overviews went";
  CSLDestroy(names);
  VSIRmdirRecursive("/vsimem/pending");
}

TEST_F(PendingOutputs, TextsNameTheOutput) {
  PendingOutput output(Wide("out.tif"));
  ASSERT_TRUE(output.Begin());
  const std::wstring other = CommonFun::GetTempFilePath(output.WorkPath());
  EXPECT_EQ(output.InTermsOfOutput(L"创建文件（" + output.WorkPath() + L"）失败！"),
            L"创建文件（" + Wide("out.tif") + L"）失败！");
  EXPECT_EQ(output.InTermsOfOutput(L"\"" + other + L"\": no room, " + other),
            L"\"" + Wide("out.tif") + L"\": no room, " + Wide("out.tif"));
  EXPECT_EQ(output.InTermsOfOutput(L"another.tif"), L"another.tif");
}

class RenamesTest : public PendingOutputs {
 protected:
  void SetUp() override {
    for (const std::string name : {"a", "b", "old", "taken"}) Write(name, name);
  }
};

TEST_F(RenamesTest, AreTakenBackAfterOneThatFailed) {
  {
    platform::Renames renames;
    renames.Move(Wide("a"), Wide("new"));
    renames.Replace(Wide("b"), Wide("old"), Wide("aside"));
    renames.Move(Wide("new"), Wide("taken"));
    renames.Move(Wide("old"), Wide("never"));
    const OutputObstacle obstacle = renames.Commit();
    EXPECT_EQ(obstacle.kind, OutputObstacle::kExists);
    EXPECT_EQ(obstacle.file, Wide("taken"));
  }
  EXPECT_THAT(m_folder.Names(), ElementsAre("a", "old", "taken"));
  EXPECT_EQ(Text("old"), "old");
  EXPECT_EQ(Text("taken"), "taken");
}

TEST_F(RenamesTest, StayOnceCommitted) {
  {
    platform::Renames renames;
    renames.Move(Wide("a"), Wide("new"));
    renames.Replace(Wide("b"), Wide("old"), Wide("aside"));
    EXPECT_EQ(renames.Commit().kind, OutputObstacle::kNone);
  }
  EXPECT_EQ(Text("new"), "a");
  EXPECT_EQ(Text("old"), "b");
  EXPECT_EQ(Text("aside"), "old");
}

TEST_F(RenamesTest, AFailureOfTheSystemKeepsItsReason) {
  platform::Renames renames;
  renames.Move(Wide("missing"), Wide("new"));
  const OutputObstacle obstacle = renames.Commit();
  EXPECT_EQ(obstacle.kind, OutputObstacle::kNotGiven);
  EXPECT_EQ(obstacle.error, ENOENT);
}

TEST_F(RenamesTest, AFolderLockKeepsTheNextOneWaiting) {
  std::atomic<bool> entered = false;
  std::thread next;
  {
    const platform::FolderLock lock(Native(""));
    next = std::thread([&] {
      const platform::FolderLock other(Native(""));
      entered = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(entered);
  }
  next.join();
  EXPECT_TRUE(entered);
}

}  // namespace
