// `report` as its users run it: its files, its words, its exit status.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <regex>

#include "tests/apps/scene_command.h"
#include "tests/support/test_raster.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ReportCommand : public SceneCommand {
 protected:
  void SetUp() override {
    SceneCommand::SetUp();
    ASSERT_EQ(Fuse("brovey.tif", {"--method", "brovey", "--quiet"}).status, 0);
  }
  test_support::CommandResult Report(std::vector<std::string> options) const {
    options.insert(options.begin(), {"report", Path("pan.tif")});
    return Run(options);
  }
  std::string Page(const std::string& name = "report.html") const { return test_support::FileBytes(Path(name)); }
};

TEST_F(ReportCommand, WritesAPage) {
  const auto run = Report({Path("ms.tif"), Path("brovey.tif"), "-o", Path("report.html")});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(std::regex_match(run.out, std::regex(".*report.html: [0-9.]+ MB, 1 image\n"))) << run.out;
  for (const char* stage : {"check 0...10", "evaluation 0...10", "quality 0...10", "pictures 0...10"}) {
    EXPECT_THAT(run.err, HasSubstr(stage));
  }
  EXPECT_THAT(Page(), testing::StartsWith("<!DOCTYPE html>"));
  EXPECT_THAT(NewNames(), ElementsAre("brovey.tif", "report.html"));
  const auto again = Report({Path("ms.tif"), Path("brovey.tif"), "-o", Path("report.html"), "--quiet"});
  EXPECT_EQ(again.status, 2);
  EXPECT_THAT(again.err, HasSubstr("exists; add --overwrite"));
  const auto quiet = Report({Path("ms.tif"), Path("brovey.tif"), "-o", Path("report.html"), "--quiet", "--overwrite"});
  EXPECT_EQ(quiet.status, 0);
  EXPECT_THAT(quiet.out + quiet.err, IsEmpty());
}

TEST_F(ReportCommand, JsonTellsOfTheImages) {
  const auto run =
      Report({Path("ms.tif"), Path("brovey.tif"), Path("truth.tif"), "--json", "--out", Path("report.html")});
  EXPECT_EQ(run.status, 0) << run.err;
  const auto json = nlohmann::ordered_json::parse(run.out);
  EXPECT_EQ(json["output"], Path("report.html"));
  EXPECT_EQ(json["bytes"], Page().size());
  EXPECT_EQ(json["error_type"], 0);
  ASSERT_EQ(json["images"].size(), 2U);
  EXPECT_EQ(json["images"][0]["label"], "brovey");
  EXPECT_EQ(json["images"][0]["method"], "brovey");
  EXPECT_EQ(json["images"][1]["method"], "");
  EXPECT_EQ(json["images"][1]["evaluated"], true);
  EXPECT_TRUE(json["images"][0]["quality"]["HQNR"].is_number());
  const auto failed = Report({Path("ms.tif"), Path("none.tif"), "--json", "--quiet", "-o", Path("other.html")});
  EXPECT_EQ(failed.status, 1);
  EXPECT_THAT(nlohmann::json::parse(failed.out)["message"], HasSubstr("none.tif does not exist"));
}

TEST_F(ReportCommand, TheMultispectralImageMayHaveSeveralFiles) {
  for (const int band : {1, 2, 3, 4}) {
    test_support::CopyBand(Path("ms.tif"), band, Path("ms_B" + std::to_string(band) + ".tif"));
  }
  const auto run = Report({"--ms", Path("ms_B*.tif"), Path("brovey.tif"), "--quiet", "-o", Path("report.html")});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(Page(), HasSubstr("ms_B1.tif"));
  EXPECT_THAT(Page(), HasSubstr("ms_B4.tif"));
  EXPECT_THAT(Page(), testing::Not(HasSubstr("could not be")));
}

TEST_F(ReportCommand, SaysWhatIsMissing) {
  const auto error = [&](const std::vector<std::string>& options) {
    const auto run = Report(options);
    EXPECT_EQ(run.status, 2);
    return run.err;
  };
  EXPECT_THAT(error({}), HasSubstr("MS"));
  EXPECT_THAT(error({Path("ms.tif")}), HasSubstr("FUSED"));
  EXPECT_THAT(error({Path("ms.tif"), Path("brovey.tif")}), HasSubstr("--out"));
  EXPECT_THAT(error({Path("ms.tif"), Path("brovey.tif"), "-o", Path("ms.tif"), "--overwrite"}),
              HasSubstr("is an input"));
  EXPECT_THAT(NewNames(), ElementsAre("brovey.tif"));
}

}  // namespace
