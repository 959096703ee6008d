// `check` as its users run it: its table, its JSON, its exit status.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/apps/scene_command.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class CheckCommand : public SceneCommand {
 protected:
  test_support::CommandResult Check(std::vector<std::string> options) const {
    options.insert(options.begin(), "check");
    return Run(options);
  }
};

TEST_F(CheckCommand, AGoodPairIsFine) {
  ASSERT_EQ(Run({"sample", Path("good"), "--size", "320", "--quiet"}).status, 0);
  const auto run = Check({Path("good/pan.tif"), Path("good/ms.tif"), "--quiet"});
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_THAT(run.err, IsEmpty());
  EXPECT_THAT(run.out, HasSubstr("  size               320x320, 1 band"));
  EXPECT_THAT(run.out, HasSubstr("  ratio of the pixels  4\n"));
  EXPECT_THAT(run.out, HasSubstr("Nothing stands against fusing them.\n"));
  EXPECT_THAT(run.out, Not(HasSubstr("Warning")));
  std::istringstream lines(run.out);
  for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 125U) << line;
  const auto loud = Check({Path("good/pan.tif"), Path("good/ms.tif")});
  EXPECT_THAT(loud.err, HasSubstr("check 0...10"));
}

TEST_F(CheckCommand, WarningsHaveAStatusOfTheirOwn) {
  ASSERT_EQ(Run({"sample", Path("moved"), "--size", "320", "--shift", "2,-1", "--quiet"}).status, 0);
  const auto run = Check({Path("moved/pan.tif"), Path("moved/ms.tif"), "--quiet"});
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.err, IsEmpty());
  EXPECT_THAT(run.out, HasSubstr("Warning: The multispectral image lies beside the pan image"));
  EXPECT_THAT(run.out, HasSubstr("\n  bayesian moves it by itself"));
  EXPECT_THAT(run.out, Not(HasSubstr("Nothing stands against")));
  EXPECT_EQ(Check({Path("moved/ms.tif"), Path("moved/pan.tif"), "--quiet"}).status, 3);
}

TEST_F(CheckCommand, JsonHasAllThatWasSeen) {
  ASSERT_EQ(Run({"sample", Path("moved"), "--size", "320", "--shift", "2,-1", "--quiet"}).status, 0);
  const auto run = Check({Path("moved/pan.tif"), Path("moved/ms.tif"), "--json", "--quiet", "--bands", "1,3"});
  EXPECT_EQ(run.status, 3);
  const auto json = nlohmann::ordered_json::parse(run.out);
  EXPECT_EQ(json["fine"], false);
  EXPECT_EQ(json["pan"]["size"], (nlohmann::json{320, 320}));
  EXPECT_EQ(json["ms"]["overlap"], 1.0);
  EXPECT_EQ(json["ratio"], (nlohmann::json{4.0, 4.0}));
  ASSERT_EQ(json["bands"].size(), 2U);
  for (const char* figure :
       {"minimum", "maximum", "mean", "deviation", "no_data", "pan_ratio", "correlation", "detail"}) {
    EXPECT_TRUE(json["bands"][1][figure].is_number()) << figure;
  }
  // What was made 2 to the right and 1 up has to go back.
  EXPECT_NEAR(json["shift"]["dx"].get<double>(), -2.0, 0.1);
  EXPECT_NEAR(json["shift"]["dy"].get<double>(), 1.0, 0.1);
  EXPECT_EQ(json["blur"]["shape"], "gaussian");
  ASSERT_EQ(json["warnings"].size(), 1U);
  EXPECT_EQ(json["warnings"][0]["name"], "shift");
  EXPECT_FALSE(json["warnings"][0]["advice"].get<std::string>().empty());
  EXPECT_EQ(json["error_type"], 0);
}

TEST_F(CheckCommand, FailuresAreNoWarnings) {
  const auto missing = Check({Path("pan.tif"), Path("nix.tif"), "--json"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(nlohmann::json::parse(missing.out)["error_type"], 4);
  EXPECT_THAT(missing.err, HasSubstr("nix.tif does not exist."));
  EXPECT_EQ(Check({Path("pan.tif"), Path("ms.tif"), "--bands", "9"}).status, 2);
  EXPECT_EQ(Check({Path("pan.tif")}).status, 2);
}

}  // namespace
