// The built program as its users run it: arguments, exit statuses, what goes to which stream, files left behind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "platform/utility/common_fun.h"
#include "tests/apps/scene_command.h"

namespace {

using test_support::FileBytes;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class FuseCommand : public SceneCommand {};

TEST_F(FuseCommand, HelpVersionAndMethodsGoToStandardOutput) {
  for (const auto& arguments : {std::vector<std::string>{"--help"},
                                {"fuse", "--help"},
                                {"evaluate", "--help"},
                                {"sample", "--help"},
                                {"methods", "--help"}}) {
    const auto help = Run(arguments);
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, HasSubstr("fusion"));
    EXPECT_THAT(help.err, IsEmpty());
  }
  EXPECT_THAT(Run({"--version"}).out, testing::StartsWith("fusion "));
  EXPECT_EQ(Run({"methods", "--names"}).out, "bayesian\nbrovey\nmultiplicative\nweighted\nihs\npca\nhpf\nsharpen\n");
  const auto list = nlohmann::json::parse(Run({"methods", "--json"}).out);
  EXPECT_EQ(list.size(), 8U);
  EXPECT_EQ(list[0]["name"], "bayesian");
  EXPECT_EQ(list[0]["default"], true);
  EXPECT_EQ(list[1]["spectral_match"], true);
  EXPECT_EQ(list[5]["options"], (nlohmann::json{"--resample", "--type", "--stretch", "--pca-match"}));
  EXPECT_THAT(Run({"methods", "pca"}).out,
              HasSubstr("\noptions     --resample, --type, --stretch, --pca-match; and those"));
}

TEST_F(FuseCommand, WrongArgumentsAreStatusTwo) {
  for (const auto& arguments : {std::vector<std::string>{},
                                {"melt"},
                                {"fuse"},
                                {"fuse", "a", "b"},
                                {"fuse", "a", "--ms", "b", "c", "d"},
                                {"fuse", "a", "b", "c", "--magic"},
                                {"fuse", "a", "b", "c", "--bands", "1,x"},
                                {"evaluate", "a", "b"},
                                {"methods", "--yaml"}}) {
    const auto refused = Run(arguments);
    EXPECT_EQ(refused.status, 2) << testing::PrintToString(arguments);
    EXPECT_THAT(refused.err, Not(IsEmpty()));
    EXPECT_THAT(refused.out, IsEmpty());
  }
}

TEST_F(FuseCommand, EveryMethodWritesThePanGridMatchedOrRaw) {
  std::stringstream names(Run({"methods", "--names"}).out);
  std::size_t methods = 0;
  for (std::string method; std::getline(names, method); ++methods) {
    for (const std::string match : {"auto", "off"}) {
      const auto run = Fuse(method + ".tif", {"--method", method, "--spectral-match", match, "--quiet", "--overwrite"});
      EXPECT_EQ(run.status, 0) << method << run.err;
      EXPECT_THAT(run.out + run.err, IsEmpty()) << method;
      const auto fused = Image(method + ".tif");
      EXPECT_EQ(fused.width, 64);
      EXPECT_EQ(fused.height, 64);
      EXPECT_EQ(fused.bands.size(), 4U);
      const auto pan = Image("pan.tif");
      EXPECT_TRUE(std::equal(pan.geoTransform, pan.geoTransform + 6, fused.geoTransform)) << method;
    }
  }
  EXPECT_GE(methods, 8U);
  EXPECT_EQ(NewNames().size(), methods) << "only the outputs may stay: " << testing::PrintToString(NewNames());
}

TEST_F(FuseCommand, JsonTellsWhatWasEstimated) {
  const auto run = Fuse("out.tif", {"--json", "--quiet"});
  ASSERT_EQ(run.status, 0) << run.err;
  const auto json = nlohmann::ordered_json::parse(run.out);
  const auto keys = [](const nlohmann::ordered_json& object) {
    std::vector<std::string> names;
    for (const auto& [key, value] : object.items()) names.push_back(key);
    return names;
  };
  EXPECT_THAT(keys(json["registration"]), ElementsAre("dx", "dy", "applied", "agreement", "score"));
  EXPECT_TRUE(json["registration"]["applied"].is_boolean());
  EXPECT_GT(json["registration"]["score"], 0.0);
  EXPECT_THAT(keys(json["model"]), ElementsAre("shape", "blur", "restoring", "gains", "samples"));
  EXPECT_EQ(json["model"]["gains"].size(), 4U);
  const auto off = Fuse("off.tif", {"--json", "--quiet", "--registration", "off", "--bayes-weight", "0"});
  ASSERT_EQ(off.status, 0) << off.err;
  EXPECT_TRUE(nlohmann::ordered_json::parse(off.out)["registration"].is_null());
}

