// `assess` as its users run it: its table, its JSON, its files, what it says of failures.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include "tests/apps/scene_command.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class AssessCommand : public SceneCommand {
 protected:
  test_support::CommandResult Assess(std::vector<std::string> options) const {
    options.insert(options.begin(), {"assess", Path("pan.tif"), Path("ms.tif"), "--quiet"});
    return Run(options);
  }
};

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

TEST_F(AssessCommand, PrintsATableForEachProtocolAndAdvice) {
  const auto run = Assess({"--methods", "brovey,hpf"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.err, IsEmpty());
  const auto lines = LinesOf(run.out);
  ASSERT_EQ(lines.size(), 12U) << run.out;
  EXPECT_EQ(lines[0],
            "wald                  ERGAS         SAM          Q4        UIQI        RMSE        bias         sCC");
  EXPECT_EQ(lines[5], "full                   HQNR         QNR    D_lambda         D_s   sharpness");
  EXPECT_EQ(lines[4], "");
  EXPECT_EQ(lines[10], "Filters: bands 0.3, pan 0.15, published.");
  EXPECT_THAT(lines[11], StartsWith("Take "));
  const auto given = LinesOf(Assess({"--methods", "brovey", "--mtf", "0.25,0.1"}).out);
  EXPECT_EQ(given[given.size() - 2], "Filters: bands 0.25, pan 0.1, given.");
  // A scene that is large enough to tell.
  ASSERT_EQ(Run({"sample", Path("large"), "--size", "320", "--quiet"}).status, 0);
  const std::vector<std::string> large = {"assess", Path("large/pan.tif"), Path("large/ms.tif"), "--methods", "brovey",
                                          "--quiet"};
  const auto told = LinesOf(Run(large).out);
  const std::regex filters(R"(Filters: bands 0\.3[0-9]* \(wald\) and 0\.3[0-9]* \(full\), pan 0\.15, )"
                           R"(estimated from a blur of 0\.9[0-9]* between them\.)");
  EXPECT_TRUE(std::regex_match(told[told.size() - 2], filters)) << told[told.size() - 2];
  const auto json = nlohmann::ordered_json::parse(Assess({"--methods", "brovey,hpf", "--json"}).out);
  for (const auto& [protocol, first] : {std::pair<std::string, std::size_t>{"wald", 1}, {"full", 6}}) {
    std::vector<std::string> stars;
    for (std::size_t r = 0; r < 3; ++r) {
      std::istringstream words(lines[first + r]);
      std::string method;
      words >> method;
      const auto& row = json[protocol]["rows"][r];
      EXPECT_EQ(method, row["method"]);
      for (auto item = std::next(row.begin()); item != row.end() && item.value().is_number(); ++item) {
        std::string figure;
        words >> figure;
        const bool star = figure.ends_with('*');
        if (star) figure.pop_back();
        EXPECT_NEAR(std::stod(figure), item.value().get<double>(), 1e-3 * std::abs(item.value().get<double>()));
        EXPECT_EQ(star, json[protocol]["best"][item.key()] == method) << item.key();
      }
    }
  }
}

TEST_F(AssessCommand, JsonHasAllThatWasMeasured) {
  const auto run = Assess({"--json", "--protocol", "wald", "--bands", "1,2", "-o", Path("report.json")});
  ASSERT_EQ(run.status, 0) << run.err;
  const auto json = nlohmann::ordered_json::parse(run.out);
  EXPECT_EQ(json["error_type"], 0);
  EXPECT_EQ(json["message"], "");
  EXPECT_EQ(json["ratio"], (nlohmann::ordered_json{4, 4}));
  EXPECT_EQ(json["mtf"], 0.3);
  EXPECT_EQ(json["full_mtf"], 0.3);
  EXPECT_EQ(json["pan_mtf"], 0.15);
  EXPECT_EQ(json["mtf_source"], "published");
  EXPECT_EQ(json["blur"].size(), 3U);
  EXPECT_EQ(json["tiles"], 1);
  EXPECT_EQ(json["share"], 1.0);
  EXPECT_EQ(json["bands"].size(), 2U);
  EXPECT_FALSE(json.contains("full"));
  EXPECT_EQ(json["failures"][0]["method"], "ihs");
  EXPECT_THAT(json["failures"][0]["message"].get<std::string>(), HasSubstr("at least 3"));
  EXPECT_EQ(json["wald"]["rows"].size(), 8U);
  EXPECT_EQ(json["wald"]["rows"][0]["band_rmse"].size(), 2U);
  EXPECT_EQ(json["wald"]["rows"][0]["band_bias"].size(), 2U);
  EXPECT_TRUE(json["best"].is_string());
  EXPECT_EQ(test_support::FileBytes(Path("report.json")), run.out);
  // What is left out is said beside the table, too.
  EXPECT_THAT(Assess({"--protocol", "wald", "--bands", "1,2"}).out, HasSubstr("\nihs is left out: Method ihs needs"));
}

TEST_F(AssessCommand, WritesItsFilesAndReplacesNoneUnasked) {
  const std::vector<std::string> options = {
      "--methods",         "brovey",    "--protocol",      "wald",   "-o",
      Path("report.json"), "--picture", Path("sheet.png"), "--keep", Path("kept")};
  ASSERT_EQ(Assess(options).status, 0);
  EXPECT_THAT(NewNames(), ElementsAre("kept", "report.json", "sheet.png"));
  const std::string before = test_support::FileBytes(Path("report.json"));
  const auto again = Assess(options);
  EXPECT_EQ(again.status, 2);
  EXPECT_EQ(again.err, "fusion: " + Path("report.json") + " exists; add --overwrite to replace it.\n");
  EXPECT_EQ(test_support::FileBytes(Path("report.json")), before);
  auto replacing = options;
  replacing.emplace_back("--overwrite");
  EXPECT_EQ(Assess(replacing).status, 0);
  EXPECT_THAT(NewNames(), ElementsAre("kept", "report.json", "sheet.png"));
  EXPECT_EQ(Assess({"-o", Path("ms.tif"), "--overwrite"}).err,
            "fusion: " + Path("ms.tif") + " is an image that is read.\n");
  EXPECT_EQ(Assess({"-o", Path("kept"), "--overwrite"}).err, "fusion: " + Path("kept") + " is a folder.\n");
  EXPECT_EQ(Assess({"--picture", Path("sheet.png"), "--methods", "brovey"}).status, 2);
  const auto nowhere = Assess({"--methods", "brovey", "--protocol", "wald", "-o", Path("nowhere/report.json")});
  EXPECT_EQ(nowhere.status, 1);
  EXPECT_EQ(nowhere.err, "fusion: " + Path("nowhere/report.json") + " cannot be written.\n");
}

TEST_F(AssessCommand, TellsFailures) {
  EXPECT_EQ(Assess({"--methods", "beauty"}).status, 2);
  EXPECT_EQ(Assess({"--protocol", "half"}).status, 2);
  const auto missing = Run({"assess", Path("pan.tif"), Path("nix.tif"), "--json"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(nlohmann::json::parse(missing.out)["error_type"], 4);
  EXPECT_THAT(missing.err, HasSubstr("nix.tif does not exist."));
  const auto wrong = Run({"assess", Path("pan.tif"), "--json"});
  EXPECT_EQ(wrong.status, 2);
  EXPECT_EQ(nlohmann::json::parse(wrong.out)["error_type"], -1);
}

TEST_F(AssessCommand, FuseTakesTheBestMethodWhereAsked) {
  const std::string best = nlohmann::json::parse(Assess({"--protocol", "wald", "--json"}).out)["best"];
  const auto run = Fuse("out.tif", {"--method", "best", "--json"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(nlohmann::json::parse(run.out)["method"], best);
  EXPECT_THAT(run.err, HasSubstr("The best method is " + best + ", as assessed on 1 part of the scene."));
  ASSERT_EQ(Fuse("plain.tif", {"--method", best, "--quiet"}).status, 0);
  EXPECT_TRUE(Image("out.tif").bands == Image("plain.tif").bands);
}

}  // namespace
