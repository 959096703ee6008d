// What the program says of itself: help, manual page, completions, explanations of the methods.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>

#include "runs/methods.h"
#include "tests/support/command.h"

namespace {

using test_support::Quoted;
using test_support::RunCommand;
using testing::HasSubstr;

const std::vector<std::string> kCommands = {"fuse",   "check",  "evaluate", "assess", "report",
                                            "survey", "sample", "info",     "verify", "methods"};

std::string Output(const std::vector<std::string>& arguments) {
  const auto run = RunCommand(FUSION_COMMAND, arguments);
  EXPECT_EQ(run.status, 0) << run.err;
  return run.out;
}

std::vector<std::string> Lines(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

/// The options that the help of a command lists, each at the start of a line.
std::set<std::string> Options(const std::string& command) {
  std::set<std::string> options;
  const std::regex first("^  (?:-[a-z],)?(--[a-z-]+).*");
  for (const std::string& line : Lines(Output({command, "--help"}))) {
    std::smatch match;
    if (std::regex_match(line, match, first)) options.insert(match[1]);
  }
  EXPECT_TRUE(options.contains("--help")) << command;
  return options;
}

TEST(Help, FitsAScreenOf80Columns) {
  const auto lines = Lines(Output({"--help"}));
  EXPECT_LE(lines.size(), 24U);
  EXPECT_THAT(Output({"--help"}), HasSubstr("\n  $ fusion fuse pan.tif ms.tif fused.tif\n"));
  for (const std::string& command : kCommands) {
    EXPECT_THAT(Output({"--help"}), HasSubstr("\n  " + command + " "));
    for (const std::string& line : Lines(Output({command, "--help"}))) EXPECT_LE(line.size(), 80U) << line;
  }
}

TEST(Help, OfFuseHasGroupsAndAnExampleThatWorks) {
  const std::string help = Output({"fuse", "--help"});
  for (const char* group :
       {"Files:", "Bands, pixels and ground:", "Method:", "Guards, each on by default:", "The run:"}) {
    EXPECT_THAT(help, HasSubstr(std::string("\n\n") + group + "\n"));
  }
  EXPECT_THAT(help, HasSubstr("Usage: fusion fuse PAN MS... OUT [OPTIONS]\n"));
  EXPECT_THAT(help, HasSubstr("\n  $ fusion fuse pan.tif ms.tif fused.tif --method hpf --bands 3,2,1\n"));
}

TEST(ManualPage, TellsEveryOptionOfEveryCommand) {
  const std::string page = Output({"man"});
  EXPECT_EQ(page.rfind(".TH FUSION 1", 0), 0U);
  for (const std::string& command : kCommands) {
    EXPECT_THAT(page, HasSubstr("\n.SH FUSION " + command + "\n"));
    const std::size_t start = page.find("\n.SH FUSION " + command + "\n");
    const std::string section = page.substr(start, page.find("\n.SH ", start + 5) - start);
    for (const std::string& option : Options(command)) {
      EXPECT_THAT(section, HasSubstr(std::regex_replace(option, std::regex("-"), "\\-"))) << command;
    }
  }
}

#ifndef _WIN32
TEST(ManualPage, IsOneForMan) {
  if (test_support::RunShell("command -v man > /dev/null && command -v groff > /dev/null") != 0) {
    GTEST_SKIP() << "no man here";
  }
  const test_support::TemporaryFolder folder;
  ASSERT_EQ(test_support::RunShell(Quoted(FUSION_COMMAND) + " man > " + Quoted(folder.Path("fusion.1"))), 0);
  ASSERT_EQ(test_support::RunShell("MANWIDTH=80 LC_ALL=C.UTF-8 man --warnings -l " + Quoted(folder.Path("fusion.1")) +
                                   " > " + Quoted(folder.Path("text")) + " 2> " + Quoted(folder.Path("warnings"))),
            0);
  EXPECT_EQ(test_support::FileBytes(folder.Path("warnings")), "");
  const std::string text = test_support::FileBytes(folder.Path("text"));
  EXPECT_THAT(text, HasSubstr("--spectral-match auto|on|off"));
  EXPECT_THAT(text, HasSubstr("fusion fuse PAN MS... OUT [OPTIONS]"));
}

/// What bash offers behind some words.
std::vector<std::string> Completed(const std::vector<std::string>& words) {
  const test_support::TemporaryFolder folder;
  std::string list;
  for (const std::string& word : words) list += Quoted(word) + ' ';
  const std::string script = "source <(" + Quoted(FUSION_COMMAND) + " completion bash); COMP_WORDS=(" + list +
                             R"(); COMP_CWORD=$((${#COMP_WORDS[@]}-1)); _fusion; printf '%s\n' "${COMPREPLY[@]}" > )" +
                             Quoted(folder.Path("reply"));
  EXPECT_EQ(test_support::RunShell("bash -c " + Quoted(script)), 0);
  auto lines = Lines(test_support::FileBytes(folder.Path("reply")));
  std::erase(lines, "");
  std::sort(lines.begin(), lines.end());
  return lines;
}

TEST(Completion, OfBashOffersWhatTheHelpLists) {
  if (test_support::RunShell("command -v bash > /dev/null") != 0) GTEST_SKIP() << "no bash here";
  const auto commands = Completed({"fusion", ""});
  for (const std::string& command : kCommands) {
    EXPECT_THAT(commands, testing::Contains(command));
    const auto offered = Completed({"fusion", command, "--"});
    EXPECT_EQ(std::set<std::string>(offered.begin(), offered.end()), Options(command));
  }
  EXPECT_THAT(Completed({"fusion", "ev"}), testing::ElementsAre("evaluate"));
  EXPECT_THAT(Completed({"fusion", "fuse", "a.tif", "--method", "b"}),
              testing::ElementsAre("bayesian", "best", "brovey"));
  EXPECT_THAT(Completed({"fusion", "fuse", "--spectral-match", "=", "o"}), testing::ElementsAre("off", "on"));
  EXPECT_THAT(Completed({"fusion", "fuse", "--type", "="}),
              testing::ElementsAre("float32", "float64", "int16", "int32", "uint16", "uint32", "uint8"));
  EXPECT_THAT(Completed({"fusion", "methods", "bro"}), testing::ElementsAre("brovey"));
  EXPECT_THAT(Completed({"fusion", "fuse", "pa"}), testing::ElementsAre()) << "files are bash's own";
}

TEST(Completion, OfOtherShellsIsReadByThem) {
  const test_support::TemporaryFolder folder;
  for (const std::string shell : {"zsh", "fish"}) {
    const std::string script = Output({"completion", shell});
    for (const std::string& option : Options("fuse")) {
      EXPECT_THAT(script, HasSubstr(shell == "zsh" ? "*" + option : "-l " + option.substr(2) + " ")) << shell;
    }
    if (test_support::RunShell("command -v " + shell + " > /dev/null") != 0) continue;
    const std::string file = folder.Path(shell);
    ASSERT_EQ(test_support::RunShell(Quoted(FUSION_COMMAND) + " completion " + shell + " > " + Quoted(file)), 0);
    EXPECT_EQ(test_support::RunShell(shell + " -n " + Quoted(file)), 0) << shell;
  }
  EXPECT_EQ(RunCommand(FUSION_COMMAND, {"completion", "csh"}).status, 2);
}
#else
TEST(ManualPage, IsOneForMan) { GTEST_SKIP() << "no man here"; }
TEST(Completion, OfBashOffersWhatTheHelpLists) { GTEST_SKIP() << "no bash here"; }
TEST(Completion, OfOtherShellsIsReadByThem) { GTEST_SKIP() << "none of these shells here"; }
#endif

TEST(MethodTexts, TellEveryMethod) {
  for (const fusion::Method& method : fusion::Methods()) {
    const std::string text = Output({"methods", method.name});
    for (const char* said : {method.summary, method.formula, method.source, method.suits, method.spares}) {
      ASSERT_STRNE(said, "");
      // Line ends stand where the lines are full.
      std::string words = std::regex_replace(text, std::regex("\\s+"), " ");
      EXPECT_THAT(words, HasSubstr(said)) << method.name;
    }
    for (const std::string& line : Lines(text)) EXPECT_LE(line.size(), 80U);
    EXPECT_EQ(nlohmann::json::parse(Output({"methods", method.name, "--json"}))["formula"], method.formula);
  }
  const auto run = RunCommand(FUSION_COMMAND, {"methods", "brovy"});
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err, "fusion: Unknown method 'brovy'; did you mean 'brovey'?\n");
}

}  // namespace
