// Files that cannot be opened: each failure names its own cause.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "platform/utility/common_fun.h"
#include "platform/validity/raster_aoi.h"
#include "tests/apps/scene_command.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class OpenFailures : public SceneCommand {
 protected:
  void Write(const std::string& name, const std::string& text) const {
    std::ofstream(CommonFun::ToPath(m_folder.WidePath(name)), std::ios::binary) << text;
  }
  /// What is said of a file as pan image, as multispectral image, as fused image and as area.
  std::vector<std::string> Said(const std::string& name) const {
    const std::string pan = Path("pan.tif");
    const std::string ms = Path("ms.tif");
    std::vector<std::string> said;
    for (const auto& arguments : {std::vector<std::string>{"fuse", Path(name), ms, Path("out.tif")},
                                  {"fuse", pan, Path(name), Path("out.tif")},
                                  {"evaluate", pan, ms, Path(name)},
                                  {"fuse", pan, ms, Path("out.tif"), "--aoi", Path(name)}}) {
      const auto run = Run(arguments);
      EXPECT_EQ(run.status, 1);
      EXPECT_FALSE(m_folder.Has("out.tif"));
      said.push_back(run.err);
    }
    return said;
  }
  std::string Start(const std::string& name) const { return "fusion: error 4: " + Path(name) + " "; }
};

TEST_F(OpenFailures, AFileThatIsNotThere) {
  for (const auto& said : Said("nix.tif")) EXPECT_THAT(said, StartsWith(Start("nix.tif") + "does not exist. ("));
}

TEST_F(OpenFailures, AFileThatIsNoRasterOrVector) {
  Write("text.txt", "nothing but a text\n");
  for (const auto& said : Said("text.txt")) {
    EXPECT_THAT(said, StartsWith(Start("text.txt") + "cannot be opened: "));
    EXPECT_THAT(said, HasSubstr("not recognized as a supported file format"));
    EXPECT_THAT(said, Not(HasSubstr("does not exist")));
  }
}

TEST_F(OpenFailures, AFileThatIsDamaged) {
  // A header of a TIFF, and nothing where it points to.
  Write("cut.tif", std::string("II*\0\x10\0\0\0", 8));
  const auto said = Said("cut.tif");
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_THAT(said[i], StartsWith(Start("cut.tif") + "cannot be opened: "));
    EXPECT_THAT(said[i], Not(HasSubstr("does not exist")));
  }
}

TEST_F(OpenFailures, AFolder) {
  std::filesystem::create_directories(CommonFun::ToPath(m_folder.WidePath("folder")));
  for (const auto& said : Said("folder")) EXPECT_THAT(said, StartsWith(Start("folder") + "is a folder. ("));
}

TEST_F(OpenFailures, AnAreaWithoutPolygons) {
  Write("points.geojson", R"({"type":"FeatureCollection","features":[{"type":"Feature","properties":{},
    "geometry":{"type":"Point","coordinates":[440004,4474996]}}]})");
  Write("none.geojson", R"({"type":"FeatureCollection","features":[]})");
  for (const std::string name : {"points.geojson", "none.geojson"}) {
    EXPECT_THAT(Said(name)[3], StartsWith(Start(name) + "cannot be opened: it holds no polygon. (")) << name;
  }
}

TEST_F(OpenFailures, AnAreaThatCannotBeLaidOnTheImage) {
  // The poles are nowhere in a transverse Mercator projection so far away.
  Write("far.csv", "WKT,id\n\"POLYGON((1e308 1e308,-1e308 1e308,-1e308 -1e308,1e308 1e308))\",1\n");
  EXPECT_THAT(Said("far.csv")[3], HasSubstr("none of its polygons can be laid on the pan image"));
}

#ifndef _WIN32
TEST_F(OpenFailures, AFileThatMayNotBeRead) {
  using std::filesystem::perms;
  const auto path = CommonFun::ToPath(m_folder.WidePath("secret.tif"));
  std::filesystem::copy_file(CommonFun::ToPath(m_folder.WidePath("ms.tif")), path);
  std::filesystem::permissions(path, perms::none);
  // Nothing is forbidden to root, who becomes somebody else for this.
  std::string somebody;
  if (std::ifstream(path).is_open()) {
    somebody = "setpriv --reuid=65534 --regid=65534 --clear-groups ";
    if (test_support::RunShell(somebody + FUSION_COMMAND + " --version > /dev/null 2>&1") != 0) {
      GTEST_SKIP() << "cannot become somebody who may not read the file";
    }
  }
  using test_support::Quoted;
  for (const std::string& line : {Quoted(Path("pan.tif")) + ' ' + Quoted(Path("secret.tif")) + " /tmp/never.tif",
                                  Quoted(Path("secret.tif")) + ' ' + Quoted(Path("ms.tif")) + " /tmp/never.tif"}) {
    EXPECT_EQ(
        test_support::RunShell(somebody + Quoted(FUSION_COMMAND) + " fuse " + line + " 2> " + Quoted(Path("err"))), 1);
    EXPECT_THAT(test_support::FileBytes(Path("err")),
                StartsWith(Start("secret.tif") + "cannot be opened: Permission denied. ("));
  }
}
#else
TEST_F(OpenFailures, AFileThatMayNotBeRead) { GTEST_SKIP() << "rights are not set by modes here"; }
#endif

}  // namespace