TEST_F(FuseCommand, JsonDescribesTheOutcome) {
  const auto run = Fuse("out.tif", {"--method", "brovey", "--bands", "3,1", "--type", "float64", "--window",
                                    "8,4,40,20", "--json", "--quiet"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.err, IsEmpty());
  const auto json = nlohmann::ordered_json::parse(run.out);
  std::vector<std::string> keys;
  for (const auto& [key, value] : json.items()) keys.push_back(key);
  EXPECT_THAT(keys, ElementsAre("method", "output", "width", "height", "bands", "type", "seconds", "valid_share",
                                "registration", "model", "error_type", "message", "guards", "notices"));
  EXPECT_THAT(json["guards"], ElementsAre("edges", "resample", "match-moments"));
  EXPECT_THAT(json["notices"], IsEmpty());
  EXPECT_TRUE(json["valid_share"].is_null());
  EXPECT_TRUE(json["registration"].is_null());
  EXPECT_TRUE(json["model"].is_null());
  EXPECT_EQ(json["method"], "brovey");
  EXPECT_EQ(json["output"], Path("out.tif"));
  EXPECT_EQ(json["width"], 40);
  EXPECT_EQ(json["height"], 20);
  EXPECT_EQ(json["bands"], 2);
  EXPECT_EQ(json["type"], "float64");
  EXPECT_GT(json["seconds"], 0.0);
  EXPECT_EQ(json["error_type"], 0);
  EXPECT_EQ(json["message"], "");
}

TEST_F(FuseCommand, JsonDescribesAFailureToo) {
  auto json = nlohmann::json::parse(Run({"fuse", Path("nix.tif"), Path("ms.tif"), Path("out.tif"), "--json"}).out);
  EXPECT_EQ(json["error_type"], 4);
  EXPECT_THAT(json["message"].get<std::string>(), HasSubstr("nix.tif"));
  json = nlohmann::json::parse(Fuse("out.tif", {"--json", "--bands", "9,1"}).out);
  EXPECT_EQ(json["error_type"], -1);
  EXPECT_THAT(json["message"].get<std::string>(), HasSubstr("bands 1 to 4"));
}

TEST_F(FuseCommand, AnExistingOutputNeedsOverwrite) {
  std::ofstream(CommonFun::ToPath(m_folder.WidePath("out.tif"))) << "precious";
  const auto refused = Fuse("out.tif");
  EXPECT_EQ(refused.status, 2);
  EXPECT_THAT(refused.err, HasSubstr("--overwrite"));
  EXPECT_EQ(FileBytes(Path("out.tif")), "precious");
  EXPECT_EQ(Fuse("out.tif", {"--overwrite", "--quiet"}).status, 0);
  EXPECT_EQ(Image("out.tif").width, 64);
}

TEST_F(FuseCommand, AnInputIsNeverTheOutput) {
  const std::string pan = FileBytes(Path("pan.tif"));
  const std::string ms = FileBytes(Path("ms.tif"));
  EXPECT_EQ(Fuse("pan.tif", {"--overwrite"}).status, 2);
  EXPECT_EQ(Fuse("ms.tif", {"--overwrite"}).status, 2);
  std::filesystem::create_hard_link(CommonFun::ToPath(m_folder.WidePath("ms.tif")),
                                    CommonFun::ToPath(m_folder.WidePath("link.tif")));
  EXPECT_EQ(Fuse("link.tif", {"--overwrite"}).status, 2);
  for (const std::string log : {"pan.tif", "ms.tif", "out.tif"}) {
    EXPECT_EQ(Fuse("out.tif", {"--log", Path(log)}).status, 2) << log;
  }
  EXPECT_TRUE(FileBytes(Path("pan.tif")) == pan);
  EXPECT_TRUE(FileBytes(Path("ms.tif")) == ms);
  EXPECT_THAT(NewNames(), ElementsAre("link.tif"));
}

TEST_F(FuseCommand, WhatTheFilesForbidIsStatusTwo) {
  const std::vector<std::string> cases[] = {
      {"--pan-band", "2"},
      {"--pan-band", "0"},
      {"--bands", "0,1"},
      {"--bands", "1,5"},
      {"--bands", "1"},
      {"--method", "ihs", "--bands", "1,2"},
      {"--method", "ihs", "--rgb", "1,2,5"},
      {"--method", "ihs", "--bands", "1,2,3", "--rgb", "1,2,4"},
      {"--method", "brovey", "--make-green", "--bands", "1,2,3"},
      {"--method", "hpf", "--make-green", "--bands", "1,2,3"},
      {"--method", "sharpen", "--make-green", "--bands", "1,2,3"},
      {"--window", "64,0,5,5"},
      {"--window", "-9,-9,5,5"},
  };
  for (const auto& options : cases) {
    const auto refused = Fuse("out.tif", options);
    EXPECT_EQ(refused.status, 2) << testing::PrintToString(options) << refused.err;
    EXPECT_THAT(refused.err, testing::StartsWith("fusion: "));
  }
  EXPECT_EQ(Fuse("").status, 2) << "a folder is no output";
  EXPECT_THAT(NewNames(), IsEmpty());
}

TEST_F(FuseCommand, FailedRunsAreStatusOneWithTypeMessageAndSentence) {
  const auto missing = Run({"fuse", Path("pan.tif"), Path("nix.tif"), Path("out.tif")});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.err,
            "fusion: error 4: " + Path("nix.tif") + " does not exist. (打开文件（" + Path("nix.tif") + "）失败！)\n");
  const auto nowhere = Fuse("no/folder/out.tif");
  EXPECT_EQ(nowhere.status, 1);
  EXPECT_THAT(nowhere.err, HasSubstr("error 5: The output cannot be created"));
  EXPECT_THAT(nowhere.err, HasSubstr("(创建文件（"));
  const auto area = Fuse("out.tif", {"--aoi", Path("nix.shp")});
  EXPECT_EQ(area.status, 1);
  EXPECT_THAT(area.err, HasSubstr("error 4: "));
  EXPECT_THAT(NewNames(), IsEmpty());
}

