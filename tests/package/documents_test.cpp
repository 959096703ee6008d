// What the documents say of the tree and of the command is so, and nothing that they must say is missing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "runs/options.h"
#include "tests/support/all_methods.h"
#include "tests/support/command.h"

namespace {

namespace fs = std::filesystem;
using test_support::FileBytes;
using testing::HasSubstr;

const fs::path kRoot = FUSION_SOURCE_DIR;

std::string TextOf(const fs::path& name) { return FileBytes((kRoot / name).string()); }

std::vector<std::string> All(const std::string& text, const std::string& expression, std::size_t group = 0) {
  const std::regex regex(expression);
  std::vector<std::string> found;
  for (std::sregex_iterator i(text.begin(), text.end(), regex), end; i != end; ++i) found.push_back((*i)[group].str());
  return found;
}

std::string Output(const std::vector<std::string>& arguments) {
  const auto run = test_support::RunCommand(FUSION_COMMAND, arguments);
  EXPECT_EQ(run.status, 0) << run.err;
  return run.out;
}

std::vector<std::string> MethodNames() {
  std::istringstream lines(Output({"methods", "--names"}));
  std::vector<std::string> names;
  for (std::string line; std::getline(lines, line);) names.push_back(line);
  EXPECT_GT(names.size(), 5U);
  return names;
}

std::vector<fs::path> Documents() {
  std::vector<fs::path> documents;
  for (const fs::path& folder : {kRoot, kRoot / "docs", kRoot / ".github"}) {
    if (!fs::exists(folder)) continue;
    for (const auto& entry : fs::directory_iterator(folder)) {
      if (entry.path().extension() == ".md") documents.push_back(entry.path());
    }
  }
  EXPECT_GT(documents.size(), 5U);
  return documents;
}

/// Whether a path of the tree exists; the name may hold a star.
bool Exists(const std::string& path) {
  const fs::path full = kRoot / path;
  if (path.find('*') == std::string::npos) return fs::exists(full);
  std::string expression = std::regex_replace(full.filename().string(), std::regex("\\."), "\\.");
  expression = std::regex_replace(expression, std::regex("\\*"), ".*");
  const std::regex name(expression);
  const fs::path folder = full.parent_path();
  return fs::is_directory(folder) &&
         std::any_of(fs::directory_iterator(folder), fs::directory_iterator(),
                     [&](const auto& entry) { return std::regex_match(entry.path().filename().string(), name); });
}

TEST(Documents, NamePathsThatExist) {
  // What begins with a folder of the tree, or is a link of a document.
  std::string folders = "\\.ci|\\.github";
  for (const auto& entry : fs::directory_iterator(kRoot)) {
    const std::string name = entry.path().filename().string();
    if (entry.is_directory() && name[0] != '.' && name != "demo" && !name.starts_with("build")) folders += '|' + name;
  }
  // Folders that are gone are named by nobody; those that come and go with them.
  const std::string path = "(?:^|[\\s`(])((?:" + folders + "|apps|runs)/[\\w./*<>-]*)";
  int seen = 0;
  for (const fs::path& document : Documents()) {
    const std::string text = FileBytes(document.string());
    for (std::string name : All(text, path, 1)) {
      if (name.find('<') != std::string::npos) continue;
      while (name.ends_with('.')) name.pop_back();
      ++seen;
      EXPECT_TRUE(Exists(name)) << document << " names " << name;
    }
    for (const std::string& link : All(text, R"(\]\(([^)#:]+)\))", 1)) {
      ++seen;
      EXPECT_TRUE(fs::exists(document.parent_path() / link)) << document << " links to " << link;
    }
  }
  EXPECT_GT(seen, 50);
}

/// The part of a document below a heading of the second level.
std::string Section(const std::string& text, const std::string& heading) {
  const std::size_t start = text.find("\n## " + heading + "\n");
  if (start == std::string::npos) return "";
  return text.substr(start + 1, text.find("\n## ", start + 1) - start);
}

const std::string kOption = "--[a-z][a-z0-9-]*";

std::set<std::string> OptionsOf(const std::string& text) {
  const auto found = All(text, kOption);
  return {found.begin(), found.end()};
}

std::set<std::string> OptionsOfHelp(const std::vector<std::string>& arguments) {
  std::set<std::string> options;
  for (const std::string& found : All(Output(arguments), "(?:^|[\\s,])(" + kOption + ")(?=[\\s,]|$)", 1)) {
    options.insert(found);
  }
  options.erase("--help");
  return options;
}

TEST(Documents, ListTheOptionsThatTheHelpLists) {
  const std::string usage = TextOf("docs/usage.md");
  std::set<std::string> all = {"--help", "--version"};
  for (const std::string command : {"fuse", "check", "evaluate", "assess", "report", "survey", "sample"}) {
    std::set<std::string> listed;
    for (const std::string& cell : All(Section(usage, command), R"(\n\| (`--(?:[^|\n\\]|\\\|)*))", 1))
      listed.merge(OptionsOf(cell));
    const std::set<std::string> help = OptionsOfHelp({command, "--help"});
    EXPECT_EQ(listed, help) << command;
    EXPECT_GT(help.size(), 4U);
    all.insert(help.begin(), help.end());
  }
  const std::set<std::string> methods = OptionsOfHelp({"methods", "--help"});
  const auto synopsis = All(usage, R"(\nfusion methods (\[[^\]]*\]))", 1);
  ASSERT_EQ(synopsis.size(), 1U);
  EXPECT_EQ(OptionsOf(synopsis[0]), methods);
  all.insert(methods.begin(), methods.end());
  std::set<std::string> general = OptionsOfHelp({"--help"});
  EXPECT_EQ(general, std::set<std::string>{"--version"});

  for (const std::string& named : OptionsOf(usage)) EXPECT_TRUE(all.contains(named)) << "usage.md names " << named;
}

TEST(Documents, TellTheVersionThatTheCommandTells) {
  const std::string told = Output({"--version"});
  const std::string version =
      told.substr(std::string("fusion ").size(), told.find('\n') - std::string("fusion ").size());
  const auto released = All(TextOf("CHANGELOG.md"), "\n## ([0-9][0-9.]*)", 1);
  ASSERT_FALSE(released.empty());
  EXPECT_EQ(released[0], version);
  EXPECT_THAT(TextOf("cmake/debian/changelog"), testing::StartsWith("fusion (" + version + "-1) "));
}

template <typename Request>
void ExpectSetByName(const std::string& command) {
  // How the outcome is told is the command's own.
  const std::set<std::string> telling = {"--quiet", "--json", "--report", "--repeat"};
  for (const std::string& option : OptionsOfHelp({command, "--help"})) {
    if (telling.contains(option)) continue;
    Request request;
    try {
      fusion::SetOption(request, option.substr(2), "");
    } catch (const fusion::RunFailure& refusal) {
      // Nothing is no value of many, but whoever says so knows the option.
      EXPECT_THAT(refusal.what(), testing::Not(HasSubstr("There is no option"))) << command;
    }
  }
}

TEST(Options, CanBeSetByNameFromAProgram) {
  ExpectSetByName<fusion::FuseRequest>("fuse");
  ExpectSetByName<fusion::CheckRequest>("check");
  ExpectSetByName<fusion::AssessRequest>("assess");
  ExpectSetByName<fusion::EvaluateRequest>("evaluate");
  ExpectSetByName<fusion::ReportRequest>("report");
  ExpectSetByName<fusion::SurveyRequest>("survey");
  ExpectSetByName<fusion::SampleRequest>("sample");
}

TEST(Documents, ListTheCommandsThatTheHelpLists) {
  const auto found = All(TextOf("docs/usage.md"), "\\nfusion ([a-z]+) ", 1);
  const std::string help = Output({"--help"});
  for (const std::string& command : found) EXPECT_THAT(help, HasSubstr("\n  " + command + " "));
  EXPECT_EQ(std::set<std::string>(found.begin(), found.end()).size(), All(help, "\n  [a-z]+ ").size());
}

TEST(Methods, StandInTheDocuments) {
  const std::string methods = Section(TextOf("docs/usage.md"), "fuse");
  const std::string readme = TextOf("README.md");
  for (const std::string& name : MethodNames()) {
    EXPECT_THAT(methods, HasSubstr("\n| `" + name + "`"));
    EXPECT_THAT(readme, HasSubstr('`' + name + '`'));
  }
}

TEST(Methods, ArePutThroughEverySweep) {
  // The sweeps over gaps, block orders and instruction sets go over AllMethods; that over the definition is a test
  // suite of each method's own.
  std::string definitions;
  for (const auto& entry : fs::recursive_directory_iterator(kRoot / "tests")) {
    if (entry.path().filename().string().ends_with("_fusion_test.cpp")) definitions += FileBytes(entry.path().string());
  }
  std::map<std::string, std::string> swept;
  for (const auto& method : test_support::AllMethods()) swept[method.name] = method.definition;
  for (const std::string& name : MethodNames()) {
    ASSERT_TRUE(swept.contains(name)) << name << " is missing in tests/support/all_methods.cpp";
    ASSERT_NE(swept[name], "") << name;
    EXPECT_THAT(definitions, HasSubstr("class " + swept[name] + " : public test_support::MethodSweep"));
    EXPECT_THAT(definitions, HasSubstr("TEST_P(" + swept[name] + ", "));
    const std::regex instance("INSTANTIATE_TEST_SUITE_P\\([A-Za-z]+, " + swept[name] + ",");
    EXPECT_TRUE(std::regex_search(definitions, instance)) << swept[name];
  }
}

}  // namespace
