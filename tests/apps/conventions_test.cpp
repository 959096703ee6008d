// What users of GDAL's programs expect: its short options, several files, its file systems, a run that does nothing.
#include <gdal_priv.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "apps/console_progress.h"
#include "apps/short_options.h"
#include "platform/utility/common_fun.h"
#include "runs/run_failure.h"
#include "tests/apps/scene_command.h"
#include "tests/support/test_raster.h"

namespace {

using test_support::Quoted;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(ShortOptionsTest, StandForLongOnesOfTheCommand) {
  const std::vector<std::string> known = {"--format", "--co",  "--bands",    "--type",    "--nodata",   "--window",
                                          "--quiet",  "--out", "--resample", "--threads", "--overwrite"};
  EXPECT_THAT(
      app::WithLongOptions({"fuse", "-of", "COG", "-co", "A=B", "-b", "3", "-b", "1", "-ot", "Byte", "-q"}, known),
      ElementsAre("fuse", "--format=COG", "--co=A=B", "--bands=3", "--bands=1", "--type=uint8", "--quiet"));
  EXPECT_THAT(
      app::WithLongOptions({"-ot", "UInt16", "-r", "cubic", "-r", "near", "-threads", "ALL_CPUS", "-o", "x"}, known),
      ElementsAre("--type=uint16", "--resample=bicubic", "--resample=nearest", "--threads=all", "--out=x"));
  EXPECT_THAT(app::WithLongOptions({"-srcwin", "-10", "0", "64", "32", "-nodata", "-9999", "-a_nodata", "0"}, known),
              ElementsAre("--window=-10,0,64,32", "--nodata=-9999", "--nodata=0"));
  EXPECT_THAT(app::WithLongOptions({"-cutline", "a", "--", "-q"}, known), ElementsAre("-cutline", "a", "--", "-q"))
      << "an option that the command has not, and what is no option";
  for (const std::vector<std::string>& wrong : std::vector<std::vector<std::string>>{
           {"-a_nodata", "255"}, {"-r", "lanczos"}, {"-of"}, {"-srcwin", "1", "2", "3"}}) {
    EXPECT_THROW(app::WithLongOptions(wrong, known), fusion::RunFailure) << wrong[0];
  }
}

TEST(RemainingTime, IsToldWhenItCanBe) {
  EXPECT_EQ(app::Remaining(50, 1.0), "");
  EXPECT_EQ(app::Remaining(0, 60.0), "");
  EXPECT_EQ(app::Remaining(100, 60.0), "");
  EXPECT_EQ(app::Remaining(50, 30.0), "30 s left");
  EXPECT_EQ(app::Remaining(25, 60.0), "3 min left");
  EXPECT_EQ(app::Remaining(1, 600.0), "17 h left") << "99 times ten minutes";
}

class Conventions : public SceneCommand {
 protected:
  void SetUp() override {
    SceneCommand::SetUp();
    GDALAllRegister();
  }
  /// The bands of the scene in files of their own: b1.tif to b4.tif.
  std::vector<std::string> BandFiles() const {
    std::vector<std::string> files;
    for (const int band : {1, 2, 3, 4}) {
      files.push_back(Path("b" + std::to_string(band) + ".tif"));
      test_support::CopyBand(Path("ms.tif"), band, files.back());
    }
    return files;
  }
};

TEST_F(Conventions, ShortOptionsReachTheRun) {
  ASSERT_EQ(Fuse("long.tif", {"--method", "brovey", "--bands", "3,1", "--type", "uint8", "--format", "GeoTIFF",
                              "--resample", "bicubic", "--compress", "DEFLATE", "--co", "TILED=YES", "--quiet"})
                .status,
            0);
  const auto run = Run({"fuse",
                        "-q",
                        Path("pan.tif"),
                        Path("ms.tif"),
                        "-o",
                        Path("short.tif"),
                        "--method",
                        "brovey",
                        "-b",
                        "3",
                        "-b",
                        "1",
                        "-ot",
                        "Byte",
                        "-of",
                        "GTiff",
                        "-r",
                        "cubic",
                        "-co",
                        "COMPRESS=DEFLATE",
                        "-co",
                        "TILED=YES"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(Image("short.tif").bands, Image("long.tif").bands);
  EXPECT_EQ(Run({"fuse", Path("pan.tif"), Path("ms.tif"), Path("short.tif"), "-q"}).status, 2) << "it exists";
  EXPECT_EQ(Run({"fuse", Path("pan.tif"), Path("ms.tif"), Path("short.tif"), "-q", "-overwrite"}).status, 0);
}

TEST_F(Conventions, AnUnknownOptionIsNamedWithTheNearest) {
  EXPECT_EQ(Fuse("out.tif", {"--spectral-mach", "off"}).err,
            "fusion: Unknown option '--spectral-mach'; did you mean '--spectral-match'? (see fusion fuse --help)\n");
  EXPECT_THAT(Fuse("out.tif", {"-cp", "A=B"}).err, HasSubstr("Unknown option '-cp'; did you mean '"));
  EXPECT_THAT(Run({"evaluate", "a", "b", "c", "--metrics=snr"}).err, HasSubstr("did you mean '--metric'?"));
  EXPECT_EQ(Run({"fuse", Path("pan.tif"), Path("ms.tif")}).err, "fusion: OUT is required (see fusion fuse --help)\n");
}

TEST_F(Conventions, CompressionHasAnOptionOfItsOwn) {
  ASSERT_EQ(Fuse("out.tif", {"--method", "brovey", "--compress", "LZW", "--quiet"}).status, 0);
  const std::unique_ptr<GDALDataset> file(GDALDataset::Open(Path("out.tif").c_str(), GDAL_OF_RASTER));
  EXPECT_STREQ(file->GetMetadataItem("COMPRESSION", "IMAGE_STRUCTURE"), "LZW");
  EXPECT_EQ(Fuse("a.img", {"--compress", "LZW"}).status, 2);
  EXPECT_THAT(Fuse("a.tif", {"--compress", "LZW", "--co", "compress=ZSTD"}).err, HasSubstr("say the same"));
  EXPECT_EQ(Fuse("a.tif", {"--compress", "SQUEEZE"}).status, 2);
}

TEST_F(Conventions, BandsMayLieInFilesOfTheirOwn) {
  const std::vector<std::string> bands = BandFiles();
  ASSERT_EQ(Fuse("whole.tif", {"--method", "brovey", "--quiet"}).status, 0);
  std::vector<std::string> arguments = {"fuse", Path("pan.tif")};
  arguments.insert(arguments.end(), bands.begin(), bands.end());
  arguments.insert(arguments.end(), {"-o", Path("parts.tif"), "--method", "brovey", "--quiet"});
  auto run = Run(arguments);
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(Image("parts.tif").bands, Image("whole.tif").bands);
  run =
      Run({"fuse", Path("pan.tif"), "--ms", Path("b[1-4].tif"), Path("pattern.tif"), "--method", "brovey", "--quiet"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(Image("pattern.tif").bands, Image("whole.tif").bands);
  // The output tells its inputs, and the command that it repeats takes them.
  const auto repeat = Run({"fuse", "--repeat", Path("pattern.tif")});
  EXPECT_THAT(repeat.out, HasSubstr(test_support::Quoted(Path("b1.tif")) + ' ' + test_support::Quoted(Path("b2.tif"))));
  // None of them is replaced.
  run = Run({"fuse", Path("pan.tif"), "--ms", Path("b*.tif"), Path("b2.tif"), "--overwrite", "--quiet"});
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.err, HasSubstr("is an input of this run"));
  run = Run({"fuse", Path("pan.tif"), "--ms", Path("x*.tif"), Path("out.tif")});
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.err, HasSubstr("No file has a name like"));
  run = Run({"fuse", Path("pan.tif"), Path("b1.tif"), Path("ms.tif"), Path("out.tif"), "--json"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("ms.tif has 4 bands; several multispectral files have one band each."));
}

TEST_F(Conventions, SeveralFilesAreOneImageForEveryCommand) {
  ASSERT_EQ(Run({"sample", Path(""), "--size", "96", "--overwrite", "--quiet"}).status, 0);
  const std::vector<std::string> files = BandFiles();
  const auto json = [&](const std::vector<std::string>& words) {
    const auto run = Run(words);
    EXPECT_TRUE(run.status == 0 || run.status == 3) << words[0] << ": " << run.err;
    auto object = nlohmann::json::parse(run.out, nullptr, false);
    if (object.is_object()) object.erase("seconds");
    // Bands that have no name get that of their file.
    if (object.contains("bands")) object.erase("bands");
    return object;
  };
  const std::vector<std::vector<std::string>> commands = {
      {"check"}, {"evaluate", Path("truth.tif")}, {"assess", "--methods", "brovey", "--protocol", "wald"}};
  for (const std::vector<std::string>& command : commands) {
    const bool hasFused = command[0] == "evaluate";
    const auto with = [&](const std::vector<std::string>& ms) {
      std::vector<std::string> words = {command[0], Path("pan.tif")};
      words.insert(words.end(), ms.begin(), ms.end());
      words.insert(words.end(), command.begin() + 1, command.end());
      words.insert(words.end(), {"--json", "--quiet"});
      return json(words);
    };
    const auto one = with({Path("ms.tif")});
    EXPECT_TRUE(one.is_object() && one.size() > 1) << command[0];
    EXPECT_EQ(with(files), one) << command[0];
    EXPECT_EQ(with({"--ms", Path("b[1-4].tif")}), one) << command[0];
    const auto missing =
        Run({command[0], Path("pan.tif"), "--ms", Path("x*.tif"), hasFused ? Path("truth.tif") : "--quiet"});
    EXPECT_EQ(missing.status, 2);
    EXPECT_THAT(missing.err, HasSubstr("No file has a name like"));
  }
  EXPECT_THAT(Run({"check", Path("pan.tif")}).err, HasSubstr("MS"));
  EXPECT_THAT(Run({"evaluate", Path("pan.tif"), Path("ms.tif")}).err, HasSubstr("FUSED"));
}

TEST_F(Conventions, APatternLeavesThePanImageOut) {
  BandFiles();
  std::filesystem::copy_file(CommonFun::ToPath(m_folder.WidePath("pan.tif")),
                             CommonFun::ToPath(m_folder.WidePath("b8.tif")));
  const auto run = Run({"fuse", Path("b8.tif"), "--ms", Path("b*.tif"), Path("out.tif"), "--method", "pca", "--quiet"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(Image("out.tif").bands.size(), 4U);
}

#ifndef _WIN32
TEST_F(Conventions, FilesMayLieInArchivesAndComeFromStandardInput) {
  ASSERT_EQ(Fuse("whole.tif", {"--method", "brovey", "--quiet"}).status, 0);
  const auto script = [&](const std::string& line) { return test_support::RunShell(line); };
  ASSERT_EQ(script("cd " + Quoted(Path("")) + " && tar cf scene.tar pan.tif ms.tif"), 0);
  auto run = Run({"fuse", "/vsitar/" + Path("scene.tar") + "/pan.tif", "/vsitar/" + Path("scene.tar") + "/ms.tif",
                  Path("tar.tif"), "--method", "brovey", "--quiet"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(Image("tar.tif").bands, Image("whole.tif").bands);
  const std::string line = Quoted(FUSION_COMMAND) + " fuse /vsistdin/ " + Quoted(Path("ms.tif")) + ' ' +
                           Quoted(Path("stdin.tif")) + " --method brovey --quiet < " + Quoted(Path("pan.tif"));
  ASSERT_EQ(script(line), 0);
  EXPECT_EQ(Image("stdin.tif").bands, Image("whole.tif").bands);
}
#else
TEST_F(Conventions, FilesMayLieInArchivesAndComeFromStandardInput) {
  GTEST_SKIP() << "no shell that makes archives here";
}
#endif

TEST_F(Conventions, ADryRunTellsWhatARunWouldDoAndWritesNothing) {
  const auto before = m_folder.Names();
  const std::vector<std::string> options = {"--method", "brovey", "--window", "10,20,30,40", "--bands", "1,2"};
  std::vector<std::string> dry = options;
  dry.insert(dry.end(), {"--dry-run", "--json"});
  const auto plan = Fuse("out.tif", dry);
  ASSERT_EQ(plan.status, 0) << plan.err;
  EXPECT_EQ(m_folder.Names(), before);
  auto json = nlohmann::json::parse(plan.out);
  std::vector<std::string> wet = options;
  wet.insert(wet.end(), {"--json", "--quiet"});
  const auto done = nlohmann::json::parse(Fuse("out.tif", wet).out);
  for (const char* key : {"method", "output", "width", "height", "bands", "type", "guards"}) {
    EXPECT_EQ(json[key], done[key]) << key;
  }
  EXPECT_EQ(json["plan"]["area"], nlohmann::json({10, 20, 30, 40}));
  EXPECT_EQ(json["plan"]["disk"], 30 * 40 * 2 * 2);
  const std::unique_ptr<GDALDataset> file(GDALDataset::Open(Path("out.tif").c_str(), GDAL_OF_RASTER));
  double t[6];
  file->GetGeoTransform(t);
  EXPECT_EQ(json["plan"]["origin"], nlohmann::json({t[0], t[3]}));
  EXPECT_EQ(json["plan"]["pixel_size"], nlohmann::json({t[1], t[5]}));
  EXPECT_GT(json["plan"]["memory"], 1e6);
  // It refuses what a run refuses.
  EXPECT_EQ(Fuse("out.tif", {"--dry-run"}).status, 2) << "it exists";
  const auto text = Fuse("other.tif", {"--dry-run", "--method", "hpf"});
  EXPECT_THAT(text.out, HasSubstr("other.tif, GeoTIFF, 64x64, 4 bands of uint16"));
  EXPECT_THAT(text.out, HasSubstr("memory         about "));
}

}  // namespace