TEST_F(FuseCommand, ImagesApartAreAFailureThatKeepsTheOldOutput) {
  ASSERT_EQ(Fuse("out.tif", {"--quiet"}).status, 0);
  const std::string before = FileBytes(Path("out.tif"));
  auto far = Image("ms.tif");
  far.geoTransform[0] += 1e6;
  test_support::WriteImage(far, m_folder.WidePath("far.tif"), PDT_UINT16);
  const auto run = Run({"fuse", Path("pan.tif"), Path("far.tif"), Path("out.tif"), "--overwrite"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("error 0: The images have no common ground"));
  EXPECT_THAT(run.err, HasSubstr("(设置的影像范围有误！)\n"));
  EXPECT_TRUE(FileBytes(Path("out.tif")) == before);
  EXPECT_THAT(NewNames(), ElementsAre("far.tif", "out.tif"));
}

TEST_F(FuseCommand, ImagesWithoutValidPixelsAreRefusedAsAFailure) {
  auto empty = Image("pan.tif");
  for (auto& v : empty.bands[0]) v = 7.0;
  test_support::WriteImage(empty, m_folder.WidePath("empty.tif"), PDT_UINT16, "", 7.0);
  const auto run = Run({"fuse", Path("empty.tif"), Path("ms.tif"), Path("out.tif"), "--quiet"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("error 7: The pan image has no valid pixel"));
  // A multispectral band, too, even where the method would leave its pixels out and go on.
  auto ms = Image("ms.tif");
  ms.bands[2].assign(ms.bands[2].size(), 7.0);
  test_support::WriteImage(ms, m_folder.WidePath("empty.tif"), PDT_UINT16, "", 7.0);
  const std::vector<std::string> raw = {"fuse",     Path("pan.tif"), Path("empty.tif"),  Path("out.tif"),
                                        "--method", "brovey",        "--spectral-match", "off"};
  const auto band = Run(raw);
  EXPECT_EQ(band.status, 1);
  EXPECT_THAT(band.err, HasSubstr("error 7: Multispectral band 3 has no valid pixel"));
  EXPECT_THAT(NewNames(), ElementsAre("empty.tif"));
}

TEST_F(FuseCommand, AWindowIsCutWithANotice) {
  const auto cut = Fuse("out.tif", {"--window", "-10,50,30,100", "--json"});
  EXPECT_EQ(cut.status, 0);
  EXPECT_THAT(cut.err, HasSubstr("--window is cut to where both images have data: 0,50,20,14."));
  const auto json = nlohmann::json::parse(cut.out);
  EXPECT_EQ(json["width"], 20);
  EXPECT_EQ(json["height"], 14);
  const auto whole = Fuse("whole.tif", {"--quiet"});
  ASSERT_EQ(whole.status, 0);
  const auto part = Image("out.tif");
  const auto all = Image("whole.tif");
  EXPECT_DOUBLE_EQ(part.geoTransform[3], all.geoTransform[3] + 50 * all.geoTransform[5]);
  // The Bayesian model is that of the whole images, so a window shows the same pixels.
  for (std::size_t b = 0; b < 4; ++b) {
    for (std::size_t i = 0; i < part.bands[b].size(); ++i) {
      ASSERT_EQ(part.bands[b][i], all.bands[b][(50 + i / 20) * 64 + i % 20]);
    }
  }
}

TEST_F(FuseCommand, ListOptionsLeaveTheFileNamesAlone) {
  EXPECT_EQ(Run({"fuse", "--bands", "1,2,3", "--window", "0,0,9,9", Path("pan.tif"), Path("ms.tif"), Path("out.tif"),
                 "--method", "ihs", "--rgb", "3,2,1", "--quiet"})
                .status,
            0);
  EXPECT_EQ(Image("out.tif").bands.size(), 3U);
}

TEST_F(FuseCommand, AllTypesFormatsAndResamplings) {
  for (const std::string type : {"uint8", "uint16", "int16", "uint32", "int32", "float32", "float64"}) {
    const auto run = Fuse(type + ".tif", {"--type", type, "--json", "--quiet"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(nlohmann::json::parse(run.out)["type"], type);
  }
  for (const std::string method : {"nearest", "bilinear", "bicubic", "cubic"}) {
    EXPECT_EQ(Fuse(method + ".tif", {"--resample", method, "--quiet"}).status, 0) << method;
  }
  EXPECT_TRUE(FileBytes(Path("nearest.tif")) != FileBytes(Path("bicubic.tif")));
  EXPECT_EQ(Image("cubic.tif").bands, Image("bicubic.tif").bands);
  EXPECT_EQ(Fuse("out.img", {"--quiet"}).status, 0);
  EXPECT_EQ(Fuse("raw.dat", {"--quiet"}).status, 0);
  EXPECT_EQ(Fuse("picture.png", {"--type", "uint8", "--bands", "3,2,1", "--quiet"}).status, 0);
  EXPECT_EQ(Fuse("named", {"--format", "ENVI", "--quiet"}).status, 0);
  const auto tiff = Fuse("same.tif", {"--quiet"});
  ASSERT_EQ(tiff.status, 0);
  EXPECT_TRUE(Image("out.img").bands == Image("same.tif").bands);
  EXPECT_TRUE(Image("raw.dat").bands == Image("same.tif").bands);
  EXPECT_TRUE(Image("named").bands == Image("same.tif").bands);
  EXPECT_TRUE(m_folder.Has("named.hdr"));
}

TEST_F(FuseCommand, AnAreaOfInterestLeavesZeroOutside) {
  // 64 pixels of half a metre from 440000, 4475000: a square of 10 x 10 m inside, in pixels 8..28.
  const char* area = R"({"type":"FeatureCollection","crs":{"type":"name","properties":{"name":"EPSG:32630"}},
    "features":[{"type":"Feature","properties":{},"geometry":{"type":"Polygon","coordinates":
    [[[440004,4474996],[440014,4474996],[440014,4474986],[440004,4474996]]]}}]})";
  std::ofstream(CommonFun::ToPath(m_folder.WidePath("area.geojson"))) << area;
  for (const std::string method : {"bayesian", "brovey", "hpf", "sharpen"}) {
    const auto run = Fuse(method + ".tif", {"--method", method, "--aoi", Path("area.geojson"), "--quiet"});
    ASSERT_EQ(run.status, 0) << run.err;
    const auto image = Image(method + ".tif");
    ASSERT_EQ(image.width, 20) << method;
    ASSERT_EQ(image.height, 20) << method;
    // The triangle holds its upper right half; both corners are far from its edge.
    EXPECT_EQ(image.bands[0][19 * 20], 0.0) << method;
    EXPECT_GT(image.bands[0][2 * 20 + 17], 0.0) << method;
  }
}

TEST_F(FuseCommand, OverviewsStandBesideTheOutputOnlyWhereAMethodHasThem) {
  ASSERT_EQ(Run({"sample", Path("large"), "--size", "512", "--quiet"}).status, 0);
  const auto fuse = [&](const std::string& out, std::vector<std::string> options) {
    options.insert(options.begin(), {"fuse", Path("large/pan.tif"), Path("large/ms.tif"), Path(out), "--quiet"});
    const auto run = Run(options);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.err, IsEmpty());
    return m_folder.Has(out + ".ovr");
  };
  EXPECT_TRUE(fuse("ihs.tif", {"--method", "ihs"}));
  EXPECT_TRUE(fuse("hpf.tif", {"--method", "hpf"}));
  EXPECT_TRUE(fuse("sharpen.tif", {"--method", "sharpen"}));
  EXPECT_FALSE(fuse("brovey.tif", {"--method", "brovey"}));
  EXPECT_FALSE(fuse("without.tif", {"--method", "hpf", "--no-overviews"}));
  // The old output's overviews show other pixels.
  EXPECT_FALSE(fuse("hpf.tif", {"--method", "brovey", "--overwrite"}));
  EXPECT_THAT(NewNames(), ElementsAre("brovey.tif", "hpf.tif", "ihs.tif", "ihs.tif.ovr", "large", "sharpen.tif",
                                      "sharpen.tif.ovr", "without.tif"));
}

TEST_F(FuseCommand, TheLogTellsThePipelinesStages) {
  ASSERT_EQ(Fuse("out.tif", {"--method", "hpf", "--log", Path("run.log"), "--quiet"}).status, 0);
  EXPECT_THAT(FileBytes(Path("run.log")), HasSubstr("开始HPF融合处理"));
  EXPECT_THAT(FileBytes(Path("run.log")), HasSubstr("HPF融合处理结束"));
}

TEST_F(FuseCommand, ProgressIsDotsOnStandardError) {
  const auto run = Fuse("out.tif");
  EXPECT_THAT(run.err, HasSubstr("bayesian 0...10...20...30...40...50...60...70...80...90...100 - done.\n"));
  EXPECT_THAT(run.out, IsEmpty());
}

#ifndef _WIN32
TEST_F(FuseCommand, CtrlCIsStatus130AndLeavesNothing) {
  ASSERT_EQ(Run({"sample", Path("large"), "--size", "3000", "--quiet"}).status, 0);
  ASSERT_EQ(Fuse("out.tif", {"--quiet"}).status, 0);
  const std::string before = FileBytes(Path("out.tif"));
  using test_support::Quoted;
  // The interrupt comes when the first temporary file shows that the run is under way.
  const std::string line =
      Quoted(FUSION_COMMAND) + " fuse " + Quoted(Path("large/pan.tif")) + ' ' + Quoted(Path("large/ms.tif")) + ' ' +
      Quoted(Path("out.tif")) + " --method hpf --overwrite --quiet 2> " + Quoted(Path("err")) + " & run=$!; cd " +
      Quoted(Path("")) + "; until ls | grep -q '~'; do sleep 0.01; done; kill -INT $run; wait $run";
  EXPECT_EQ(test_support::RunShell(line), 130);
  EXPECT_THAT(FileBytes(Path("err")), HasSubstr("cancelled"));
  EXPECT_TRUE(FileBytes(Path("out.tif")) == before);
  EXPECT_THAT(NewNames(), ElementsAre("err", "large", "out.tif"));
}
#else
TEST_F(FuseCommand, CtrlCIsStatus130AndLeavesNothing) { GTEST_SKIP() << "programs send each other no signals here"; }
#endif

}  // namespace
