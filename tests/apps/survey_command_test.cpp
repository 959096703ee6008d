// `survey` and `fuse --rows` as their users run them: parts by programs of their own, and the whole by one.
#include "apps/survey_command.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/apps/scene_command.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class SurveyCommand : public SceneCommand {
 protected:
  test_support::CommandResult Survey(std::vector<std::string> options) const {
    options.insert(options.begin(), {"survey", Path("pan.tif"), Path("ms.tif"), "--method", "weighted"});
    return Run(options);
  }
  bool IsComplete(const std::string& survey) const {
    const auto run = Survey({"--survey", Path(survey), "--dry-run", "--json"});
    EXPECT_EQ(run.status, 0) << run.err;
    const auto json = nlohmann::json::parse(run.out);
    EXPECT_EQ(json["height"], 64);
    return json["complete"];
  }
  /// Surveys both parts once, with what there is, and merges them with that. Answers the merged survey.
  std::string GoRound(const std::string& before) const {
    std::vector<std::string> parts = {Path("2" + before), Path("1" + before)};
    if (!before.empty()) parts.push_back(Path(before));
    for (const auto& [rows, out] : {std::pair("0:24", "1"), std::pair("24:64", "2")}) {
      std::vector<std::string> options = {"--rows", rows, "-o", Path(out + before), "--quiet"};
      if (!before.empty()) options.insert(options.end(), {"--survey", Path(before)});
      const auto run = Survey(options);
      EXPECT_EQ(run.status, 0) << run.err;
      EXPECT_EQ(run.out, "");
    }
    std::string merged = "all" + before;
    std::vector<std::string> arguments = {"survey", "-o", Path(merged), "--merge"};
    arguments.insert(arguments.end(), parts.begin(), parts.end());
    const auto run = Run(arguments);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, StartsWith("merged: "));
    return merged;
  }
};

TEST_F(SurveyCommand, RowsFusedByThemselvesAreThoseOfTheWhole) {
  std::string survey = GoRound("");
  int rounds = 1;
  for (; !IsComplete(survey); ++rounds) {
    ASSERT_LT(rounds, 5);
    survey = GoRound(survey);
  }
  EXPECT_EQ(rounds, 3) << "correlations, the range of what they give, its moments";
  ASSERT_EQ(Fuse("whole.tif", {"--method", "weighted"}).status, 0);
  const auto whole = Image("whole.tif");
  for (const auto& [rows, top, bottom] : {std::tuple("0:10", 0, 10), std::tuple("10:64", 10, 64)}) {
    const auto run =
        Fuse("part.tif", {"--method", "weighted", "--rows", rows, "--survey", Path(survey), "--overwrite"});
    ASSERT_EQ(run.status, 0) << run.err;
    const auto part = Image("part.tif");
    ASSERT_EQ(part.height, bottom - top);
    EXPECT_EQ(part.geoTransform[3], whole.geoTransform[3] + top * whole.geoTransform[5]);
    for (std::size_t b = 0; b < whole.bands.size(); ++b) {
      const auto first = whole.bands[b].begin() + top * whole.width;
      EXPECT_EQ(part.bands[b], std::vector<double>(first, first + part.height * whole.width)) << rows;
    }
  }
}

TEST_F(SurveyCommand, TellsWhatIsNext) {
  const auto run = Survey({"--rows", "0:64", "-o", Path("all.survey")});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, HasSubstr("of 64 rows; merge those of all, and survey all once more with what comes of it"));
  EXPECT_THAT(Survey({"--survey", Path("all.survey"), "--dry-run"}).out, StartsWith("not complete: "));
  EXPECT_THAT(NewNames(), ElementsAre("all.survey"));
}

TEST_F(SurveyCommand, RefusesWhatItCannotUse) {
  const auto status = [&](const std::vector<std::string>& options, const std::string& sentence) {
    const auto run = Survey(options);
    EXPECT_THAT(run.err, HasSubstr(sentence));
    return run.status;
  };
  EXPECT_EQ(status({"--rows", "0:64"}, "--out"), 2);
  EXPECT_EQ(status({"--rows", "64:80", "-o", Path("a.survey")}, "--rows"), 2);
  ASSERT_EQ(Survey({"--rows", "0:64", "-o", Path("a.survey"), "--quiet"}).status, 0);
  const std::string bytes = test_support::FileBytes(Path("a.survey"));
  EXPECT_EQ(status({"--rows", "0:64", "-o", Path("a.survey")}, "--overwrite"), 2);
  EXPECT_EQ(test_support::FileBytes(Path("a.survey")), bytes);
  // Of other options.
  const auto run = Fuse("out.tif", {"--method", "brovey", "--rows", "0:10", "--survey", Path("a.survey")});
  EXPECT_EQ(run.status, 2) << run.err;
  EXPECT_THAT(NewNames(), ElementsAre("a.survey"));
}

}  // namespace
